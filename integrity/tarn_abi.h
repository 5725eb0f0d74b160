// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <sys/ioctl.h>

#include <cstddef>
#include <cstdint>

#include <quillon/tarn.h>

// The kernel interface of Tarn, besides the labels in <quillon/tarn.h>: the device's requests, and
// the commands and text files of the legacy interface.

namespace Quill {

constexpr char kTarnDevice[] = "/dev/task_integrity";
constexpr char kTarnLegacyValue[] = "/proc/self/integrity/value";

// A request to the device and its reply: one layout for all requests, little-endian. Fields that a
// request does not use are sent as zero.
struct __attribute__((packed)) TarnRequest {
  uint32_t version = 1;
  int32_t target = 0;  // file descriptor or pid
  uint8_t reserved[8] = {};
  uint64_t wordA = 0;  // address of a label, or a value in the reply
  uint32_t wordB = 0;
  uint64_t pointerC = 0;  // address of the path buffer
  uint16_t sizeD = 0;     // bytes in the path buffer, or of the path in the reply
};
static_assert(sizeof(TarnRequest) == 38);
static_assert(offsetof(TarnRequest, target) == 4);
static_assert(offsetof(TarnRequest, reserved) == 8);
static_assert(offsetof(TarnRequest, wordA) == 16);
static_assert(offsetof(TarnRequest, wordB) == 24);
static_assert(offsetof(TarnRequest, pointerC) == 28);
static_assert(offsetof(TarnRequest, sizeD) == 36);

constexpr unsigned kTarnIoctlType = 0x66;

// Builds a request code. Unsigned, unlike _IOWR, because the platform overloads ioctl on the type.
constexpr unsigned TarnIoctl(unsigned number) {
  return static_cast<unsigned>(
      _IOC(_IOC_READ | _IOC_WRITE, kTarnIoctlType, number, sizeof(TarnRequest)));
}
constexpr unsigned kTarnIoctlReadIntegrity = TarnIoctl(1);  // A: the value
constexpr unsigned kTarnIoctlReadLabel = TarnIoctl(2);      // A: address of a buffer; B: its size
constexpr unsigned kTarnIoctlReadResetFile = TarnIoctl(3);  // C, D: path buffer; A, B: passed on
constexpr unsigned kTarnIoctlSign = TarnIoctl(4);           // A: address of the label
constexpr unsigned kTarnIoctlEdit = TarnIoctl(5);
constexpr unsigned kTarnIoctlClose = TarnIoctl(6);
constexpr unsigned kTarnIoctlVerifySync = TarnIoctl(7);
constexpr unsigned kTarnIoctlVerify = TarnIoctl(8);
static_assert(kTarnIoctlReadIntegrity == 0xC0266601);
static_assert(kTarnIoctlReadLabel == 0xC0266602);
static_assert(kTarnIoctlReadResetFile == 0xC0266603);
static_assert(kTarnIoctlSign == 0xC0266604);
static_assert(kTarnIoctlEdit == 0xC0266605);
static_assert(kTarnIoctlClose == 0xC0266606);
static_assert(kTarnIoctlVerifySync == 0xC0266607);
static_assert(kTarnIoctlVerify == 0xC0266608);

// Legacy fcntl commands, issued on the file itself. The argument is the label's address for signing
// and 0 for the others. 1127 is not used.
constexpr int kTarnFcntlSign = 1124;
constexpr int kTarnFcntlVerify = 1125;
constexpr int kTarnFcntlVerifySync = 1126;
constexpr int kTarnFcntlEdit = 1128;
constexpr int kTarnFcntlClose = 1129;
constexpr int kTarnFcntlFirst = kTarnFcntlSign;
constexpr int kTarnFcntlLast = kTarnFcntlClose;

// Size in bytes of the buffer for a task's label: a TarnLabel with at most 256 bytes of data.
constexpr uint16_t kTarnTaskLabelSize = 258;

static_assert(sizeof(TarnLabel) == 2);
static_assert(offsetof(TarnLabel, data) == 2);
static_assert(sizeof(TarnExLabel) == 72);
static_assert(offsetof(TarnExLabel, version) == 2);
static_assert(offsetof(TarnExLabel, reserved) == 3);
static_assert(offsetof(TarnExLabel, algorithm) == 5);
static_assert(offsetof(TarnExLabel, hash) == 6);
static_assert(offsetof(TarnExLabel, extraLength) == 70);
static_assert(offsetof(TarnExLabel, extra) == 72);
static_assert(sizeof(TarnResetFile) == 4110);
static_assert(offsetof(TarnResetFile, wordB) == 8);
static_assert(offsetof(TarnResetFile, pathLength) == 12);
static_assert(offsetof(TarnResetFile, path) == 14);

}  // namespace Quill
