// SPDX-License-Identifier: Apache-2.0

#include "simulator/label_store.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "integrity/tarn_abi.h"

namespace tarnsim {
namespace {

constexpr char kLabelAttribute[] = "user.tarn.label";
constexpr size_t kMaxLabelSize = sizeof(TarnExLabel) + 0xFFFF;

std::string FolderFromEnvironment() {
  const auto valueOf = [](const char* name) {
    const char* value = getenv(name);
    return std::string(value != nullptr ? value : "");
  };
  if (std::string folder = valueOf("TARNSIM_LABELS"); !folder.empty()) return folder;
  if (const std::string state = valueOf("XDG_STATE_HOME"); !state.empty()) {
    return state + "/tarnsim/labels";
  }
  const std::string home = valueOf("HOME");
  return home.empty() ? "" : home + "/.local/state/tarnsim/labels";
}

// Returns true for errors that say something about the attribute and nothing about the file.
bool CannotHold(int error) {
  switch (error) {
    case EACCES:  // attributes need the right to write the file, or to read it
    case EPERM:
    case EOPNOTSUPP:
    case E2BIG:
    case ERANGE:
    case ENOSPC:  // ext4 says this of a label of some KiB
    case EDQUOT:
      return true;
    default:
      return false;
  }
}

// Reads up to a label's size from the file at `path`.
int ReadEntry(const std::string& path, Bytes& out) {
  const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (file < 0) return errno;
  out.resize(kMaxLabelSize);
  const ssize_t size = read(file, out.data(), out.size());
  const int error = size < 0 ? errno : 0;
  close(file);
  out.resize(size < 0 ? 0 : static_cast<size_t>(size));
  return error;
}

}  // namespace

LabelStore::LabelStore() : folder_(FolderFromEnvironment()) {}

// Returns the path of the entry for the file; empty without a folder. The time of the file's birth
// distinguishes it from a later one with the same number.
std::string LabelStore::EntryOf(int fd) const {
  struct statx info = {};
  if (folder_.empty() || statx(fd, "", AT_EMPTY_PATH, STATX_INO | STATX_BTIME, &info) != 0) {
    return "";
  }
  char name[100];
  snprintf(name, sizeof(name), "/%x.%x-%llx-%llx.%x", info.stx_dev_major, info.stx_dev_minor,
           static_cast<unsigned long long>(info.stx_ino),
           static_cast<unsigned long long>(info.stx_btime.tv_sec), info.stx_btime.tv_nsec);
  return folder_ + name;
}

int LabelStore::Load(int fd, Bytes& out) const {
  const std::string entry = EntryOf(fd);
  if (!entry.empty() && ReadEntry(entry, out) == 0) return out.empty() ? ENODATA : 0;
  out.resize(kMaxLabelSize);
  const ssize_t size = fgetxattr(fd, kLabelAttribute, out.data(), out.size());
  const int error = size < 0 ? errno : 0;
  out.resize(size < 0 ? 0 : static_cast<size_t>(size));
  return CannotHold(error) ? ENODATA : error;
}

int LabelStore::Store(int fd, const Bytes& label) const {
  if (fsetxattr(fd, kLabelAttribute, label.data(), label.size(), 0) == 0) {
    RemoveEntry(fd);
    return 0;
  }
  const int obstacle = errno;
  if (!CannotHold(obstacle) || folder_.empty()) return obstacle;
  const int error = WriteEntry(fd, label);
  if (error == 0) fremovexattr(fd, kLabelAttribute);  // if it can: the entry counts all the same
  return error;
}

int LabelStore::Remove(int fd) const {
  Bytes label;
  const int present = Load(fd, label);
  if (fremovexattr(fd, kLabelAttribute) == 0 || errno == ENODATA) {
    RemoveEntry(fd);
    return present;
  }
  const int obstacle = errno;
  if (!CannotHold(obstacle)) return obstacle;
  if (present != 0) return present;
  if (folder_.empty()) return obstacle;
  return WriteEntry(fd, {});  // no bytes: the attribute does not count
}

int LabelStore::WriteEntry(int fd, const Bytes& label) const {
  const std::string entry = EntryOf(fd);
  if (entry.empty()) return ENOENT;
  std::error_code problem;
  std::filesystem::create_directories(folder_, problem);
  if (problem) return problem.value();
  // Renamed when it is whole: another process may read it now.
  const std::string draft = entry + "." + std::to_string(getpid());
  const int file = open(draft.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  if (file < 0) return errno;
  const bool isWritten =
      write(file, label.data(), label.size()) == static_cast<ssize_t>(label.size());
  int error = isWritten ? 0 : ENOSPC;
  close(file);
  if (error == 0 && rename(draft.c_str(), entry.c_str()) != 0) error = errno;
  if (error != 0) unlink(draft.c_str());
  return error;
}

void LabelStore::RemoveEntry(int fd) const {
  const std::string entry = EntryOf(fd);
  if (!entry.empty()) unlink(entry.c_str());
}

}  // namespace tarnsim
