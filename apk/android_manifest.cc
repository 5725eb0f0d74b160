// SPDX-License-Identifier: Apache-2.0

#include <androidfw/ResourceTypes.h>
#include <utils/String8.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <quillon/apk.h>

#include "findings/acceptance.h"
#include "findings/refusal.h"
#include "util/log.h"
#include "util/nothrow.h"

namespace Quill {
namespace {

using android::ResStringPool;
using android::ResXMLParser;
using android::ResXMLTree;
using android::String8;

// The parser reads a whole attribute record, and a whole document header, even if the document ends
// inside. It reads at most these many bytes past the end.
constexpr size_t kOverread = sizeof(android::ResXMLTree_attribute);

// Limits one scan's work: a short document can name one long string repeatedly, and each access may
// decode it. The limit is about a second. The unit of work is one character that is read; other
// work counts as the characters that could be read in the same time.
class Budget {
 public:
  explicit Budget(const ResStringPool& pool)
      : pool_(pool), isConverted_(pool.isUTF8() ? pool.size() : 0) {}

  bool IsSpent() const { return spent_ > kMost; }

  // Charges for a text of the pool, which the parser returned as `length` characters or null.
  void SpendFetch(int32_t index, const char16_t* text, size_t length) {
    spent_ += kFetch;
    const auto entry = static_cast<uint32_t>(index);
    if (entry >= pool_.size()) return;  // null, and nothing was read
    if (text == nullptr) {
      spent_ += kMalformed;
      // The parser finds some errors in UTF-8 only after it has read the whole text.
      size_t walked = 0;
      if (pool_.string8At(entry, &walked) != nullptr) spent_ += 2 * walked;  // by both fetches
    } else if (pool_.isUTF8() && !isConverted_[entry]) {
      // The parser converts UTF-8 on the first fetch and keeps the result. UTF-16 is not walked.
      isConverted_[entry] = true;
      spent_ += kConverted * length;
    }
  }

  void SpendCopy(size_t length) { spent_ += length; }

 private:
  static constexpr uint64_t kMost = 256 << 20;
  static constexpr uint64_t kFetch = 8;
  static constexpr uint64_t kConverted = 8;     // per character; also bounds what the parser keeps
  static constexpr uint64_t kMalformed = 8192;  // two fetches, and a line of the parser for each
  const ResStringPool& pool_;
  std::vector<bool> isConverted_;
  uint64_t spent_ = 0;
};

// Returns true when a text of the document, up to its first zero, is `ascii`.
bool Equals(const char16_t* text, size_t length, std::string_view ascii) {
  if (text == nullptr || length < ascii.size()) return false;
  // Compared as bytes, because a text of the document may start at an odd address.
  const std::u16string wanted(ascii.begin(), ascii.end());
  const size_t units = std::min(length, wanted.size() + 1);  // with the zero
  return std::memcmp(text, wanted.c_str(), units * sizeof(char16_t)) == 0;
}

bool IsHalyxPermission(const String8& name) {
  return name == "com.vrk.android.SECURE_STORAGE" ||
         name == "com.vrk.android.securestorage.permission.SECURE_STORAGE";
}

bool IsHalyxMetaData(const String8& value) {
  return value == "SS_META" || value == "HALYX_PROTECTED";
}

// Fetches a text of the pool and charges for it. `fetch` sets `length`. It returns null for a text
// that the pool does not hold, for one that is not well formed, and when the parser has no memory
// to convert it from UTF-8. In the last case this throws.
template <typename Fetch>
const char16_t* FetchText(const ResXMLTree& tree, int32_t index, Budget& budget, size_t& length,
                          const Fetch& fetch) {
  const ResStringPool& pool = tree.getStrings();
  const char16_t* text = fetch();
  if (text == nullptr && pool.isUTF8() && static_cast<uint32_t>(index) < pool.size()) {
    // What the parser allocates: its table of texts, and the text itself.
    RequireMemory(pool.size() * sizeof text + pool.bytes() * sizeof *text);
    text = fetch();
  }
  budget.SpendFetch(index, text, length);
  return text;
}

// Returns the text as UTF-8.
String8 ToString(const char16_t* text, size_t length) {
  String8 string(text, length);
  if (string.length() == 0 && length != 0) throw std::bad_alloc();  // else empty
  return string;
}

// Returns the current element's first attribute of that local name with a string value; empty when
// there is none or the budget is spent. Deliberate: the attribute's namespace is not compared.
String8 getStrAttr(const ResXMLTree& tree, const char* name, Budget& budget) {
  for (size_t i = 0; i < tree.getAttributeCount() && !budget.IsSpent(); ++i) {
    size_t length = 0;
    const char16_t* attributeName = FetchText(tree, tree.getAttributeNameID(i), budget, length,
                                              [&] { return tree.getAttributeName(i, &length); });
    if (!Equals(attributeName, length, name)) continue;
    android::Res_value value;
    if (tree.getAttributeValue(i, &value) < 0) continue;
    if (value.dataType != android::Res_value::TYPE_STRING) continue;
    const char16_t* text = FetchText(tree, tree.getAttributeValueStringID(i), budget, length,
                                     [&] { return tree.getAttributeStringValue(i, &length); });
    if (text == nullptr) continue;
    budget.SpendCopy(length);
    return ToString(text, length);
  }
  return String8();
}

// Reads numbers of the manifest's first <manifest>, <uses-sdk> and <application>. It fetches no
// text, so it costs nothing of the budget.
class FactReader {
 public:
  void Read(const ResXMLTree& tree, const char16_t* element, size_t length) {
    constexpr uint32_t kVersionCode = 0x0101021b;
    constexpr uint32_t kVersionCodeMajor = 0x01010576;
    constexpr uint32_t kMinSdkVersion = 0x0101020c;
    constexpr uint32_t kTargetSdkVersion = 0x01010270;
    constexpr uint32_t kDebuggable = 0x0101000f;
    if (!hasManifest_ && Equals(element, length, "manifest")) {
      hasManifest_ = true;
      facts_.isDebuggable = false;
      facts_.versionCode = NumberOf(tree, kVersionCode);
      const uint64_t major = NumberOf(tree, kVersionCodeMajor).value_or(0);
      if (facts_.versionCode) *facts_.versionCode += major << 32;
    } else if (!hasUsesSdk_ && Equals(element, length, "uses-sdk")) {
      hasUsesSdk_ = true;
      facts_.minSdk = NumberOf(tree, kMinSdkVersion);
      facts_.targetSdk = NumberOf(tree, kTargetSdkVersion);
    } else if (!hasApplication_ && Equals(element, length, "application")) {
      hasApplication_ = true;
      if (const auto index = IndexOf(tree, kDebuggable)) {
        const std::optional<uint32_t> number = NumberAt(tree, *index);
        facts_.isDebuggable = number ? std::optional(*number != 0) : std::nullopt;
      }
    }
  }

