// SPDX-License-Identifier: Apache-2.0

#include "findings/steps_recorder.h"

#include <quillon/file_name.h>

#include "util/errno_keeper.h"

namespace Quill {
namespace {

thread_local std::vector<Step>* threadSteps = nullptr;

}  // namespace

StepRecorder::StepRecorder() { threadSteps = &steps_; }

StepRecorder::~StepRecorder() { threadSteps = nullptr; }

void NoteStep(StepKind kind, int fd, StepEnd end, uint32_t code) {
  const SavedErrno saved;
  if (threadSteps != nullptr) NoteStep(kind, GetFilenameByFd(fd), end, code);
}

void NoteStep(StepKind kind, std::string_view path, StepEnd end, uint32_t code) {
  const SavedErrno saved;
  if (threadSteps != nullptr) threadSteps->push_back({kind, std::string(path), end, code});
}

}  // namespace Quill
