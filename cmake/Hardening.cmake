# What makes a mistake in memory handling harder to use, in every product. tests/hardening.sh reads it
# back from the library.

add_compile_options(-fstack-protector-strong)
add_link_options(LINKER:-z,relro,-z,now,-z,noexecstack)

# The checking variants need optimisation, and the sanitizers put their own in the same places.
if(NOT QUILLON_SANITIZE)
  add_compile_options(
    "$<$<NOT:$<CONFIG:Debug>>:SHELL:-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2>")
endif()
