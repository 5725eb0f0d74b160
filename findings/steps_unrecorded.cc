// SPDX-License-Identifier: Apache-2.0

#include "findings/steps.h"

namespace Quill {

void NoteStep(StepKind /*kind*/, int /*fd*/, StepEnd /*end*/, uint32_t /*code*/) {}

void NoteStep(StepKind /*kind*/, std::string_view /*path*/, StepEnd /*end*/, uint32_t /*code*/) {}

}  // namespace Quill
