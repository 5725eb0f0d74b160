// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "tests/support/temp_file.h"

namespace Quill {

// Runs the tool in a folder of its own.
class ToolTest : public testing::Test {
 protected:
  // Runs a line of the shell in the folder, where `quillon` is the tool. Returns its standard
  // output, its standard error with "! " before each line, and its exit status. The folder is
  // called DIR in them, the digest of a key KEY, a process N and a descriptor FD.
  std::string Run(const std::string& line) {
    const std::string script =
        "export ASAN_OPTIONS=verify_asan_link_order=0; cd " + folder_.Path() +
        "; quillon() { " QUILLON_TOOL " \"$@\"; }; { " + line +
        "; } >out 2>err; status=$?; { cat out; sed 's/^/! /' err; echo exit $status; } | sed -E "
        "\"s,$PWD,DIR,g; s,[0-9a-f]{64},KEY,; s,task [0-9]+,task N,; s,(OAT|VDEX): [0-9]+,\\1: "
        "FD,g\""
        " >all";
    EXPECT_EQ(0, std::system(script.c_str()));
    const ByteVector bytes = ReadFile(folder_.Path() + "/all");
    return {bytes.begin(), bytes.end()};
  }

  const TempFolder folder_;
};

}  // namespace Quill
