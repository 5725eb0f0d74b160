// SPDX-License-Identifier: Apache-2.0

#include "simulator/call.h"

#include <algorithm>
#include <iterator>

#include "integrity/tarn_abi.h"

namespace tarnsim {
namespace {

struct CallInfo {
  Call call;
  const char* name;
  Subject subject;
  uint32_t ioctlCode;  // 0 for none
  int fcntlCommand;    // 0 for none
};

// In the order of Call.
constexpr CallInfo kCalls[] = {
    {Call::kOpen, "open", Subject::kNone, 0, 0},
    {Call::kReadIntegrity, "read-integrity", Subject::kTask, Quill::kTarnIoctlReadIntegrity, 0},
    {Call::kReadLabel, "read-label", Subject::kTask, Quill::kTarnIoctlReadLabel, 0},
    {Call::kReadResetFile, "read-reset-file", Subject::kTask, Quill::kTarnIoctlReadResetFile, 0},
    {Call::kSign, "sign", Subject::kFile, Quill::kTarnIoctlSign, Quill::kTarnFcntlSign},
    {Call::kEdit, "edit", Subject::kFile, Quill::kTarnIoctlEdit, Quill::kTarnFcntlEdit},
    {Call::kClose, "close", Subject::kFile, Quill::kTarnIoctlClose, Quill::kTarnFcntlClose},
    {Call::kVerifySync, "verify-sync", Subject::kFile, Quill::kTarnIoctlVerifySync,
     Quill::kTarnFcntlVerifySync},
    {Call::kVerify, "verify", Subject::kFile, Quill::kTarnIoctlVerify, Quill::kTarnFcntlVerify},
    {Call::kCertificate, "certificate", Subject::kFile, 0, 0},
    {Call::kUnknown, "unknown", Subject::kNone, 0, 0},
};

constexpr size_t IndexOf(Call call) { return static_cast<size_t>(call); }

constexpr bool AreRowsInOrder() {
  for (size_t i = 0; i < std::size(kCalls); ++i) {
    if (IndexOf(kCalls[i].call) != i) return false;
  }
  return std::size(kCalls) == IndexOf(Call::kUnknown) + 1;
}
static_assert(AreRowsInOrder(), "one row for each Call, in the order of Call");

constexpr bool AreSubjectsStated() {
  for (const CallInfo& info : kCalls) {
    if (info.ioctlCode != 0 && info.subject == Subject::kNone) return false;
    if (info.fcntlCommand != 0 && info.subject != Subject::kFile) return false;
  }
  return true;
}
static_assert(AreSubjectsStated(),
              "a request of the device is about a file or a task, an fcntl command about a file");

template <typename Matches>
const CallInfo* Find(Matches matches) {
  const auto* const found = std::find_if(std::begin(kCalls), std::end(kCalls), matches);
  return found == std::end(kCalls) ? nullptr : found;
}

bool Store(const CallInfo* info, Call& call) {
  if (info != nullptr) call = info->call;
  return info != nullptr;
}

}  // namespace

const char* NameOf(Call call) { return kCalls[IndexOf(call)].name; }

bool CallByName(const std::string& name, Call& call) {
  return Store(Find([&name](const CallInfo& info) { return name == info.name; }), call);
}

bool CallByIoctl(uint32_t code, Call& call) {
  if (code == 0) return false;
  return Store(Find([code](const CallInfo& info) { return code == info.ioctlCode; }), call);
}

bool CallByFcntl(int command, Call& call) {
  if (command == 0) return false;
  return Store(Find([command](const CallInfo& info) { return command == info.fcntlCommand; }),
               call);
}

bool HasIoctlNumber(uint32_t code) {
  const auto matches = [code](const CallInfo& info) {
    return info.ioctlCode != 0 && _IOC_TYPE(code) == _IOC_TYPE(info.ioctlCode) &&
           _IOC_NR(code) == _IOC_NR(info.ioctlCode);
  };
  return Find(matches) != nullptr;
}

Subject SubjectOf(Call call) { return kCalls[IndexOf(call)].subject; }

}  // namespace tarnsim
