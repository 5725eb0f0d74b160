// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <cstdint>

// The one function that the library calls in libhx.so, the platform's store of
// process-authenticator certificates. Stores a certificate of `size` bytes for the file behind `fd`
// and the identity `name`. Returns 0 or kHxAlsoStored on success, any other value on failure.
extern "C" int HxNewCertificate(int fd, const char* name, const uint8_t* data, size_t size);

constexpr int kHxAlsoStored = 0x10004;
