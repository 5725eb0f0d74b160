// SPDX-License-Identifier: Apache-2.0

#pragma once

namespace Quill::Tool {

// The platform's SDK level on a workstation, the environment variable QUILLON_SDK, is a number from
// 0 to 2,147,483,647 or unset. False, with a diagnostic, when it is anything else: nothing can be
// verified then. To be asked before the library is.
bool IsSdkLevelUsable();

}  // namespace Quill::Tool
