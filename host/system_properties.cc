// SPDX-License-Identifier: Apache-2.0

#include <sys/system_properties.h>

#include <algorithm>
#include <cstdlib>
#include <string_view>

// A workstation has no system properties. The SDK level comes from the environment variable
// QUILLON_SDK: "30" when it is not set, no level when it is empty. No other property exists.
int __system_property_get(const char* name, char* value) {
  std::string_view text;
  if (std::string_view(name) == "ro.build.version.sdk") {
    const char* level = std::getenv("QUILLON_SDK");
    text = level == nullptr ? "30" : level;
  }
  text = text.substr(0, PROP_VALUE_MAX - 1);
  *std::copy(text.begin(), text.end(), value) = '\0';
  return static_cast<int>(text.size());
}
