#include <androidfw/ResourceTypes.h>
#include <utils/String8.h>

#include <algorithm>
#include <cstring>

#include "apk/apk.h"
#include "util/log.h"

namespace Quill {
namespace {

using android::ResXMLParser;
using android::ResXMLTree;
using android::String8;

bool Equals(const String8& text, const char* other) {
  return std::strcmp(text.string(), other) == 0;
}

bool IsHalyxPermission(const String8& name) {
  return Equals(name, "com.vrk.android.SECURE_STORAGE") ||
         Equals(name, "com.vrk.android.securestorage.permission.SECURE_STORAGE");
}

bool IsHalyxMetaData(const String8& value) {
  return Equals(value, "SS_META") || Equals(value, "HALYX_PROTECTED");
}

String8 ToUtf8(const char16_t* text, size_t length) {
  return text == nullptr ? String8() : String8(text, length);
}

// The current element's first attribute of that local name with a string value; empty when there is
// none. Deliberate: its namespace is not looked at.
String8 getStrAttr(const ResXMLTree& tree, const char* name) {
  for (size_t i = 0; i < tree.getAttributeCount(); ++i) {
    size_t length = 0;
    const char16_t* attributeName = tree.getAttributeName(i, &length);
    if (!Equals(ToUtf8(attributeName, length), name)) continue;
    android::Res_value value;
    if (tree.getAttributeValue(i, &value) < 0) continue;
    if (value.dataType != android::Res_value::TYPE_STRING) continue;
    const char16_t* text = tree.getAttributeStringValue(i, &length);
    if (text != nullptr) return ToUtf8(text, length);
  }
  return String8();
}

}  // namespace

bool Apk::ParseAndroidManifest(const std::vector<uint8_t>& bytes) {
  ResXMLTree tree;
  tree.setTo(bytes.data(), bytes.size(), /*copyData=*/false);
  if (tree.getError() != 0) {
    QUILL_LOGE("%s failed to init xml parser, error=0x%08x\n", "ParseAndroidManifest",
               static_cast<unsigned int>(tree.getError()));
    return false;
  }

  String8 packageName;
  // A document that turns out bad ends the scan quietly: what was found so far counts.
  for (auto event = tree.next();
       event != ResXMLParser::END_DOCUMENT && event != ResXMLParser::BAD_DOCUMENT;
       event = tree.next()) {
    if (event != ResXMLParser::START_TAG) continue;
    size_t length = 0;
    const char16_t* elementName = tree.getElementName(&length);
    const String8 element = ToUtf8(elementName, length);
    if (Equals(element, "manifest")) {
      if (packageName.length() == 0) packageName = getStrAttr(tree, "package");
    } else if (halyxPermissionRequired_) {
      continue;
    } else if (Equals(element, "uses-permission") || Equals(element, "permission")) {
      halyxPermissionRequired_ = IsHalyxPermission(getStrAttr(tree, "name"));
    } else if (Equals(element, "meta-data")) {
      halyxPermissionRequired_ =
          Equals(getStrAttr(tree, "name"), "access") && IsHalyxMetaData(getStrAttr(tree, "value"));
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
