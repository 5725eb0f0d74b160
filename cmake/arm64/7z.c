// SPDX-License-Identifier: Apache-2.0

#include <stdlib.h>

// A substitute for the arm64 build of 7z.so, whose package cannot be installed beside the host's.
// The platform libraries need libbacktrace, which needs 7z.so to unpack compressed debug data.
// Nothing here does that.

#define UNUSED(name) \
  void name(void);   \
  void name(void) { abort(); }

UNUSED(Crc64GenerateTable)
UNUSED(CrcGenerateTable)
UNUSED(XzUnpacker_Code)
UNUSED(XzUnpacker_Construct)
UNUSED(XzUnpacker_Free)
UNUSED(XzUnpacker_IsStreamWasFinished)
