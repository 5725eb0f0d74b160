#include <androidfw/ResourceTypes.h>
#include <utils/String8.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <new>
#include <string>
#include <string_view>

#include "apk/apk.h"
#include "util/log.h"
#include "util/nothrow.h"

namespace Quill {
namespace {

using android::ResStringPool;
using android::ResXMLParser;
using android::ResXMLTree;
using android::String8;

// The parser reads a whole attribute record even where the document ends before it does, and a
// document's header even where there are fewer bytes: at most these many past the end.
constexpr size_t kOverread = sizeof(android::ResXMLTree_attribute);

// UTF-16 units of names and values that one scan may fetch, far beyond any real manifest. A short
// document can ask for one long text again and again, and the parser may convert it each time.
// A text that is not well formed may have cost it a walk over the whole document.
class Budget {
 public:
  explicit Budget(size_t documentSize) : documentSize_(documentSize) {}

  bool IsSpent() const { return spent_ > kMost; }
  void Spend(const char16_t* text, size_t length) {
    spent_ += 1 + (text == nullptr ? documentSize_ : length);
  }

 private:
  static constexpr uint64_t kMost = 16 << 20;
  const uint64_t documentSize_;
  uint64_t spent_ = 0;
};

// Compares a text of the document, up to its first zero, with ASCII.
bool Equals(const char16_t* text, size_t length, std::string_view ascii) {
  if (text == nullptr || length < ascii.size()) return false;
  // As bytes, for the document decides where its texts start: at odd addresses too.
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

// A text by its fetch, which answers null for one that is not well formed and for one that the
// parser has no memory to convert from UTF-8. Throws in the second case.
template <typename Fetch>
const char16_t* FetchText(const ResXMLTree& tree, const Fetch& fetch) {
  const char16_t* text = fetch();
  const ResStringPool& pool = tree.getStrings();
  if (text != nullptr || !pool.isUTF8()) return text;
  // The parser's table of texts and the text itself.
  RequireMemory(pool.size() * sizeof text + pool.bytes() * sizeof *text);
  return fetch();
}

// The text as UTF-8.
String8 ToString(const char16_t* text, size_t length) {
  String8 string(text, length);
  if (string.length() == 0 && length != 0) throw std::bad_alloc();  // it stays empty
  return string;
}

// The current element's first attribute of that local name with a string value; empty when there is
// none or the budget is spent. Deliberate: its namespace is not looked at.
String8 getStrAttr(const ResXMLTree& tree, const char* name, Budget& budget) {
  for (size_t i = 0; i < tree.getAttributeCount() && !budget.IsSpent(); ++i) {
    size_t length = 0;
    const char16_t* attributeName =
        FetchText(tree, [&] { return tree.getAttributeName(i, &length); });
    budget.Spend(attributeName, length);
    if (!Equals(attributeName, length, name)) continue;
    android::Res_value value;
    if (tree.getAttributeValue(i, &value) < 0) continue;
    if (value.dataType != android::Res_value::TYPE_STRING) continue;
    const char16_t* text =
        FetchText(tree, [&] { return tree.getAttributeStringValue(i, &length); });
    budget.Spend(text, length);
    if (text != nullptr) return ToString(text, length);
  }
  return String8();
}

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
  Budget budget(size);
  // A document that turns out bad, or spends the budget, ends the scan quietly: what was found so
  // far counts.
  for (auto event = tree.next(); event != ResXMLParser::END_DOCUMENT &&
                                 event != ResXMLParser::BAD_DOCUMENT && !budget.IsSpent();
       event = tree.next()) {
    if (event != ResXMLParser::START_TAG) continue;
    size_t length = 0;
    const char16_t* element = FetchText(tree, [&] { return tree.getElementName(&length); });
    budget.Spend(element, length);
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
