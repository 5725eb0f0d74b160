// SPDX-License-Identifier: Apache-2.0

#include "simulator/journal.h"

#include <fcntl.h>

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <nlohmann/json.hpp>

#include "simulator/label.h"
#include "util/escape.h"
#include "util/text.h"

namespace tarnsim {
namespace {

using Json = nlohmann::ordered_json;
using Quill::ToHex;

std::string Number(const char* format, uint32_t number) {
  char text[16];
  snprintf(text, sizeof(text), format, number);
  return text;
}

std::string FlagNames(int flags) {
  constexpr struct {
    const char* name;
    int flag;
  } kFlags[] = {{"O_CREAT", O_CREAT},       {"O_EXCL", O_EXCL},          {"O_TRUNC", O_TRUNC},
                {"O_APPEND", O_APPEND},     {"O_NONBLOCK", O_NONBLOCK},  {"O_CLOEXEC", O_CLOEXEC},
                {"O_NOFOLLOW", O_NOFOLLOW}, {"O_DIRECTORY", O_DIRECTORY}};
  const int access = flags & O_ACCMODE;
  std::string names =
      access == O_RDONLY ? "O_RDONLY" : (access == O_WRONLY ? "O_WRONLY" : "O_RDWR");
  flags &= ~O_ACCMODE;
  for (const auto& [name, flag] : kFlags) {
    if ((flags & flag) != flag) continue;
    names += std::string("|") + name;
    flags &= ~flag;
  }
  return flags == 0 ? names : names + Number("|0x%x", static_cast<uint32_t>(flags));
}

Json DecodeLabel(const Bytes& label) {
  TarnExLabel front;
  if (IsExtended(label) && ReadFront(label, front)) {
    const size_t digestSize = DigestSize(front.algorithm);
    if (digestSize != 0) {
      Json decoded = {{"algorithm", "sha" + std::to_string(digestSize == 20 ? 1 : digestSize * 8)},
                      {"hash", ToHex(front.hash, digestSize)},
                      {"extra", ToHex(label.data() + sizeof(front), label.size() - sizeof(front))}};
      const uint8_t* const behind = front.hash + digestSize;
      const uint8_t* const end = std::end(front.hash);
      if (std::any_of(behind, end, [](uint8_t byte) { return byte != 0; })) {
        decoded["behindHash"] = ToHex(behind, sizeof(front.hash) - digestSize);
      }
      return decoded;
    }
  }
  const size_t start = std::min(label.size(), sizeof(TarnLabel));
  return {{"data", ToHex(label.data() + start, label.size() - start)}};
}

const char* NameOf(TarnInterface interface) {
  switch (interface) {
    case TarnInterface::kDevice:
      return "device";
    case TarnInterface::kLegacy:
      return "legacy";
    case TarnInterface::kNone:
      break;
  }
  return "none";
}

}  // namespace

std::string ToJson(const Request& request) {
  Json line = {{"request", NameOf(request.call)}, {"interface", NameOf(request.interface)}};
  if (request.command != 0) {
    const bool isIoctl = request.interface == TarnInterface::kDevice;
    line["command"] = Number(isIoctl ? "0x%x" : "%u", request.command);
  }
  if (request.flags) line["flags"] = FlagNames(*request.flags);
  switch (SubjectOf(request.call)) {
    case Subject::kNone:
      break;
    case Subject::kTask:
      line["pid"] = request.target;
      break;
    case Subject::kFile:
      line["fd"] = request.target;
      line["file"] = request.file;
      // Text in JSON is UTF-8, but a path need not be.
      if (Quill::EscapeInvalidUtf8(request.file) != request.file) {
        const auto* bytes = reinterpret_cast<const uint8_t*>(request.file.data());
        line["fileHex"] = ToHex(bytes, request.file.size());
      }
  }
  if (!request.label.empty()) line["label"] = DecodeLabel(request.label);
  if (request.integrity) line["integrity"] = Number("0x%x", *request.integrity);
  if (request.call == Call::kCertificate) {
    line["identity"] = request.identity;
    line["certificate"] = ToHex(request.certificate.data(), request.certificate.size());
  }
  line["result"] = request.result;
  line["errno"] = request.error;
  line["time"] = request.time;
  return line.dump(-1, ' ', false, Json::error_handler_t::replace);
}

}  // namespace tarnsim
