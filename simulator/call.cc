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
  uint32_t ioctlCode;  // 0 for none
  int fcntlCommand;    // 0 for none
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
const CallInfo* Find(Matches matches) {
  const auto* const found = std::find_if(std::begin(kCalls), std::end(kCalls), matches);
  return found == std::end(kCalls) ? nullptr : found;
}

const CallInfo* Find(Call call) {
  return Find([call](const CallInfo& info) { return info.call == call; });
}

bool Store(const CallInfo* info, Call& call) {
  if (info != nullptr) call = info->call;
  return info != nullptr;
}

}  // namespace

const char* NameOf(Call call) { return Find(call)->name; }

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

bool IsFileCommand(Call call) { return Find(call)->fcntlCommand != 0; }

}  // namespace tarnsim
