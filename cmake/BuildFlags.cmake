# What our own targets are compiled and linked with; never handed on to a host.
add_library(velt_build_flags INTERFACE)
target_compile_options(velt_build_flags INTERFACE
  -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Wformat=2
  $<$<BOOL:${VELT_WARNINGS_AS_ERRORS}>:-Werror>)

if(VELT_SANITIZE)
  target_compile_options(velt_build_flags INTERFACE
    -fsanitize=${VELT_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(velt_build_flags INTERFACE -fsanitize=${VELT_SANITIZE})
endif()
