// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>

namespace tarnsim {

// Writes the message as one line to standard error. Escapes it: it may contain bytes that a
// terminal interprets.
void PrintDiagnostic(const std::string& message);

}  // namespace tarnsim
