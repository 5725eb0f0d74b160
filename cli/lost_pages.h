// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>

namespace Quill::Tool {

// Lets the process outlive a mapped file that shrinks, which otherwise ends it by SIGBUS. From the
// call on, a page outside the program and its libraries that cannot be had reads as zeros; theirs
// end the process as before. To be called once, before threads are started.
void SurviveLostPages();

// How many pages have been replaced by zeros so far, in the whole process. Whoever trusts what was
// read from a mapping looks whether this, or the file, has changed meanwhile.
uint64_t LostPageCount();

}  // namespace Quill::Tool
