// SPDX-License-Identifier: Apache-2.0

#include "simulator/diagnostic.h"

#include <cstdio>

#include "util/escape.h"

namespace tarnsim {

void PrintDiagnostic(const std::string& message) {
  fprintf(stderr, "tarnsim: %s\n", Quill::EscapeForTerminal(message).c_str());
}

}  // namespace tarnsim
