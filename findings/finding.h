// SPDX-License-Identifier: Apache-2.0

#pragma once

namespace Quill {

// What the library finds in a package and log lines do not say.
enum class Finding {
  kManifestOverBudget,  // the scan of the compiled manifest ended because it cost too much
};

// Records a finding of the calling thread. libquillon.so links log_only.cc, where this does nothing,
// so that the library keeps no state. The tool and the tests link recorder.cc.
void Record(Finding finding);

}  // namespace Quill
