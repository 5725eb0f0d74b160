// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <string_view>

namespace Quill {

// What a workflow does to one file.
enum class StepKind { kLabel, kEdit, kCertify };

enum class StepEnd {
  kAnswered,        // the kernel or the store of certificates was asked; code: what it returned
  kOutsideHalyx,    // no label, because the package is outside the Halyx feature
  kJarNotVerified,  // no label, because the kernel does not verify the JAR; code: what it returned
  kNoArchive,       // no label, because the archive cannot be read
  kPackageRefused,  // no label, because the package does not verify
  kNotHashed,       // no label, because the file cannot be read
  kNotOpened,       // no label, because the file cannot be opened; code: the errno
};

// Takes note of a step on the calling thread, and leaves errno as it is. libquillon.so links
// steps_unrecorded.cc, where these do nothing. The tool and the tests link steps_recorder.cc.
void NoteStep(StepKind kind, int fd, StepEnd end, uint32_t code = 0);
void NoteStep(StepKind kind, std::string_view path, StepEnd end, uint32_t code = 0);

}  // namespace Quill
