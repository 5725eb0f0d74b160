// SPDX-License-Identifier: Apache-2.0

#include <stdlib.h>

// Stands for 7z.so of arm64, which cannot be installed beside the host's: libbacktrace, which the
// platform libraries need, unpacks compressed debug data with it. Nobody here asks for any.

#define UNUSED(name) \
  void name(void);   \
  void name(void) { abort(); }

UNUSED(Crc64GenerateTable)
UNUSED(CrcGenerateTable)
UNUSED(XzUnpacker_Code)
UNUSED(XzUnpacker_Construct)
UNUSED(XzUnpacker_Free)
UNUSED(XzUnpacker_IsStreamWasFinished)
