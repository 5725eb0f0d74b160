// SPDX-License-Identifier: Apache-2.0

#pragma once

// Marks what libquillon.so exports; the library is compiled with hidden visibility. The version
// script quillon.map lists the same names. Members of an exported class are defined in sources,
// getters too, so that callers find all of them in the library.
#define QUILLON_EXPORT __attribute__((visibility("default")))
