// SPDX-License-Identifier: Apache-2.0

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include <quillon/entry_points.h>
#include <quillon/tarn.h>

#include "fuzz/fixed_keys.h"
#include "fuzz/fuzzing.h"
#include "simulator/simulator.h"
#include "tests/support/log_capture.h"
#include "tests/support/package_builder.h"
#include "tests/support/temp_file.h"
#include "util/byte_cursor.h"

using namespace Quill;  // NOLINT(google-build-using-namespace)

namespace {

// Takes the next number of the input; 0 when there is none.
uint32_t TakeNumber(ByteCursor& input) {
  uint32_t number = 0;
  static_cast<void>(input.TakeU32(number));
  return number;
}

ByteVector TakeBytes(ByteCursor& input) {
  ByteCursor bytes;
  return input.TakeLengthValue(bytes) ? bytes.ToVector() : ByteVector();
}

bool IsPending(const std::string& text) {
  return static_cast<uint32_t>(std::strtoul(text.c_str(), nullptr, 16)) == TARN_INTEGRITY_PENDING;
}

// A kernel whose replies the input describes. It does not keep the caller waiting for ever, and it
// does not claim a path longer than the buffer, at which the library ends the process.
tarnsim::KernelSetup TakeSetup(ByteCursor& input) {
  tarnsim::KernelSetup setup;
  const uint32_t choices = TakeNumber(input);
  setup.interface = choices % 4 == 0 ? TarnInterface::kLegacy : TarnInterface::kDevice;
  setup.integrity = {TakeNumber(input), 1};
  if ((choices & 4) != 0) setup.readOnly = {"/"};
  if ((choices & 8) != 0) {
    tarnsim::Fault fault{};
    fault.call = static_cast<tarnsim::Call>(TakeNumber(input) %
                                            (1 + static_cast<uint32_t>(tarnsim::Call::kUnknown)));
    fault.nth = static_cast<int>(TakeNumber(input) % 4);
    fault.error = static_cast<int>(TakeNumber(input));
    fault.result = static_cast<int>(TakeNumber(input));
    setup.faults = {fault};
  }
  if ((choices & 16) != 0) setup.taskLabel = TakeBytes(input);
  if ((choices & 32) != 0) {
    tarnsim::ResetFile reset;
    reset.wordA = TakeNumber(input);
    reset.wordB = TakeNumber(input);
    reset.pathLength = static_cast<uint16_t>(TakeNumber(input) % (sizeof(TarnResetFile::path) + 1));
    const ByteVector path = TakeBytes(input);
    reset.path.assign(path.begin(), path.end());
    setup.resetFile = reset;
  }
  if ((choices & 64) != 0) {
    const ByteVector text = input.ToVector();
    setup.labelText = std::string(text.begin(), text.end());
    if (!IsPending(*setup.labelText)) setup.valueText = setup.labelText;
  }
  return setup;
}

bool IsCode(uint32_t code) {
  return code <= TARN_NO_SUBSYSTEM || code == TARN_FAILED || (code & 0x80000000) != 0;
}

void CheckTask(const tarnsim::KernelSetup& setup) {
  uint32_t integrity = 0;
  Require(IsCode(TarnTaskReadIntegrity(0, /*wait=*/0, &integrity)), "a value is read or it is not");

  TarnLabel none{};
  TarnLabel* label = &none;
  uint32_t code = TarnTaskGetIntegrityLabel(0, &label);
  Require(IsCode(code) && (code == TARN_OK) == (label != &none), "only a success makes a label");
  if (label != &none && label != nullptr) {
    Require(label->length <= 256, "a label has at most 256 bytes");
    const ByteVector copy(label->data, label->data + label->length);
    if (setup.interface == TarnInterface::kDevice && setup.faults.empty()) {
      const size_t given = std::min(copy.size() + 2, setup.taskLabel->size());
      Require(std::equal(setup.taskLabel->begin(),
                         setup.taskLabel->begin() + static_cast<ptrdiff_t>(given),
                         reinterpret_cast<const uint8_t*>(label)),
              "the label is the kernel's");
    }
    TarnLabelFree(label);
  }

  TarnResetFile noFile{};
  TarnResetFile* file = &noFile;
  code = TarnGetResetFile(0, &file);
  Require(IsCode(code) && (code == TARN_OK) == (file != &noFile), "only a success makes a record");
  if (file != &noFile && file != nullptr) {
    Require(strnlen(file->path, sizeof file->path) < std::max<size_t>(file->pathLength, 1),
            "the path ends before its length");
    TarnResetFileFree(file);
  }
}

void CheckFile(const tarnsim::KernelSetup& setup, tarnsim::Simulation& simulation, int fd) {
  const uint8_t digest[20] = {1, 2, 3};
  TarnExLabel* label = nullptr;
  Require(TarnExLabelAlloc(TARN_SHA1, digest, sizeof digest, "extra", 5, &label) == TARN_OK,
          "a label is allocated");
  const uint32_t code = TarnSignFdEx(fd, label);
  Require(IsCode(code), "a file is labelled or it is not");
  if (setup.faults.empty()) {
    Require((code == TARN_OK) == !simulation.LabelOf(fd).empty(), "a success leaves a label");
  }
  TarnExLabelFree(label);
  Require(IsCode(TarnVerifyFd(fd)) && IsCode(TarnVerifyFdSync(fd)) && IsCode(TarnEditFd(fd)) &&
              IsCode(TarnCloseFd(fd)),
          "each request has a code");
}

const ByteVector& Package() {
  static const ByteVector package = [] {
    SignerOptions signer;
    signer.key = &FixedKeys().front();
    return PackageBuilder()
        .Manifest(ManifestXml("org.quillon.test", /*isHalyx=*/true))
        .V2({signer})
        .Build();
  }();
  return package;
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const Fd file = MemoryFile(Package());
  const LogCapture log;
  ByteCursor input(data, size);
  const tarnsim::KernelSetup setup = TakeSetup(input);
  tarnsim::Simulation simulation(setup);
  CheckTask(setup);
  CheckFile(setup, simulation, file.GetFd());
  const bool isWhole = TakeNumber(input) % 8 == 1;  // takes a hundred times as long
  if (isWhole) RunOEMFuncForApkSigner(file.GetFd(), "base.apk", 0);
  return 0;
}
