// SPDX-License-Identifier: Apache-2.0

#include "simulator/tarn_kernel.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <iterator>
#include <utility>

#include "simulator/label.h"
#include "util/text.h"

namespace tarnsim {
namespace {

// Copies a label from the program's memory. Its first bytes give its size.
bool CopyLabel(Machine& machine, uint64_t address, Bytes& label) {
  const auto copy = [&](size_t size) {
    label.resize(size);
    return machine.CopyIn(address, label.data(), size);
  };
  TarnLabel plain;
  if (!copy(sizeof(plain)) || !ReadFront(label, plain)) return false;
  if (plain.length != 0xFFFF) return copy(sizeof(plain) + plain.length);
  TarnExLabel extended;
  if (!copy(sizeof(extended)) || !ReadFront(label, extended)) return false;
  return copy(sizeof(extended) + extended.extraLength);
}

bool IsWellFormed(const Quill::TarnRequest& record) {
  return record.version == 1 && std::all_of(std::begin(record.reserved), std::end(record.reserved),
                                            [](uint8_t byte) { return byte == 0; });
}

// Formats an integrity value as the legacy value file shows it.
std::string ValueText(uint32_t value) {
  char text[16];
  snprintf(text, sizeof(text), "%x\n", value);
  return text;
}

// Formats a task's label as the legacy label file shows it: the number of digits, then the digits.
// -1 means no label.
std::string LabelText(const std::optional<Bytes>& label) {
  if (!label) return "-1\n";
  const size_t start = std::min(label->size(), sizeof(TarnLabel));
  const std::string digits = Quill::ToHex(label->data() + start, label->size() - start);
  return std::to_string(digits.size()) + "\n" + digits;
}

}  // namespace

TarnKernel::TarnKernel(KernelSetup setup, Machine& machine, Journal journal)
    : setup_(std::move(setup)), machine_(machine), journal_(std::move(journal)) {
  if (setup_.integrity.empty()) setup_.integrity = {0};
}

bool TarnKernel::LiesOnReadOnlyFs(int fd) const {
  const std::string path = machine_.PathOf(fd);
  return std::any_of(setup_.readOnly.begin(), setup_.readOnly.end(), [&](const std::string& top) {
    const size_t length = top.find_last_not_of('/') + 1;
    return path.compare(0, length, top, 0, length) == 0 &&
           (path.size() == length || path[length] == '/');
  });
}

int TarnKernel::Open(int flags) {
  const int refusal = setup_.interface == TarnInterface::kDevice ? 0 : ENOENT;
  if (nonce_) return refusal;
  Request request;
  request.call = Call::kOpen;
  request.interface = setup_.interface;
  request.flags = flags;
  const Answer answer = Decide(request, [refusal] { return refusal; });
  if (answer.error != 0) journal_(request);
  return answer.error;
}

Answer TarnKernel::Ioctl(uint32_t code, uint64_t address, int flags) {
  Request request;
  request.flags = flags;
  request.interface = setup_.interface;
  request.command = code;
  if (!CallByIoctl(code, request.call)) {
    const int refusal = HasIoctlNumber(code) ? EINVAL : ENOTTY;
    return DecideAndRecord(request, [refusal] { return refusal; });
  }

  Quill::TarnRequest record;
  if (!machine_.CopyIn(address, &record, sizeof(record))) {
    return DecideAndRecord(request, [] { return EFAULT; });
  }
  if (nonce_ && request.call == Call::kReadIntegrity) {
    record.wordA = *std::exchange(nonce_, std::nullopt);
    return {machine_.CopyOut(address, &record, sizeof(record)) ? 0 : -1, 0};
  }
  const auto* bytes = reinterpret_cast<const uint8_t*>(&record);
  request.record.assign(bytes, bytes + sizeof(record));
  request.target = record.target;
  if (SubjectOf(request.call) == Subject::kFile) return RunFileCommand(request, record);
  return RunTaskCommand(request, record, address);
}

Answer TarnKernel::Fcntl(int fd, int command, uint64_t argument) {
  Request request;
  request.interface = setup_.interface;
  request.command = static_cast<uint32_t>(command);
  request.argument = argument;
  request.target = fd;
  if (!CallByFcntl(command, request.call)) {
    return DecideAndRecord(request, [] { return EINVAL; });
  }
  Quill::TarnRequest record;
  record.wordA = argument;
  return RunFileCommand(request, record);
}

int TarnKernel::OpenText(Call call, int pid, int flags, std::string& text) {
  if (nonce_ && call == Call::kReadIntegrity && setup_.interface == TarnInterface::kLegacy) {
    text = ValueText(*std::exchange(nonce_, std::nullopt));
    return 0;
  }
  Request request;
  request.call = call;
  request.interface = setup_.interface;
  request.flags = flags;
  request.target = pid;
  const Answer answer = DecideAndRecord(request, [&] {
    if (setup_.interface != TarnInterface::kLegacy) return ENOENT;
    if (pid != 0 && !machine_.HasTask(pid)) return ENOENT;
    if (call == Call::kReadIntegrity) {
      request.integrity = ReadIntegrity();
      text = setup_.valueText.value_or(ValueText(*request.integrity));
    } else {
      request.label = setup_.taskLabel.value_or(Bytes());
      text = setup_.labelText.value_or(LabelText(setup_.taskLabel));
    }
    return 0;
  });
  return answer.error;
}

Answer TarnKernel::StoreCertificate(int fd, const char* identity, const uint8_t* data,
                                    size_t size) {
  Request request;
  request.call = Call::kCertificate;
  request.interface = setup_.interface;
  request.target = fd;
  request.file = machine_.PathOf(fd);
  request.identity = identity;
  request.certificate.assign(data, data + size);
  return DecideAndRecord(request, [] { return 0; });
}

// Counts the request. Answers with the fault that is due, or else applies the rule.
Answer TarnKernel::Decide(Request& request, const Rule& rule) {
  const auto now = std::chrono::steady_clock::now().time_since_epoch();
  request.time = std::chrono::duration_cast<std::chrono::microseconds>(now).count();
  const int number = ++counts_[request.call];
  const auto fault =
      std::find_if(setup_.faults.begin(), setup_.faults.end(), [&](const Fault& candidate) {
        return candidate.call == request.call && (candidate.nth == 0 || candidate.nth == number);
      });
  if (fault != setup_.faults.end()) {
    request.result = fault->result;
    request.error = fault->error;
  } else {
    request.error = rule();
    request.result = request.error == 0 ? 0 : -1;
  }
  return {request.result, request.error};
}

Answer TarnKernel::DecideAndRecord(Request& request, const Rule& rule) {
  const Answer answer = Decide(request, rule);
  journal_(request);
  return answer;
}

Answer TarnKernel::RunFileCommand(Request& request, Quill::TarnRequest& record) {
  request.file = machine_.PathOf(request.target);
  const bool hasLabel =
      request.call != Call::kSign || CopyLabel(machine_, record.wordA, request.label);
  if (!hasLabel) request.label.clear();
  return DecideAndRecord(request, [&] {
    if (!IsWellFormed(record)) return EINVAL;
    if (!hasLabel) return EFAULT;
    return request.file.empty() ? EBADF : CarryOut(request, record);
  });
}

Answer TarnKernel::RunTaskCommand(Request& request, Quill::TarnRequest& record, uint64_t address) {
  return DecideAndRecord(request, [&] {
    if (!IsWellFormed(record)) return EINVAL;
    if (!machine_.HasTask(record.target)) return ESRCH;
    if (const int error = CarryOut(request, record); error != 0) return error;
    return machine_.CopyOut(address, &record, sizeof(record)) ? 0 : EFAULT;
  });
}

int TarnKernel::CarryOut(Request& request, Quill::TarnRequest& record) {
  switch (request.call) {
    case Call::kReadIntegrity:
      request.integrity = ReadIntegrity();
      record.wordA = *request.integrity;
      return 0;
    case Call::kReadLabel:
      return ReadLabel(request, record);
    case Call::kReadResetFile:
      return ReadResetFile(record);
    case Call::kSign:
      return Sign(request);
    case Call::kEdit:
      return Edit(request);
    case Call::kClose:
      return 0;  // changes nothing here
    case Call::kVerifySync:
    case Call::kVerify:
      return Verify(request);
    case Call::kOpen:
    case Call::kCertificate:
    case Call::kUnknown:
      break;  // neither a request of the device nor an fcntl command
  }
  return EINVAL;
}

int TarnKernel::ReadLabel(Request& request, const Quill::TarnRequest& record) {
  if (record.wordB != Quill::kTarnTaskLabelSize) return EINVAL;
  if (!setup_.taskLabel) return ENOENT;
  request.label = *setup_.taskLabel;
  if (request.label.size() > Quill::kTarnTaskLabelSize) return ERANGE;
  return machine_.CopyOut(record.wordA, request.label.data(), request.label.size()) ? 0 : EFAULT;
}

int TarnKernel::ReadResetFile(Quill::TarnRequest& record) {
  if (record.sizeD != sizeof(TarnResetFile::path)) return EINVAL;
  if (!setup_.resetFile) return ENOENT;
  const ResetFile& reset = *setup_.resetFile;
  const size_t size = reset.path.size() + 1;
  if (size > record.sizeD) return ENAMETOOLONG;
  if (!machine_.CopyOut(record.pointerC, reset.path.c_str(), size)) return EFAULT;
  record.wordA = reset.wordA;
  record.wordB = reset.wordB;
  record.sizeD = reset.pathLength.value_or(static_cast<uint16_t>(size));
  return 0;
}

int TarnKernel::Sign(const Request& request) {
  if (!IsWellFormed(request.label)) return EINVAL;
  const int refusal = MayWrite(request);
  return refusal != 0 ? refusal : machine_.StoreLabel(request.target, request.label);
}

int TarnKernel::Edit(const Request& request) {
  if (const int refusal = MayWrite(request); refusal != 0) return refusal;
  const int error = machine_.RemoveLabel(request.target);
  return error == ENODATA ? 0 : error;
}

int TarnKernel::MayWrite(const Request& request) const {
  if (LiesOnReadOnlyFs(request.target)) return EROFS;
  const uint32_t integrity = setup_.integrity[integrityIndex_];
  return integrity == 0 || integrity == TARN_INTEGRITY_PENDING ? EPERM : 0;
}

int TarnKernel::Verify(const Request& request) {
  Bytes label;
  if (const int error = machine_.LoadLabel(request.target, label); error != 0) return error;
  if (!IsWellFormed(label)) return EBADMSG;
  TarnExLabel front;
  if (!IsExtended(label) || !ReadFront(label, front)) return 0;  // a plain label has no digest
  Bytes digest;
  if (const int error = machine_.Digest(request.target, front.algorithm, digest); error != 0) {
    return error;
  }
  return std::equal(digest.begin(), digest.end(), front.hash) ? 0 : EBADMSG;
}

uint32_t TarnKernel::ReadIntegrity() {
  if (integrityRead_ && integrityIndex_ + 1 < setup_.integrity.size()) ++integrityIndex_;
  integrityRead_ = true;
  return setup_.integrity[integrityIndex_];
}

}  // namespace tarnsim
