// SPDX-License-Identifier: Apache-2.0

#pragma once

// Client of Tarn, the kernel's file-integrity subsystem, for C99 and C++17. This header includes no
// other header of the library.
//
// Tarn keeps an integrity value for every task. A task whose value is neither 0 nor 0xFFFFFFFF may
// attach integrity labels to files and edit labelled files. Every call looks for the kernel's
// interface again: first for the device "/dev/task_integrity", then for the legacy interface, which
// consists of fcntl commands and of text files below /proc. The functions keep no state, log
// nothing, and may be called from any thread. File descriptors are borrowed and stay open.
//
//   TarnExLabel* label;
//   uint32_t code = TarnExLabelAlloc(TARN_SHA1, digest, 20, NULL, 0, &label);
//   if (code == TARN_OK) {
//     code = TarnSignFd(fd, label);
//     TarnExLabelFree(label);
//   }

#include <stdint.h>

// Result codes. When a kernel call fails with an errno, the code is that errno negated, with bit 31
// set: 0xFFFFFFFB for EIO. So EPERM has the same code as TARN_CANNOT_OPEN. After these two kinds of
// failure errno is what the failing call left.
#define TARN_OK UINT32_C(0)
// A null pointer, a negative pid, or an unsupported algorithm or hash length; also a legacy label
// file that does not start with a number.
#define TARN_BAD_ARGUMENT UINT32_C(1)
#define TARN_NO_MEMORY UINT32_C(2)
// The calling task's integrity is 0 or 0xFFFFFFFF, so it may not sign or edit files.
#define TARN_NOT_ALLOWED UINT32_C(3)
// The file is on a read-only file system.
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

// Flag for TarnTaskReadIntegrity: wait while the value is TARN_INTEGRITY_PENDING.
#define TARN_WAIT UINT32_C(1)

// Labels and records have the kernel's layout: little-endian, without padding. In C++ an array
// without a size is an extension, which -Wpedantic reports.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wpedantic"

// Plain label.
typedef struct __attribute__((packed)) TarnLabel {
  uint16_t length;  // bytes of data
  uint8_t data[];   // not interpreted
} TarnLabel;

// Extended label, for signing files.
typedef struct __attribute__((packed)) TarnExLabel {
  uint16_t marker;       // 0xFFFF, in the place of a plain label's length
  uint8_t version;       // 2
  uint8_t reserved[2];   // 0
  uint8_t algorithm;     // TARN_SHA1, TARN_SHA256 or TARN_SHA512; gives the length of the digest
  uint8_t hash[64];      // digest of the whole file, then zeros
  uint16_t extraLength;  // bytes of extra
  uint8_t extra[];       // data about the file's origin
} TarnExLabel;

// Record of the file that made the kernel reset a task's integrity.
typedef struct __attribute__((packed)) TarnResetFile {
  uint64_t wordA;       // from the kernel, not interpreted
  uint32_t wordB;       // from the kernel, not interpreted
  uint16_t pathLength;  // as the kernel reported it
  char path[4096];      // at most pathLength - 1 characters of the path, NUL-terminated
} TarnResetFile;
#pragma GCC diagnostic pop

#ifdef __cplusplus
// C++ compilers warn when such a result is ignored.
#define TARN_NODISCARD [[nodiscard]]
extern "C" {
#else
#define TARN_NODISCARD
#endif
#pragma GCC visibility push(default)

// The Alloc functions store a new label in `*out`; the caller releases it with the matching Free.
// On failure they leave `*out` unchanged. The Free functions accept null.

// `data` may be null when `length` is 0. Fails with TARN_BAD_ARGUMENT or TARN_NO_MEMORY.
TARN_NODISCARD uint32_t TarnLabelAlloc(const void* data, uint16_t length, TarnLabel** out);
void TarnLabelFree(TarnLabel* label);

// `hashLength` is 1 to 64 bytes; whether it suits `algorithm` is not checked. `extra` may be null
// when `extraLength` is 0. Fails with TARN_BAD_ARGUMENT or TARN_NO_MEMORY.
TARN_NODISCARD uint32_t TarnExLabelAlloc(uint32_t algorithm, const void* hash, uint16_t hashLength,
                                         const void* extra, uint16_t extraLength,
                                         TarnExLabel** out);
void TarnExLabelFree(TarnExLabel* label);

// Commands on the file behind `fd`. Each returns TARN_OK, TARN_NO_SUBSYSTEM, TARN_CANNOT_OPEN or
// the code of a failed kernel call.
//
// Signing and editing need a writable file system (else TARN_READ_ONLY) and then a caller with
// sufficient integrity (else TARN_NOT_ALLOWED). They wait while the caller's integrity is
// TARN_INTEGRITY_PENDING, and return TARN_FAILED when it cannot be read, for example because there
// is no subsystem.

// Attaches `label`, a TarnExLabel or a TarnLabel, which the caller keeps. TARN_BAD_ARGUMENT when it
// is null. The three functions do the same.
TARN_NODISCARD uint32_t TarnSignFd(int fd, const void* label);
TARN_NODISCARD uint32_t TarnSignFdEx(int fd, const void* label);
TARN_NODISCARD uint32_t TarnSignFdCommon(int fd, const void* label);
// Opens a labelled file for editing.
TARN_NODISCARD uint32_t TarnEditFd(int fd);
// Makes the kernel close its record of the file. Can also return TARN_READ_ONLY. The result may be
// ignored.
uint32_t TarnCloseFd(int fd);
// Make the kernel verify the file against its label; the first is the kernel's synchronous request.
TARN_NODISCARD uint32_t TarnVerifyFdSync(int fd);
TARN_NODISCARD uint32_t TarnVerifyFd(int fd);

// Queries about a task; a pid of 0 is the calling process. Besides the codes named below, each can
// return TARN_NO_SUBSYSTEM, TARN_CANNOT_OPEN, the code of a failed kernel call, or, on the legacy
// interface, TARN_FAILED. A negative pid is TARN_BAD_ARGUMENT on the device and TARN_FAILED on the
// legacy interface. On failure `*out` is unchanged, except that TarnTaskReadIntegrity leaves the
// last value that it read there.

// The same as TarnTaskReadIntegrity with TARN_WAIT.
TARN_NODISCARD uint32_t TarnTaskGetIntegrity(int pid, uint32_t* out);
// Reads the task's integrity value into `*out`. With TARN_WAIT in `wait` it reads the value again
// every 10 ms, without a limit, while it is TARN_INTEGRITY_PENDING. TARN_BAD_ARGUMENT when `out` is
// null.
TARN_NODISCARD uint32_t TarnTaskReadIntegrity(int pid, uint32_t wait, uint32_t* out);
// Reads the task's label into `*out`; the caller releases it with TarnLabelFree. Null when the task
// has none. `out` must not be null. Can return TARN_BAD_ARGUMENT, TARN_NO_MEMORY and TARN_FAILED.
TARN_NODISCARD uint32_t TarnTaskGetIntegrityLabel(int pid, TarnLabel** out);
// Reads which file made the kernel reset the task's integrity into `*out`; the caller releases it
// with TarnResetFileFree. Null when there is none. The legacy interface does not have this query:
// TARN_NO_SUBSYSTEM. Can return TARN_BAD_ARGUMENT and TARN_NO_MEMORY. Ends the process when the
// kernel reports a path that is longer than the record.
TARN_NODISCARD uint32_t TarnGetResetFile(int pid, TarnResetFile** out);
// Accepts null.
void TarnResetFileFree(TarnResetFile* record);

#pragma GCC visibility pop
#undef TARN_NODISCARD
#ifdef __cplusplus
}
#endif
