# SPDX-License-Identifier: Apache-2.0

# What makes a mistake in memory handling harder to use, in every product. tests/hardening.sh reads it
# back from the library.

add_compile_options(-fstack-protector-strong)
add_link_options(LINKER:-z,relro,-z,now,-z,noexecstack)

# The checking variants need optimisation, and the sanitizers put their own in the same places.
if(NOT QUILLON_SANITIZE)
  add_compile_options(
    "$<$<NOT:$<CONFIG:Debug>>:SHELL:-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2>")
endif()

# What `sanitize` in Android.bp asks for, as the platform's build has it: a failed check is a trap, and
# the headers of other libraries may wrap. Control-flow integrity is left out: it needs link-time
# optimization of everything that derives from the library's classes, tests included.
set(QUILLON_DEVICE_CHECK_OPTIONS
  -fsanitize=signed-integer-overflow,unsigned-integer-overflow,bounds
  -fsanitize-trap=all
  -fsanitize-ignorelist=${PROJECT_SOURCE_DIR}/cmake/device_ignorelist.txt)
