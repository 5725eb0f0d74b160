#pragma once

// Marks what libquillon.so exports; the library is compiled with hidden visibility. The version
// script quillon.map lists the same names.
#define QUILLON_EXPORT __attribute__((visibility("default")))
