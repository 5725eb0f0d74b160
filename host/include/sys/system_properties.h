// SPDX-License-Identifier: Apache-2.0

#pragma once

// The part of Bionic's header of this name that the library uses; see system_properties.cc.

#define PROP_VALUE_MAX 92

#ifdef __cplusplus
extern "C" {
#endif

// Copies the property's value, NUL-terminated, into `value`, which holds PROP_VALUE_MAX
// bytes. Returns the value's length, 0 when there is no such property.
int __system_property_get(const char* name, char* value);

#ifdef __cplusplus
}
#endif
