// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>

#include "integrity/tarn_abi.h"
#include "simulator/journal.h"
#include "simulator/kernel_setup.h"

namespace tarnsim {

// The parts of a machine that the kernel's rules work on. Functions that return an int return 0 or
// an errno.
class Machine {
 public:
  virtual ~Machine() = default;

  // Copy from and to the program's memory. Return false when a byte of it cannot be accessed.
  [[nodiscard]] virtual bool CopyIn(uint64_t address, void* out, size_t size) = 0;
  [[nodiscard]] virtual bool CopyOut(uint64_t address, const void* data, size_t size) = 0;

  [[nodiscard]] virtual bool HasTask(int pid) = 0;

  // Returns the path behind the descriptor; empty when it is not open.
  [[nodiscard]] virtual std::string PathOf(int fd) = 0;
  // Computes the digest of the whole file by a label's algorithm, such as TARN_SHA1.
  [[nodiscard]] virtual int Digest(int fd, uint32_t algorithm, Bytes& out) = 0;

  // The label of a file. Loading and removing return ENODATA when it has none.
  [[nodiscard]] virtual int LoadLabel(int fd, Bytes& out) = 0;
  [[nodiscard]] virtual int StoreLabel(int fd, const Bytes& label) = 0;
  [[nodiscard]] virtual int RemoveLabel(int fd) = 0;
};

// What a system call returns, and its errno; an `error` of 0 means that it sets none.
struct Answer {
  int result;
  int error;
};

// The integrity subsystem: its rules and its state, without system calls of its own.
// docs/simulator.md lists its errors under "Refusals".
class TarnKernel {
 public:
  using Journal = std::function<void(const Request&)>;

  // `machine` must outlive the kernel.
  TarnKernel(KernelSetup setup, Machine& machine, Journal journal);

  TarnInterface Interface() const { return setup_.interface; }
  bool LiesOnReadOnlyFs(int fd) const;

  // Answers the next read of a task's integrity with `nonce`, whatever the settings. That read, and
  // the opening of the device for it, are not counted, not recorded, and do not fail.
  void AnswerOnce(uint32_t nonce) { nonce_ = nonce; }

  // Opens the device with these flags of open(). Returns 0 or an errno.
  [[nodiscard]] int Open(int flags);
  // `flags`: those that the device was opened with.
  [[nodiscard]] Answer Ioctl(uint32_t code, uint64_t address, int flags);
  [[nodiscard]] Answer Fcntl(int fd, int command, uint64_t argument);
  // Opens a legacy text file: "value" for Call::kReadIntegrity, "label" for Call::kReadLabel.
  // Returns 0, with the file's text in `text`, or an errno. A pid of 0 is the caller.
  [[nodiscard]] int OpenText(Call call, int pid, int flags, std::string& text);
  // Answers HxNewCertificate.
  [[nodiscard]] Answer StoreCertificate(int fd, const char* identity, const uint8_t* data,
                                        size_t size);

 private:
  using Rule = std::function<int()>;

  Answer Decide(Request& request, const Rule& rule);
  Answer DecideAndRecord(Request& request, const Rule& rule);
  // Check the request, carry it out and record it. The reply about a task, `record`, is copied to
  // `address`; a reply about a file has no content.
  Answer RunFileCommand(Request& request, Quill::TarnRequest& record);
  Answer RunTaskCommand(Request& request, Quill::TarnRequest& record, uint64_t address);

  // The rules, one for each request. Return 0, with the reply in `record`, or an errno.
  int CarryOut(Request& request, Quill::TarnRequest& record);
  int ReadLabel(Request& request, const Quill::TarnRequest& record);
  int ReadResetFile(Quill::TarnRequest& record);
  int Sign(const Request& request);
  int Edit(const Request& request);
  int Verify(const Request& request);

  int MayWrite(const Request& request) const;
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
