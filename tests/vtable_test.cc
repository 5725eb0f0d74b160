// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>

#include <cstring>

#include "schemes/apk_signature_block_base.h"
#include "signing_block/apk_package.h"
#include "signing_block/process_hashes.h"

namespace Quill {

// Callers of the binary interface find virtual functions by their slots: nothing may be added in
// front of the last one of a class. A pointer to a virtual function holds the slot's offset, to
// which some processors add 1; a destructor takes two slots.
TEST(VirtualFunctions, KeepTheirSlots) {
  const auto slot = [](auto function) {
    uintptr_t offset;
    std::memcpy(&offset, &function, sizeof offset);
    return offset / sizeof(void*);
  };
  using Bytes = std::vector<uint8_t>;
  EXPECT_EQ(7u, slot(static_cast<Bytes (Hash::*)(const void*, size_t)>(&Hash::Digest)));
  EXPECT_EQ(4u, slot(&Verifier::Verify));
  EXPECT_EQ(6u, slot(&ApkSignatureBlockBase::Verify));
  EXPECT_EQ(12u, slot(&ApkPackage::GetVersionName));
  EXPECT_EQ(2u, slot(&ProcessHashes::Run));
}

}  // namespace Quill
