// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <memory>

#include <quillon/tarn.h>

#include "util/errno_keeper.h"

namespace Quill {

// Frees what the Tarn calls allocate, and leaves errno as it is.
struct TarnDelete {
  void operator()(TarnLabel* label) const {
    const SavedErrno saved;
    TarnLabelFree(label);
  }
  void operator()(TarnExLabel* label) const {
    const SavedErrno saved;
    TarnExLabelFree(label);
  }
  void operator()(TarnResetFile* record) const {
    const SavedErrno saved;
    TarnResetFileFree(record);
  }
};

using LabelOwner = std::unique_ptr<TarnLabel, TarnDelete>;
using ExLabelOwner = std::unique_ptr<TarnExLabel, TarnDelete>;
using ResetFileOwner = std::unique_ptr<TarnResetFile, TarnDelete>;

}  // namespace Quill
