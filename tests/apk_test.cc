// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>

#include <algorithm>

#include <quillon/apk.h>

#include "tests/support/opened_package.h"
#include "tests/support/table.h"

namespace Quill {
namespace {

// Returns the element of a text such as "meta-data name=access value=SS_META". The value 7 is a
// number.
XmlElement Element(const std::string& text) {
  const std::vector<std::string> words = Split(text, " ");
  XmlElement element = {words[0], {}};
  for (size_t i = 1; i < words.size(); ++i) {
    const size_t equals = words[i].find('=');
    const std::string value = words[i].substr(equals + 1);
    element.attributes.push_back({words[i].substr(0, equals), value});
    if (value == "7") element.attributes.back().value = 7u;
  }
  return element;
}

// A manifest with that many elements of one attribute, whose fields are overwritten: the size and
// the count of its records, and the name of the first. A storage permission is the last element.
ByteVector ManifestOf(size_t count, uint16_t size, uint16_t recordCount, uint32_t name) {
  std::vector<XmlElement> elements(count, {"permission", {{"name", ""}}});
  elements.push_back(
      {"permission", {{"", std::string(200000, 'x')}, {"name", "com.vrk.android.SECURE_STORAGE"}}});
  ByteVector xml = BinaryXml(elements);
  const ByteVector startTag = Wire().U16(0x0102).U16(16);
  for (auto at = xml.begin(); count-- != 0; ++at) {
    at = std::search(at, xml.end(), startTag.begin(), startTag.end());
    const auto element = static_cast<size_t>(at - xml.begin()) + 16;
    Put(xml, element + 10, Wire().U16(size).U16(recordCount));
    Put(xml, element + 24, Wire().U32(name));
  }
  return xml;
}

}  // namespace

TEST(Apk, ReadsPackageNameAndHalyxFactsFromTheManifest) {
  for (const Row& row : ReadTable("manifests.txt")) {
    std::vector<XmlElement> elements;
    for (const std::string& text : Split(row.fields[2], " & ")) elements.push_back(Element(text));
    const OpenedPackage opened(PackageBuilder().Manifest(BinaryXml(elements)).V2().Build());
    EXPECT_EQ(row.fields[0], opened.isHalyx ? "required" : "-") << row.text;
    EXPECT_EQ(row.fields[1], opened.packageName.empty() ? "-" : opened.packageName) << row.text;
  }
}

// A permission behind what costs the work counts if the scan gets there. Records of no size are all
// in the same place.
TEST(Apk, ReadsAManifestWholeUpToASecondsWork) {
  constexpr uint32_t kOutsideThePool = 0x7fffffff;
  const std::pair<ByteVector, bool> kCases[] = {
      {ManifestOf(20, 20, 1, kOutsideThePool), true},
      {ManifestOf(2, 0, 65535, kOutsideThePool), true},
      {ManifestOf(2000, 0, 65535, 0), false},
  };
  for (const auto& [xml, isRead] : kCases) {
    const OpenedPackage opened(PackageBuilder().Manifest(xml).V2().Build());
    EXPECT_TRUE(opened.isGoodApk);
    EXPECT_EQ(isRead, opened.isHalyx) << xml.size();
    EXPECT_EQ(isRead, opened.refusals.empty());
  }
}

TEST(Apk, OpensByDescriptorOrPathAndClosesWhatItOpened) {
  const TempFolder folder;
  const std::string path = folder.Write(
      "base.apk",
      PackageBuilder().Manifest(ManifestXml("com.google.android.webview")).V3().Build());
  const std::string text = folder.Write("notes.txt", {'h', 'i'});
  const auto file = OpenFileRO(path);
  LogCapture log;
  const ptrdiff_t descriptors = OpenDescriptors();
  EXPECT_FALSE(Apk(-5).IsGoodZip());
  EXPECT_EQ(-1, Apk("/nowhere/at-all.apk").GetFd());
  EXPECT_EQ(
      "E Can't initialize Apk: need valid file descriptor or filename\n"
      "E open('/nowhere/at-all.apk') failed: No such file or directory\n",
      log.Take());
  EXPECT_FALSE(Apk(text.c_str()).IsGoodZip());
  EXPECT_EQ(path, Apk(path.c_str()).GetPath());
  EXPECT_EQ("/data/app/x.apk", Apk(file->GetFd(), "/data/app/x.apk").GetPath());
  setenv("QUILLON_SDK", "R", 1);
  EXPECT_THROW(Apk(path.c_str()), std::invalid_argument);
  unsetenv("QUILLON_SDK");
  EXPECT_EQ(descriptors, OpenDescriptors());
}

}  // namespace Quill
