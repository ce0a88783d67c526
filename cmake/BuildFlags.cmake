# What our own targets are compiled and linked with; never passed on to a host.
add_library(velt_build_flags INTERFACE)
target_compile_options(velt_build_flags INTERFACE
  -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Wformat=2
  $<$<BOOL:${VELT_WARNINGS_AS_ERRORS}>:-Werror>)

if(VELT_SANITIZE)
  target_compile_options(velt_build_flags INTERFACE
    -fsanitize=${VELT_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(velt_build_flags INTERFACE -fsanitize=${VELT_SANITIZE})
endif()

# What Debian builds its packages with, plus all relocations read-only before the program starts. Optimised builds only:
# the checked functions of the C library need the optimiser, and sanitizers see more than they do.
option(VELT_HARDENING "Harden optimised builds" ON)
add_library(velt_hardening INTERFACE)
if(VELT_HARDENING AND NOT VELT_SANITIZE)
  set(optimised $<CONFIG:Release,RelWithDebInfo,MinSizeRel>)
  target_compile_options(velt_hardening INTERFACE
    $<${optimised}:-fstack-protector-strong> $<${optimised}:-Werror=format-security>)
  if(NOT "${CMAKE_CXX_FLAGS} ${CMAKE_CXX_FLAGS_RELEASE}" MATCHES "_FORTIFY_SOURCE")
    target_compile_options(velt_hardening INTERFACE
      $<${optimised}:-U_FORTIFY_SOURCE> $<${optimised}:-D_FORTIFY_SOURCE=2>)
  endif()
  target_link_options(velt_hardening INTERFACE
    $<${optimised}:-Wl,-z,relro> $<${optimised}:-Wl,-z,now> $<${optimised}:-Wl,-z,noexecstack>)
endif()

include(CheckPIESupported)
check_pie_supported(LANGUAGES CXX)
