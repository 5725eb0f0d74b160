// SPDX-License-Identifier: Apache-2.0

#include "simulator/simulator.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <nlohmann/json.hpp>
#include <utility>

#include "simulator/process.h"

namespace tarnsim {
namespace {

using Json = nlohmann::ordered_json;

std::string Hex(const uint8_t* data, size_t size) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (size_t i = 0; i < size; ++i) {
    text += kDigits[data[i] >> 4];
    text += kDigits[data[i] & 15];
  }
  return text;
}

std::string Number(const char* format, uint32_t number) {
  char text[16];
  snprintf(text, sizeof(text), format, number);
  return text;
}

Json DecodeLabel(const Bytes& label) {
  TarnExLabel front;
  if (label.size() >= sizeof(front)) {
    memcpy(&front, label.data(), sizeof(front));
    const size_t digestSize = DigestSize(front.algorithm);
    if (front.marker == 0xFFFF && digestSize != 0) {
      return {{"algorithm", "sha" + std::to_string(digestSize == 20 ? 1 : digestSize * 8)},
              {"hash", Hex(front.hash, digestSize)},
              {"extra", Hex(label.data() + sizeof(front), label.size() - sizeof(front))}};
    }
  }
  const size_t start = std::min(label.size(), sizeof(TarnLabel));
  return {{"data", Hex(label.data() + start, label.size() - start)}};
}

const char* NameOf(TarnInterface interface) {
  switch (interface) {
    case TarnInterface::kDevice:
      return "device";
    case TarnInterface::kLegacy:
      return "legacy";
    default:
      return "none";
  }
}

}  // namespace

std::string ToJson(const Request& request) {
  Json line = {{"request", NameOf(request.call)}, {"interface", NameOf(request.interface)}};
  if (request.command != 0) {
    const bool isIoctl = request.interface == TarnInterface::kDevice;
    line["command"] = Number(isIoctl ? "0x%x" : "%u", request.command);
  }
  switch (request.call) {
    case Call::kOpen:
    case Call::kUnknown:
      break;
    case Call::kReadIntegrity:
    case Call::kReadLabel:
    case Call::kReadResetFile:
      line["pid"] = request.target;
      break;
    default:
      line["fd"] = request.target;
      line["file"] = request.file;
  }
  if (!request.label.empty()) line["label"] = DecodeLabel(request.label);
  if (request.integrity) line["integrity"] = Number("0x%x", *request.integrity);
  if (request.call == Call::kCertificate) {
    line["identity"] = request.identity;
    line["certificate"] = Hex(request.certificate.data(), request.certificate.size());
  }
  line["result"] = request.result;
  line["errno"] = request.error;
  // A path need not be UTF-8.
  return line.dump(-1, ' ', false, Json::error_handler_t::replace);
}

KernelTurn::KernelTurn() {
  // Never destroyed: the program's own exit may still ask the kernel.
  static auto* const mutex = new std::mutex;
  static auto* const slot = new std::unique_ptr<SimulatedKernel>(KernelFromEnvironment());
  lock_ = std::unique_lock<std::mutex>(*mutex);
  slot_ = slot;
}

bool TarnsimAnswerOnce(uint32_t nonce) {
  const KernelTurn turn;
  if (turn.Kernel() == nullptr) return false;
  turn.Kernel()->rules.AnswerOnce(nonce);
  return true;
}

Simulation::Simulation(const KernelSetup& setup) {
  auto kernel = std::make_unique<SimulatedKernel>(
      setup, [this](const Request& request) { journal_.push_back(request); });
  for (const auto& [fd, label] : setup.labels) kernel->machine.StoreLabel(fd, label);
  KernelTurn().Replace(std::move(kernel));
}

Simulation::~Simulation() { KernelTurn().Replace(nullptr); }

std::vector<Request> Simulation::TakeJournal() {
  const KernelTurn turn;
  return std::exchange(journal_, {});
}

Bytes Simulation::LabelOf(int fd) {
  const KernelTurn turn;
  Bytes label;
  turn.Kernel()->machine.LoadLabel(fd, label);
  return label;
}

}  // namespace tarnsim
