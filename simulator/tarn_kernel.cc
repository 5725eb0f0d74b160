// SPDX-License-Identifier: Apache-2.0

#include "simulator/tarn_kernel.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

namespace tarnsim {
namespace {

struct CallInfo {
  Call call;
  const char* name;
  uint32_t ioctlCode;
  int fcntlCommand;
};

constexpr CallInfo kCalls[] = {
    {Call::kOpen, "open", 0, 0},
    {Call::kReadIntegrity, "read-integrity", Quill::kTarnIoctlReadIntegrity, 0},
    {Call::kReadLabel, "read-label", Quill::kTarnIoctlReadLabel, 0},
    {Call::kReadResetFile, "read-reset-file", Quill::kTarnIoctlReadResetFile, 0},
    {Call::kSign, "sign", Quill::kTarnIoctlSign, Quill::kTarnFcntlSign},
    {Call::kEdit, "edit", Quill::kTarnIoctlEdit, Quill::kTarnFcntlEdit},
    {Call::kClose, "close", Quill::kTarnIoctlClose, Quill::kTarnFcntlClose},
    {Call::kVerifySync, "verify-sync", Quill::kTarnIoctlVerifySync, Quill::kTarnFcntlVerifySync},
    {Call::kVerify, "verify", Quill::kTarnIoctlVerify, Quill::kTarnFcntlVerify},
    {Call::kCertificate, "certificate", 0, 0},
    {Call::kUnknown, "unknown", 0, 0},
};

template <typename Matches>
const CallInfo* FindCall(Matches matches) {
  const auto* const found = std::find_if(std::begin(kCalls), std::end(kCalls), matches);
  return found == std::end(kCalls) ? nullptr : found;
}

template <typename Record>
bool ReadFront(const Bytes& bytes, Record& record) {
  if (bytes.size() < sizeof(record)) return false;
  memcpy(&record, bytes.data(), sizeof(record));
  return true;
}

bool IsExtended(const Bytes& label) {
  TarnLabel start;
  return ReadFront(label, start) && start.length == 0xFFFF;
}

bool IsWellFormed(const Bytes& label) {
  if (!IsExtended(label)) return true;
  TarnExLabel front;
  if (!ReadFront(label, front)) return false;
  const size_t digestSize = DigestSize(front.algorithm);
  return front.version == 2 && front.reserved[0] == 0 && front.reserved[1] == 0 &&
         digestSize != 0 &&
         std::all_of(front.hash + digestSize, std::end(front.hash),
                     [](uint8_t byte) { return byte == 0; });
}

// A label's first bytes tell how many follow.
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

}  // namespace

size_t DigestSize(uint32_t algorithm) {
  switch (algorithm) {
    case TARN_SHA1:
      return 20;
    case TARN_SHA256:
      return 32;
    case TARN_SHA512:
      return 64;
    default:
      return 0;
  }
}

const char* NameOf(Call call) {
  return FindCall([call](const CallInfo& info) { return info.call == call; })->name;
}

bool CallByName(const std::string& name, Call& call) {
  const CallInfo* info = FindCall([&name](const CallInfo& known) { return name == known.name; });
  if (info != nullptr) call = info->call;
  return info != nullptr;
}

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

int TarnKernel::Open() {
  const int refusal = setup_.interface == TarnInterface::kDevice ? 0 : ENOENT;
  if (nonce_) return refusal;
  Request request;
  request.call = Call::kOpen;
  request.interface = setup_.interface;
  const Answer answer = Decide(request, [refusal] { return refusal; });
  if (answer.error != 0) journal_(request);
  return answer.error;
}

Answer TarnKernel::Ioctl(uint32_t code, uint64_t address) {
  Request request;
  request.interface = setup_.interface;
  request.command = code;
  const CallInfo* info = FindCall(
      [code](const CallInfo& known) { return known.ioctlCode != 0 && known.ioctlCode == code; });
  if (info == nullptr) {
    const unsigned number = _IOC_NR(code);
    const bool isOurs = _IOC_TYPE(code) == 0x66 && number >= 1 && number <= 8;
    return DecideAndRecord(request, [isOurs] { return isOurs ? EINVAL : ENOTTY; });
  }
  request.call = info->call;

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
  const auto check = [&record] {
    const auto& reserved = record.reserved;
    const bool isZero = std::all_of(std::begin(reserved), std::end(reserved),
                                    [](uint8_t byte) { return byte == 0; });
    return record.version == 1 && isZero ? 0 : EINVAL;
  };
  if (info->fcntlCommand != 0) return RunFileCommand(request, record.wordA, check);
  return DecideAndRecord(request, [&] {
    const int refusal = check();
    return refusal != 0 ? refusal : CarryOutTaskCommand(request, address, record);
  });
}

Answer TarnKernel::Fcntl(int fd, int command, uint64_t argument) {
  Request request;
  request.interface = setup_.interface;
  request.command = static_cast<uint32_t>(command);
  request.argument = argument;
  request.target = fd;
  const CallInfo* info = FindCall([command](const CallInfo& known) {
    return known.fcntlCommand != 0 && known.fcntlCommand == command;
  });
  if (info == nullptr) return DecideAndRecord(request, [] { return EINVAL; });
  request.call = info->call;
  return RunFileCommand(request, argument, [] { return 0; });
}

int TarnKernel::OpenText(Call call, int pid, std::string& text) {
  char number[16];
  if (nonce_ && call == Call::kReadIntegrity && setup_.interface == TarnInterface::kLegacy) {
    snprintf(number, sizeof(number), "%x\n", *std::exchange(nonce_, std::nullopt));
    text = number;
    return 0;
  }
  Request request;
  request.call = call;
  request.interface = setup_.interface;
  request.target = pid;
  const Answer answer = DecideAndRecord(request, [&] {
    if (setup_.interface != TarnInterface::kLegacy) return ENOENT;
    if (pid != 0 && !machine_.HasTask(pid)) return ENOENT;
    if (call == Call::kReadIntegrity) {
      request.integrity = ReadIntegrity();
      snprintf(number, sizeof(number), "%x\n", *request.integrity);
      text = setup_.valueText.value_or(number);
      return 0;
    }
    // The count of digits, then the digits; -1 stands for no label.
    std::string digits = "-1\n";
    if (setup_.taskLabel) {
      request.label = *setup_.taskLabel;
      const size_t length = std::max(request.label.size(), sizeof(TarnLabel)) - sizeof(TarnLabel);
      digits = std::to_string(2 * length) + "\n";
      for (size_t i = sizeof(TarnLabel); i < request.label.size(); ++i) {
        snprintf(number, sizeof(number), "%02x", static_cast<unsigned>(request.label[i]));
        digits += number;
      }
    }
    text = setup_.labelText.value_or(digits);
    return 0;
  });
  return answer.error;
}

int TarnKernel::StoreCertificate(int fd, const char* identity, const uint8_t* data, size_t size) {
  Request request;
  request.call = Call::kCertificate;
  request.interface = setup_.interface;
  request.target = fd;
  request.file = machine_.PathOf(fd);
  request.identity = identity;
  request.certificate.assign(data, data + size);
  return DecideAndRecord(request, [] { return 0; }).result;
}

// Counts the request and applies the rule, unless a fault is due.
Answer TarnKernel::Decide(Request& request, const Rule& rule) {
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

Answer TarnKernel::RunFileCommand(Request& request, uint64_t labelAddress, const Rule& check) {
  request.file = machine_.PathOf(request.target);
  const bool hasLabel =
      request.call != Call::kSign || CopyLabel(machine_, labelAddress, request.label);
  if (!hasLabel) request.label.clear();
  return DecideAndRecord(request, [&] {
    if (const int refusal = check(); refusal != 0) return refusal;
    if (!hasLabel) return EFAULT;
    return request.file.empty() ? EBADF : CarryOutFileCommand(request);
  });
}

int TarnKernel::CarryOutFileCommand(const Request& request) {
  switch (request.call) {
    case Call::kSign: {
      if (!IsWellFormed(request.label)) return EINVAL;
      const int refusal = MayWrite(request);
      return refusal != 0 ? refusal : machine_.StoreLabel(request.target, request.label);
    }
    case Call::kEdit: {
      if (const int refusal = MayWrite(request); refusal != 0) return refusal;
      const int error = machine_.RemoveLabel(request.target);
      return error == ENODATA ? 0 : error;
    }
    case Call::kVerify:
    case Call::kVerifySync:
      return Verify(request);
    default:
      return 0;  // closing leaves nothing to do
  }
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

int TarnKernel::CarryOutTaskCommand(Request& request, uint64_t address,
                                    Quill::TarnRequest& record) {
  if (!machine_.HasTask(record.target)) return ESRCH;
  switch (request.call) {
    case Call::kReadIntegrity:
      request.integrity = ReadIntegrity();
      record.wordA = *request.integrity;
      break;
    case Call::kReadLabel:
      if (record.wordB != Quill::kTarnTaskLabelSize) return EINVAL;
      if (!setup_.taskLabel) return ENOENT;
      request.label = *setup_.taskLabel;
      if (request.label.size() > Quill::kTarnTaskLabelSize) return ERANGE;
      if (!machine_.CopyOut(record.wordA, request.label.data(), request.label.size())) {
        return EFAULT;
      }
      break;
    default: {
      if (record.sizeD != sizeof(TarnResetFile::path)) return EINVAL;
      if (!setup_.resetFile) return ENOENT;
      const ResetFile& reset = *setup_.resetFile;
      const size_t size = reset.path.size() + 1;
      if (size > record.sizeD) return ENAMETOOLONG;
      if (!machine_.CopyOut(record.pointerC, reset.path.c_str(), size)) return EFAULT;
      record.wordA = reset.wordA;
      record.wordB = reset.wordB;
      record.sizeD = reset.pathLength.value_or(static_cast<uint16_t>(size));
    }
  }
  return machine_.CopyOut(address, &record, sizeof(record)) ? 0 : EFAULT;
}

uint32_t TarnKernel::ReadIntegrity() {
  if (integrityRead_ && integrityIndex_ + 1 < setup_.integrity.size()) ++integrityIndex_;
  integrityRead_ = true;
  return setup_.integrity[integrityIndex_];
}

}  // namespace tarnsim