  const ManifestFacts& Facts() const { return facts_; }

 private:
  // Returns which attribute of the current element has that resource ID.
  static std::optional<size_t> IndexOf(const ResXMLTree& tree, uint32_t id) {
    for (size_t i = 0; i < tree.getAttributeCount(); ++i) {
      if (tree.getAttributeNameResID(i) == id) return i;
    }
    return std::nullopt;
  }

  // Returns the value of an attribute; nothing for a text, and for a resource that has the value.
  static std::optional<uint32_t> NumberAt(const ResXMLTree& tree, size_t index) {
    android::Res_value value;
    if (tree.getAttributeValue(index, &value) < 0) return std::nullopt;
    const bool isNumber = value.dataType >= android::Res_value::TYPE_FIRST_INT &&
                          value.dataType <= android::Res_value::TYPE_LAST_INT;
    return isNumber ? std::optional<uint32_t>(value.data) : std::nullopt;
  }

  static std::optional<uint32_t> NumberOf(const ResXMLTree& tree, uint32_t id) {
    const std::optional<size_t> index = IndexOf(tree, id);
    return index ? NumberAt(tree, *index) : std::nullopt;
  }

  ManifestFacts facts_;
  bool hasManifest_ = false;
  bool hasUsesSdk_ = false;
  bool hasApplication_ = false;
};

}  // namespace

bool Apk::ParseAndroidManifest(std::vector<uint8_t> bytes) {
  const size_t size = bytes.size();
  bytes.resize(size + kOverread);
  ResXMLTree tree;
  tree.setTo(bytes.data(), size, /*copyData=*/false);
  if (tree.getError() != 0) {
    QUILL_LOGE("%s failed to init xml parser, error=0x%08x\n", "ParseAndroidManifest",
               static_cast<unsigned int>(tree.getError()));
    return false;
  }

  String8 packageName;
  FactReader facts;
  Budget budget(tree.getStrings());
  // A bad document, or a spent budget, ends the scan without a log line. What was found before
  // counts.
  for (auto event = tree.next(); event != ResXMLParser::END_DOCUMENT &&
                                 event != ResXMLParser::BAD_DOCUMENT && !budget.IsSpent();
       event = tree.next()) {
    if (event != ResXMLParser::START_TAG) continue;
    size_t length = 0;
    const char16_t* element = FetchText(tree, tree.getElementNameID(), budget, length,
                                        [&] { return tree.getElementName(&length); });
    if (IsRecording()) facts.Read(tree, element, length);
    if (Equals(element, length, "manifest")) {
      if (packageName.length() == 0) packageName = getStrAttr(tree, "package", budget);
    } else if (halyxPermissionRequired_) {
      continue;
    } else if (Equals(element, length, "uses-permission") ||
               Equals(element, length, "permission")) {
      halyxPermissionRequired_ = IsHalyxPermission(getStrAttr(tree, "name", budget));
    } else if (Equals(element, length, "meta-data")) {
      halyxPermissionRequired_ = getStrAttr(tree, "name", budget) == "access" &&
                                 IsHalyxMetaData(getStrAttr(tree, "value", budget));
    }
  }
  NoteManifest(facts.Facts());
  if (budget.IsSpent()) Refuse(Reason::kManifestOverBudget);
  packageName_.assign(packageName.string(), packageName.length());
  return true;
}

bool Apk::ForcedIgnoreHalyxFilter() {
  if (ignoreHalyxFilter_) return true;
  ignoreHalyxFilter_ = std::find(halyxIgnoredPackages_.begin(), halyxIgnoredPackages_.end(),
                                 packageName_) != halyxIgnoredPackages_.end();
  return ignoreHalyxFilter_;
}

}  // namespace Quill
