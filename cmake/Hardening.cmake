# SPDX-License-Identifier: Apache-2.0

# Compiler and linker options that make memory errors harder to exploit, for every product.
# tests/hardening.sh checks the result.

add_compile_options(-fstack-protector-strong)
add_link_options(LINKER:-z,relro,-z,now,-z,noexecstack)

# The checking variants of C library functions need optimization. Sanitizers replace the same functions.
if(NOT QUILLON_SANITIZE)
  add_compile_options(
    "$<$<NOT:$<CONFIG:Debug>>:SHELL:-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2>")
endif()

# The checks that `sanitize` in Android.bp enables: a failed check is a trap, and headers of other
# libraries are exempt. Control-flow integrity is missing here: it needs link-time optimization of
# everything that derives from the library's classes, including tests.
set(QUILLON_DEVICE_CHECK_OPTIONS
  -fsanitize=signed-integer-overflow,unsigned-integer-overflow,bounds
  -fsanitize-trap=all
  -fsanitize-ignorelist=${PROJECT_SOURCE_DIR}/cmake/device_ignorelist.txt)
