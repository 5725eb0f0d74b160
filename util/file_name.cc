// SPDX-License-Identifier: Apache-2.0

#include <unistd.h>

#include <algorithm>
#include <array>

#include <quillon/file_name.h>

#include "util/text.h"

namespace {

constexpr std::string_view kAppFolder = "/data/app/";
constexpr std::string_view kTokenEnd = "==/";
constexpr size_t kTokenTail = 23;  // the "-" and the 22 characters of the token before its "=="

}  // namespace

std::string GetFilenameByFd(int fd) {
  const std::string link = "/proc/self/fd/" + std::to_string(fd);
  std::array<char, 4096> target;
  const ssize_t length = readlink(link.c_str(), target.data(), target.size());
  return length < 0 ? std::string() : std::string(target.data(), static_cast<size_t>(length));
}

std::string GetUnifyFilenameByPath(std::string_view path) {
  if (!Quill::StartsWith(path, kAppFolder)) return std::string(path);

  const size_t tokenEnd = path.rfind(kTokenEnd);
  // A smaller offset leaves no room for a token's tail.
  if (tokenEnd == std::string_view::npos || tokenEnd < kTokenTail) return std::string(path);

  const size_t nameEnd = tokenEnd - kTokenTail;
  const size_t outerToken = path.substr(0, nameEnd).find(kTokenEnd);
  const size_t nameStart = std::min(
      outerToken == std::string_view::npos ? kAppFolder.size() : outerToken + kTokenEnd.size(),
      nameEnd);

  std::string name(path.substr(nameStart, nameEnd - nameStart));
  name += path.substr(tokenEnd + 2);
  return name;
}

std::string GetUnifyFilenameByFd(int fd) { return GetUnifyFilenameByPath(GetFilenameByFd(fd)); }
