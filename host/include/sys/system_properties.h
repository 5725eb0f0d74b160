// SPDX-License-Identifier: Apache-2.0

#pragma once

// What Bionic's header of this name gives the library; see system_properties.cc.

#define PROP_VALUE_MAX 92

#ifdef __cplusplus
extern "C" {
#endif

// Copies the property's value and a terminating zero into `value`, which holds PROP_VALUE_MAX
// bytes. Returns the value's length, 0 when there is no such property.
int __system_property_get(const char* name, char* value);

#ifdef __cplusplus
}
#endif
