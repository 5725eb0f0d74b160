// SPDX-License-Identifier: Apache-2.0

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include <quillon/tarn.h>

#include "integrity/label_owner.h"
#include "integrity/tarn_device.h"

namespace {

using Quill::CallTarnDevice;
using Quill::FindTarnInterface;
using Quill::LabelOwner;
using Quill::TarnErrnoCode;
using Quill::TarnInterface;
using Quill::TarnRequest;

constexpr useconds_t kPollInterval = 10'000;  // microseconds
constexpr int kMaxLabelDigits = 513;  // in the legacy text: 256 bytes, and an odd digit more

struct CloseFile {
  void operator()(FILE* file) const { fclose(file); }
};
using TextFile = std::unique_ptr<FILE, CloseFile>;

// Releasing leaves errno to the caller, as the kernel call left it.
struct FreePath {
  void operator()(char* path) const {
    const Quill::SavedErrno saved;
    free(path);
  }
};

TarnRequest TaskRequest(int pid) {
  TarnRequest request;
  request.target = pid == 0 ? getpid() : pid;
  return request;
}

// Opens a legacy text file of the task. Returns null when it cannot be opened or `pid` is negative.
TextFile OpenTaskFile(int pid, const char* name) {
  char path[256];
  const int length = pid == 0 ? snprintf(path, sizeof(path), "/proc/self/integrity/%s", name)
                              : snprintf(path, sizeof(path), "/proc/%d/integrity/%s", pid, name);
  if (pid < 0 || static_cast<size_t>(length) >= sizeof(path)) return nullptr;
  return TextFile(fopen(path, "r"));
}

uint32_t ReadDeviceIntegrity(int pid, uint32_t& value) {
  TarnRequest request = TaskRequest(pid);
  const uint32_t result = CallTarnDevice(Quill::kTarnIoctlReadIntegrity, request);
  if (result == TARN_OK) value = static_cast<uint32_t>(request.wordA);
  return result;
}

uint32_t ReadLegacyIntegrity(int pid, uint32_t& value) {
  const TextFile file = OpenTaskFile(pid, "value");
  unsigned int number;
  // NOLINTNEXTLINE(cert-err34-c): the kernel's text has the format of this conversion
  if (!file || fscanf(file.get(), "%x", &number) != 1) return TARN_FAILED;
  value = number;
  return TARN_OK;
}

uint32_t ReadDeviceLabel(int pid, TarnLabel** out) {
  if (pid < 0) return TARN_BAD_ARGUMENT;
  LabelOwner label(static_cast<TarnLabel*>(calloc(1, Quill::kTarnTaskLabelSize)));
  if (!label) return TARN_NO_MEMORY;

  TarnRequest request = TaskRequest(pid);
  request.wordA = reinterpret_cast<uintptr_t>(label.get());
  request.wordB = Quill::kTarnTaskLabelSize;
  const uint32_t result = CallTarnDevice(Quill::kTarnIoctlReadLabel, request);
  if (result == TarnErrnoCode(ENOENT)) {
    *out = nullptr;
    return TARN_OK;
  }
  if (result != TARN_OK) return result;
  if (label->length > Quill::kTarnTaskLabelSize - sizeof(TarnLabel)) return TARN_FAILED;
  *out = label.release();
  return TARN_OK;
}

uint32_t ReadLegacyLabel(int pid, TarnLabel** out) {
  const TextFile file = OpenTaskFile(pid, "label");
  if (!file) return TARN_FAILED;
  int digitCount;
  // NOLINTNEXTLINE(cert-err34-c): the kernel's text has the format of this conversion
  if (fscanf(file.get(), "%d", &digitCount) != 1) return TARN_BAD_ARGUMENT;
  if (digitCount < 0) {
    *out = nullptr;
    return TARN_OK;
  }
  if (digitCount > kMaxLabelDigits) return TARN_FAILED;

  const auto length = static_cast<uint16_t>(digitCount / 2);
  LabelOwner label(static_cast<TarnLabel*>(malloc(sizeof(TarnLabel) + length)));
  if (!label) return TARN_NO_MEMORY;
  label->length = length;
  for (uint16_t i = 0; i < length; ++i) {
    // NOLINTNEXTLINE(cert-err34-c): the kernel's text has the format of this conversion
    if (fscanf(file.get(), "%02hhx", &label->data[i]) != 1) return TARN_FAILED;
  }
  *out = label.release();
  return TARN_OK;
}

}  // namespace

uint32_t TarnTaskGetIntegrity(int pid, uint32_t* out) {
  return TarnTaskReadIntegrity(pid, TARN_WAIT, out);
}

uint32_t TarnTaskReadIntegrity(int pid, uint32_t wait, uint32_t* out) {
  const TarnInterface interface = FindTarnInterface();
  if (interface == TarnInterface::kNone) return TARN_NO_SUBSYSTEM;
  const bool onDevice = interface == TarnInterface::kDevice;
  if (out == nullptr || (onDevice && pid < 0)) return TARN_BAD_ARGUMENT;

  while (true) {
    const uint32_t result =
        onDevice ? ReadDeviceIntegrity(pid, *out) : ReadLegacyIntegrity(pid, *out);
    if (result != TARN_OK) return result;
    if (*out != TARN_INTEGRITY_PENDING || (wait & TARN_WAIT) == 0) return TARN_OK;
    usleep(kPollInterval);
  }
}

uint32_t TarnTaskGetIntegrityLabel(int pid, TarnLabel** out) {
  switch (FindTarnInterface()) {
    case TarnInterface::kDevice:
      return ReadDeviceLabel(pid, out);
    case TarnInterface::kLegacy:
      return ReadLegacyLabel(pid, out);
    case TarnInterface::kNone:
      break;
  }
  return TARN_NO_SUBSYSTEM;
}

uint32_t TarnGetResetFile(int pid, TarnResetFile** out) {
  if (FindTarnInterface() != TarnInterface::kDevice) return TARN_NO_SUBSYSTEM;
  if (pid < 0 || out == nullptr) return TARN_BAD_ARGUMENT;

  constexpr uint16_t kPathSize = sizeof(TarnResetFile::path);
  const std::unique_ptr<char, FreePath> path(static_cast<char*>(calloc(1, kPathSize)));
  if (!path) return TARN_NO_MEMORY;
  TarnRequest request = TaskRequest(pid);
  request.pointerC = reinterpret_cast<uintptr_t>(path.get());
  request.sizeD = kPathSize;
  const uint32_t result = CallTarnDevice(Quill::kTarnIoctlReadResetFile, request);
  if (result == TarnErrnoCode(ENOENT)) {
    *out = nullptr;
    return TARN_OK;
  }
  if (result != TARN_OK) return result;

  auto* record = static_cast<TarnResetFile*>(calloc(1, sizeof(TarnResetFile)));
  if (record == nullptr) return TARN_NO_MEMORY;
  record->wordA = request.wordA;
  record->wordB = request.wordB;
  record->pathLength = request.sizeD;
  // The kernel wrote past the buffer, or claims to have: the process's memory cannot be trusted.
  if (request.sizeD > kPathSize) abort();
  if (request.sizeD != 0) {
    memcpy(record->path, path.get(), strnlen(path.get(), request.sizeD - 1u));
  }
  *out = record;
  return TARN_OK;
}

void TarnResetFileFree(TarnResetFile* record) { free(record); }
