// SPDX-License-Identifier: Apache-2.0

#pragma once

// Client of Tarn, the kernel's file-integrity subsystem, in C99 and C++17. This header needs no
// other of the library.
//
// Tarn keeps an integrity value for every task. A task whose value is neither 0 nor 0xFFFFFFFF may
// attach integrity labels to files and edit labelled files. Every call looks for the kernel's
// interface anew: the device "/dev/task_integrity", or else the legacy one of fcntl commands and of
// text files below /proc. Nothing is kept between calls and nothing is logged; every function may
// be called from any thread. File descriptors are borrowed and stay open.
//
//   TarnExLabel* label;
//   uint32_t code = TarnExLabelAlloc(TARN_SHA1, digest, 20, NULL, 0, &label);
//   if (code == TARN_OK) {
//     code = TarnSignFd(fd, label);
//     TarnExLabelFree(label);
//   }

#include <stdint.h>

// Result codes. Besides these, a kernel call that failed with an errno gives that errno negated,
// with bit 31 set: 0xFFFFFFFB for EIO. EPERM is therefore the same code as TARN_CANNOT_OPEN. After
// both, errno is still what the failing call left.
#define TARN_OK UINT32_C(0)
// A missing pointer, a negative pid, an unsupported label type or size; also a legacy label file
// whose count cannot be read.
#define TARN_BAD_ARGUMENT UINT32_C(1)
#define TARN_NO_MEMORY UINT32_C(2)
// The calling task's integrity is 0 or 0xFFFFFFFF, so it may not sign or edit files.
#define TARN_NOT_ALLOWED UINT32_C(3)
// The file lies on a read-only file system.
#define TARN_READ_ONLY UINT32_C(4)
// The kernel has neither interface.
#define TARN_NO_SUBSYSTEM UINT32_C(5)
// The caller's integrity could not be read, a legacy text file could not be opened or parsed, or a
// label from the kernel was too long.
#define TARN_FAILED UINT32_C(0x10000)
// The device could not be opened.
#define TARN_CANNOT_OPEN UINT32_C(0xFFFFFFFF)

// Hash algorithms of extended labels, in the Linux kernel's numbering.
#define TARN_SHA1 UINT32_C(2)
#define TARN_SHA256 UINT32_C(4)
#define TARN_SHA512 UINT32_C(6)

// The integrity value of a task that the kernel is still measuring.
#define TARN_INTEGRITY_PENDING UINT32_C(0xFFFFFFFF)

// Bit of TarnTaskReadIntegrity: return once the value is no longer TARN_INTEGRITY_PENDING.
#define TARN_WAIT UINT32_C(1)

// Labels and records have the kernel's layout: little-endian, without padding. C++ takes an array
// without a size from C only as an extension.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wpedantic"

// Plain label.
typedef struct __attribute__((packed)) TarnLabel {
  uint16_t length;  // bytes of data
  uint8_t data[];   // whatever the label holds
} TarnLabel;

// Extended label, for signing files.
typedef struct __attribute__((packed)) TarnExLabel {
  uint16_t marker;       // 0xFFFF, where a plain label has its length
  uint8_t version;       // 2
  uint8_t reserved[2];   // 0
  uint8_t algorithm;     // TARN_SHA1, TARN_SHA256 or TARN_SHA512; tells the hash's length
  uint8_t hash[64];      // digest of the whole file, zeros behind it
  uint16_t extraLength;  // bytes of extra
  uint8_t extra[];       // data about the file's origin
} TarnExLabel;

// The file that made the kernel reset a task's integrity.
typedef struct __attribute__((packed)) TarnResetFile {
  uint64_t wordA;       // the kernel's own; passed on unread
  uint32_t wordB;       // the kernel's own; passed on unread
  uint16_t pathLength;  // as the kernel gave it
  char path[4096];      // at most pathLength - 1 characters of the path, and a terminating zero
} TarnResetFile;
#pragma GCC diagnostic pop

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

// Make a label in `*out`, which the caller releases with the matching Free. On failure `*out` is
// left alone. Free accepts null.

// `data` may be null when `length` is 0. TARN_BAD_ARGUMENT, TARN_NO_MEMORY.
uint32_t TarnLabelAlloc(const void* data, uint16_t length, TarnLabel** out);
void TarnLabelFree(TarnLabel* label);

// `hash` has 1 to 64 bytes; that their number suits `algorithm` is not checked. `extra` may be null
// when `extraLength` is 0. TARN_BAD_ARGUMENT, TARN_NO_MEMORY.
uint32_t TarnExLabelAlloc(uint32_t algorithm, const void* hash, uint16_t hashLength,
                          const void* extra, uint16_t extraLength, TarnExLabel** out);
void TarnExLabelFree(TarnExLabel* label);

// Commands on the file behind `fd`. Each returns TARN_OK, TARN_NO_SUBSYSTEM, TARN_CANNOT_OPEN or a
// failed kernel call's code; signing and editing also TARN_READ_ONLY, TARN_NOT_ALLOWED or, when the
// caller's integrity cannot be read (there may be no subsystem at all), TARN_FAILED. Signing and
// editing wait while the caller's integrity is TARN_INTEGRITY_PENDING. A file system is found
// read-only before that integrity is read.

// Attach `label`, a TarnExLabel or a TarnLabel, which stays the caller's; TARN_BAD_ARGUMENT when it
// is null. The three are the same.
uint32_t TarnSignFd(int fd, const void* label);
uint32_t TarnSignFdEx(int fd, const void* label);
uint32_t TarnSignFdCommon(int fd, const void* label);
// Opens a labelled file for editing.
uint32_t TarnEditFd(int fd);
// Has the kernel close its record of the file; can also return TARN_READ_ONLY.
uint32_t TarnCloseFd(int fd);
// Have the file verified against its label; the first form is the kernel's synchronous one.
uint32_t TarnVerifyFdSync(int fd);
uint32_t TarnVerifyFd(int fd);

// Questions about a task; a pid of 0 means the calling process. Besides the codes named, each
// returns TARN_NO_SUBSYSTEM, TARN_CANNOT_OPEN, TARN_FAILED on the legacy interface, or a failed
// kernel call's code. A negative pid is TARN_BAD_ARGUMENT on the device and TARN_FAILED on the
// legacy interface. On failure `*out` is left alone, except that
// TarnTaskReadIntegrity leaves the last value that it has read there.

// TarnTaskReadIntegrity with TARN_WAIT.
uint32_t TarnTaskGetIntegrity(int pid, uint32_t* out);
// Reads the task's integrity value. With TARN_WAIT in `wait` a value of TARN_INTEGRITY_PENDING is
// read again every 10 ms, without a limit; `*out` always holds the last value read.
// TARN_BAD_ARGUMENT when `out` is null.
uint32_t TarnTaskReadIntegrity(int pid, uint32_t wait, uint32_t* out);
// Reads the task's label into `*out`, which the caller releases with TarnLabelFree; null when the
// task has none. `out` must not be null. TARN_BAD_ARGUMENT, TARN_NO_MEMORY, TARN_FAILED.
uint32_t TarnTaskGetIntegrityLabel(int pid, TarnLabel** out);
// Reads which file made the kernel reset the task's integrity, into `*out`, which the caller
// releases with TarnResetFileFree; null when there is none. Only the device tells:
// TARN_NO_SUBSYSTEM on the legacy interface. TARN_BAD_ARGUMENT, TARN_NO_MEMORY. A path longer than
// the record ends the process.
uint32_t TarnGetResetFile(int pid, TarnResetFile** out);
// Accepts null.
void TarnResetFileFree(TarnResetFile* record);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif
