// SPDX-License-Identifier: Apache-2.0

#include <quillon/manifest_mf.h>

#include "fuzz/fuzzing.h"
#include "tests/support/log_capture.h"

using Quill::Require;

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Quill::LogCapture log;
  ManifestMf manifest;
  const bool isLoaded = manifest.load({data, data + size});
  Require(isLoaded == static_cast<bool>(manifest), "the result is kept");
  Require(log.Take().empty() == isLoaded, "a refusal, and nothing else, is logged");

  size_t characters = 0;
  for (const ManifestMf::Section& section : manifest.getSections()) {
    for (const auto& [key, value] : section) {
      Require(!key.empty() && !value.empty(), "an attribute has a name and a value");
      Require(key.find(':') == std::string::npos, "a colon ends a name");
      Require(value.find_first_of("\r\n") == std::string::npos, "a line break ends a value");
      characters += key.size() + value.size();
    }
  }
  Require(characters <= size, "sections hold no more than the text");
  return 0;
}
