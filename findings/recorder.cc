// SPDX-License-Identifier: Apache-2.0

#include "findings/recorder.h"

namespace Quill {
namespace {

thread_local FindingRecorder* threadRecorder = nullptr;

}  // namespace

FindingRecorder::FindingRecorder() { threadRecorder = this; }

FindingRecorder::~FindingRecorder() { threadRecorder = nullptr; }

void Record(Finding finding) {
  if (threadRecorder != nullptr) threadRecorder->findings_.insert(finding);
}

}  // namespace Quill
