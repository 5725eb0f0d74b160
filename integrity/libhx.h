// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <cstdint>

// The one function used of libhx.so, the platform's store of process-authenticator certificates.
// Gives the file behind `fd` a certificate of `size` bytes for the identity `name`. Returns 0 or
// 0x10004 when that is done; every other value is a failure.
extern "C" int HxNewCertificate(int fd, const char* name, const uint8_t* data, size_t size);
