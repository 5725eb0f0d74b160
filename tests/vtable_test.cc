// SPDX-License-Identifier: Apache-2.0

#include <gmock/gmock.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

#include "crypto/hash.h"
#include "crypto/verifier.h"
#include "crypto/x509_certificate.h"
#include "schemes/apk_signature_block_base.h"
#include "signing_block/apk_package.h"
#include "signing_block/process_hashes.h"

namespace Quill {
namespace {

using testing::ElementsAre;

// The slot that a call through the pointer to member goes through. In the Itanium C++ ABI the
// pointer holds the slot's offset into the virtual table; whether the mark of a virtual function is
// added to it or stands in the adjustment depends on the processor.
template <typename Function>
size_t Slot(Function function) {
  struct {
    uintptr_t pointer;
    uintptr_t adjustment;
  } parts;
  static_assert(sizeof parts == sizeof function);
  std::memcpy(&parts, &function, sizeof parts);
  EXPECT_EQ(1u, (parts.pointer | parts.adjustment) & 1);
  return parts.pointer / sizeof(void*);
}

template <typename... Functions>
std::vector<size_t> Slots(Functions... functions) {
  return {Slot(functions)...};
}

// Adds a virtual function behind those of a class, so that its slot tells their number.
template <typename Base>
struct Extended : Base {
  virtual void Behind() {}
};

using Bytes = std::vector<uint8_t>;

}  // namespace

// A destructor has no pointer to member; it stands where two slots are left out.
TEST(VirtualFunctions, StandInBinaryOrder) {
  EXPECT_THAT(Slots(&Hash::Init,                                                       //
                    static_cast<int (Hash::*)(const void*, size_t)>(&Hash::Update),    //
                    static_cast<int (Hash::*)(const Bytes&)>(&Hash::Update),           //
                    &Hash::Final, &Hash::Type, &Hash::Clone,                           //
                    static_cast<Bytes (Hash::*)(const Bytes&)>(&Hash::Digest),         //
                    static_cast<Bytes (Hash::*)(const void*, size_t)>(&Hash::Digest),  //
                    &Extended<Hash>::Behind),
              ElementsAre(0, 1, 2, 3, 4, 5, 6, 7, /*destructor,*/ 10));
  EXPECT_THAT(Slots(&Verifier::Init, &Verifier::GetPublicKey, &Verifier::Verify,
                    &Extended<Verifier>::Behind),
              ElementsAre(/*destructor,*/ 2, 3, 4, 5));
  EXPECT_THAT(Slots(&Extended<X509Certificate>::Behind), ElementsAre(/*destructor,*/ 2));
  using Base = ApkSignatureBlockBase;
  EXPECT_THAT(Slots(&Base::VerifyAttributes, &Base::VerifyMainCertificate, &Base::GetPublicKeys,
                    &Base::Parse, &Base::Verify, &Extended<Base>::Behind),
              ElementsAre(0, 1, /*destructor,*/ 4, 5, 6, 7));
  EXPECT_THAT(
      Slots(&ApkPackage::FindEocdRecord, &ApkPackage::FindCentralDirectory,
            &ApkPackage::ParseApkSignatureBlocks, &ApkPackage::FindApkSigningBlock,
            &ApkPackage::CheckEndOfCentralAndCentralDirectories, &ApkPackage::PrepareRawDataChunks,
            &ApkPackage::ParseApkPackage, &ApkPackage::VerifyApkPackage,
            &ApkPackage::GetMainPublicKey, &ApkPackage::GetVersionScheme,
            &ApkPackage::GetVersionName, &Extended<ApkPackage>::Behind),
      ElementsAre(0, 1, 2, 3, 4, 5, /*destructor,*/ 8, 9, 10, 11, 12, 13));
  EXPECT_THAT(Slots(&ProcessHashes::Run, &Extended<ProcessHashes>::Behind),
              ElementsAre(/*destructor,*/ 2, 3));
}

}  // namespace Quill
