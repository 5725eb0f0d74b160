// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>

#include "anatomy/blame.h"
#include "anatomy/coverage.h"
#include "anatomy/package.h"
#include "anatomy/tiling.h"
#include "tests/support/opened_package.h"

namespace Quill {
namespace {

// The earlier claim owns a byte. What it leaves of a later one goes on behind it.
TEST(Anatomy, EachByteBelongsToTheFirstThatClaimsIt) {
  Anatomy::Tiling tiling(100);
  const auto claim = [&tiling](const char* name, uint64_t begin, uint64_t middle, uint64_t end) {
    Anatomy::Field field, left, right;
    field.name = name;
    left.name = "left";
    right.name = "right";
    field.offset = left.offset = begin;
    right.offset = middle;
    field.size = end - begin;
    left.size = middle - begin;
    right.size = end - middle;
    field.fields.push_back(std::move(left));
    field.fields.push_back(std::move(right));
    tiling.Claim(std::move(field));
  };
  claim("a", 40, 45, 50);
  claim("b", 60, 65, 70);
  claim("c", 35, 38, 80);  // around both
  claim("d", 41, 42, 49);  // within one
  claim("e", 78, 90, 95);  // its start belongs to another
  claim("f", 10, 20, 37);
  const Anatomy::Field file = tiling.Finish();
  EXPECT_TRUE(IsTiled(file));
  std::string text;
  for (const Anatomy::Field& field : file.fields) {
    text += field.Name() + ' ' + std::to_string(field.offset) + '+' + std::to_string(field.size) +
            ' ' + std::string(field.Note()) + '\n';
    for (const Anatomy::Field& child : field.fields) {
      text += "  " + child.Name() + ' ' + std::to_string(child.size) + '\n';
    }
  }
  EXPECT_EQ(
      "gap 0+10 \n"
      "f 10+25 claims 27 bytes at 10, but from 35 on they belong to c\n  left 10\n  right 15\n"
      "c 35+5 claims 45 bytes at 35, but from 40 on they belong to a\n  left 3\n  right 2\n"
      "a 40+10 \n  left 5\n  right 5\n"
      "d 50+0 claims 8 bytes at 41, but from 41 on they belong to a\n"
      "continued 50+10 of c\n"
      "b 60+10 \n  left 5\n  right 5\n"
      "continued 70+10 of c\n"
      "e 80+0 claims 17 bytes at 78, but from 78 on they belong to continued\n"
      "continued 80+15 of e\n"
      "gap 95+5 \n",
      text);
}

// Each prefix of a package has a tree that tiles it, and so has one whose bytes have changed.
TEST(Anatomy, TilesWhateverIsLeftOfAPackage) {
  const ByteVector file = PackageBuilder()
                              .Manifest()
                              .Entry("classes.dex", {1, 2, 3}, Compression::kDeflated)
                              .JarSignature()
                              .V2()
                              .V3()
                              .Comment({1, 2, 3})
                              .Build();
  LogCapture log;
  for (size_t size = 1; size < file.size(); ++size) {
    const auto cut = Anatomy::ReadPackage(GuardedMapping({file.data(), file.data() + size}));
    EXPECT_TRUE(IsTiled(cut.file) && cut.file.size == size) << size;
    ByteVector changed = file;
    changed[size - 1] ^= 0x80;
    EXPECT_TRUE(IsTiled(Anatomy::ReadPackage(GuardedMapping(changed)).file)) << size;
  }
}

// What a refusal is about, and what the signatures then cover: how each was checked.
TEST(Anatomy, KnowsTheFieldThatARefusalIsAbout) {
  SignerOptions good, other;
  other.key = &TestKey("p256-1");
  SignerOptions wrongDigest = other, noCertificate = other, shortDigests = other;
  wrongDigest.contentDigest = ByteVector(32);
  noCertificate.certificates.emplace();
  shortDigests.digestAlgorithms = {0x0202};
  const auto package = PackageBuilder().Manifest();
  const std::tuple<ByteVector, std::string, std::string> kCases[] = {
      {PackageBuilder(package).V2({good, wrongDigest, good}).Build(),
       "signingBlock.v2.signers[1].signedData.digests[0].value",
       "signed data verified, content digest verified, signed data verified, content digest failed, "
       "signed data not looked at, content digest not looked at, structure verified, "},
      {PackageBuilder(package).V2({noCertificate}).V3({wrongDigest}).Build(),
       "signingBlock.v3.signers[0].signedData.digests[0].value",
       "signed data not looked at, content digest not looked at, structure not looked at, "
       "signed data verified, content digest failed, structure verified, "},
      {PackageBuilder(package).V2({noCertificate}).Build(),
       "signingBlock.v2.signers[0].signedData.certificates",
       "signed data verified, content digest not looked at, structure verified, "},
      {PackageBuilder(package).V2({shortDigests}).Build(),
       "signingBlock.v2.signers[0].signedData.digests",
       "signed data verified, content digest failed, structure verified, "},
      {PackageBuilder(package).V2({}).Build(), "signingBlock.v2.signers", "structure failed, "},
  };
  for (const auto& [file, field, checked] : kCases) {
    const OpenedPackage opened(file);
    ASSERT_FALSE(opened.isGoodApk);
    const auto parts = Anatomy::ReadPackage(GuardedMapping(file));
    EXPECT_EQ(field, BlamedField(parts, opened.refusals.back()));
    std::string text;
    for (const auto& one : CoverageOf(parts, {opened.scheme, false, opened.refusals})) {
      if (one.by != "nothing") {
        text += TextOf(one.how) + std::string(" ") + TextOf(one.checked) + ", ";
      }
    }
    EXPECT_EQ(checked, text) << field;
  }
}

}  // namespace
}  // namespace Quill
