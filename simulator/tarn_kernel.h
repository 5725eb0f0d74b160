// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>

#include "integrity/tarn_abi.h"
#include "simulator/simulator.h"

namespace tarnsim {

// What the kernel's rules need of the machine. Functions that return an int return 0 or an errno.
class Machine {
 public:
  virtual ~Machine() = default;

  // Copy from and to the program's memory; false when a byte of it cannot be accessed.
  virtual bool CopyIn(uint64_t address, void* out, size_t size) = 0;
  virtual bool CopyOut(uint64_t address, const void* data, size_t size) = 0;

  virtual bool HasTask(int pid) = 0;

  // Empty when the descriptor is not open.
  virtual std::string PathOf(int fd) = 0;
  // The digest of the whole file by the label's algorithm, TARN_SHA1 and so on.
  virtual int Digest(int fd, uint32_t algorithm, Bytes& out) = 0;

  // A file's label; ENODATA when it has none.
  virtual int LoadLabel(int fd, Bytes& out) = 0;
  virtual int StoreLabel(int fd, const Bytes& label) = 0;
  virtual int RemoveLabel(int fd) = 0;
};

// Bytes of a label's digest; 0 for an algorithm that no label may name.
size_t DigestSize(uint32_t algorithm);

// The call that NameOf names so; false when there is none.
bool CallByName(const std::string& name, Call& call);

struct Answer {
  int result;
  int error;
};

// The integrity subsystem: its rules and its state, without a system call. Refusals:
//
//   EFAULT     the record, the label or a buffer is not the caller's memory
//   EINVAL     wrong record size, version, reserved bytes or buffer size; malformed label
//   ENOTTY     no request of this device
//   EBADF      the target is no open descriptor
//   ESRCH      no such task
//   ENOENT     the task has no label, or nothing reset its integrity; on the legacy interface: no
//   such
//              file
//   EROFS      signing or editing on a read-only file system
//   EPERM      signing or editing by a task whose integrity is 0 or 0xFFFFFFFF
//   ENODATA    verifying a file without a label
//   EBADMSG    verifying a file that is not the one labelled
class TarnKernel {
 public:
  using Journal = std::function<void(const Request&)>;

  // `machine` must outlive the kernel.
  TarnKernel(KernelSetup setup, Machine& machine, Journal journal);

  TarnInterface Interface() const { return setup_.interface; }
  bool LiesOnReadOnlyFs(int fd) const;

  // Has the next reading of a task's integrity answered with `nonce`, beside all settings: neither
  // it nor the opening of the device for it is counted, recorded or made to fail.
  void AnswerOnce(uint32_t nonce) { nonce_ = nonce; }

  // Opens the device; 0 or an errno.
  int Open();
  Answer Ioctl(uint32_t code, uint64_t address);
  Answer Fcntl(int fd, int command, uint64_t argument);
  // Opens a legacy text file, "value" or "label" by `call`; 0 or an errno. A pid of 0 is the
  // caller.
  int OpenText(Call call, int pid, std::string& text);
  int StoreCertificate(int fd, const char* identity, const uint8_t* data, size_t size);

 private:
  using Rule = std::function<int()>;

  Answer Decide(Request& request, const Rule& rule);
  Answer DecideAndRecord(Request& request, const Rule& rule);
  Answer RunFileCommand(Request& request, uint64_t labelAddress, const Rule& check);
  int CarryOutFileCommand(const Request& request);
  int CarryOutTaskCommand(Request& request, uint64_t address, Quill::TarnRequest& record);
  int MayWrite(const Request& request) const;
  int Verify(const Request& request);
  uint32_t ReadIntegrity();

  KernelSetup setup_;
  Machine& machine_;
  Journal journal_;
  size_t integrityIndex_ = 0;
  bool integrityRead_ = false;
  std::optional<uint32_t> nonce_;
  std::map<Call, int> counts_;
};

}  // namespace tarnsim
