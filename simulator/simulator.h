// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <quillon/export.h>

#include "integrity/tarn_device.h"

// libtarnsim.so puts a simulated kernel integrity subsystem between a program and the C library:
// the device node or the legacy interface, with its rules, its labels and its refusals. A test that
// is linked with it sets it up by a Simulation; outside of one everything goes to the machine. A
// program that it is preloaded into is set up by environment variables; docs/simulator.md lists
// them.

namespace tarnsim {

using Bytes = std::vector<uint8_t>;
using Quill::TarnInterface;

// What the kernel, or libhx.so, can be asked.
enum class Call {
  kOpen,  // the device node
  kReadIntegrity,
  kReadLabel,
  kReadResetFile,
  kSign,
  kEdit,
  kClose,
  kVerifySync,
  kVerify,
  kCertificate,
  kUnknown,  // a request that the device does not know
};

// Answers the `nth` request of its kind since the start, counted from 1, or each when `nth` is 0,
// with this result and errno instead of carrying it out. For an open only `error` counts.
struct Fault {
  Call call;
  int nth;
  int error;
  int result = -1;
};

struct ResetFile {
  uint64_t wordA = 0;
  uint32_t wordB = 0;
  std::string path;
  // What the reply says; the path's length with its terminating zero when not given.
  std::optional<uint16_t> pathLength;
};

// The kernel at the start. It never checks what it is made to say: labels and lengths can be wrong.
struct KernelSetup {
  TarnInterface interface = TarnInterface::kDevice;
  // What successive readings of a task's integrity see; the last one stays. Signing and editing go
  // by the value read last, at first by the first. All tasks are alike.
  std::vector<uint32_t> integrity = {1};
  std::optional<Bytes> taskLabel;  // a whole TarnLabel, at most 258 bytes
  std::optional<ResetFile> resetFile;
  // Files and folders with all below them that lie on read-only file systems.
  std::vector<std::string> readOnly;
  std::vector<Fault> faults;
  // What the legacy files hold instead of the integrity and the label above.
  std::optional<std::string> valueText;
  std::optional<std::string> labelText;
  // Labels that files have already, by open descriptor.
  std::vector<std::pair<int, Bytes>> labels;
  // Keep labels in the extended attribute "user.tarn.label" of the files instead of in memory.
  bool labelsInFiles = false;
};

// A request with its outcome. Successful opens are not kept: the device is opened for one request.
struct Request {
  Call call = Call::kUnknown;
  TarnInterface interface = TarnInterface::kNone;
  uint32_t command = 0;   // ioctl code or fcntl command; 0 for text files and certificates
  Bytes record;           // the device's record as it was sent
  uint64_t argument = 0;  // of the fcntl
  int target = 0;         // file descriptor, or pid with 0 for the caller's own text files
  std::string file;       // the path behind the descriptor
  Bytes label;            // the label signed with, or the task's
  std::optional<uint32_t> integrity;
  std::string identity;  // of a certificate
  Bytes certificate;
  int result = 0;
  int error = 0;  // errno
};

// The call's name in journals and settings, such as "verify-sync".
QUILLON_EXPORT const char* NameOf(Call call);

// One line of JSON, without a line break: "request", "interface", "command", "fd" and "file" or
// "pid", "label" decoded, "integrity", "identity" and "certificate", "result" and "errno".
QUILLON_EXPORT std::string ToJson(const Request& request);

// Has the next reading of a task's integrity answered with `nonce` and not recorded. False when
// nothing is simulated. A program that must not reach the real kernel looks this function up in the
// running process, and then asks.
extern "C" QUILLON_EXPORT bool TarnsimAnswerOnce(uint32_t nonce);

// Simulates while it lives. One at a time; its threads may use the kernel at once.
class QUILLON_EXPORT Simulation {
 public:
  explicit Simulation(const KernelSetup& setup = {});
  Simulation(const Simulation&) = delete;
  Simulation& operator=(const Simulation&) = delete;
  ~Simulation();

  // The requests since the start or the last call, in order.
  std::vector<Request> TakeJournal();
  // The label of the file behind `fd`; empty when it has none.
  Bytes LabelOf(int fd);

 private:
  std::vector<Request> journal_;
};

}  // namespace tarnsim
