// SPDX-License-Identifier: Apache-2.0

#pragma once

// Marks what libquillon.so exports; the library is compiled with hidden visibility. The version
// script quillon.map lists the same names. All members of an exported class, getters too, are
// defined in source files, so that callers find them in the library.
#define QUILLON_EXPORT __attribute__((visibility("default")))

// Marks a result that a caller must not ignore, in headers that C reads too. Only C++ checks it.
#ifdef __cplusplus
#define QUILLON_NODISCARD [[nodiscard]]
#else
#define QUILLON_NODISCARD
#endif
