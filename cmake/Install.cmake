# What `cmake --install` puts where, in three components: runtime, development, tools.
include(CMakePackageConfigHelpers)
find_program(VELT_GZIP_PROGRAM gzip REQUIRED)
mark_as_advanced(VELT_GZIP_PROGRAM)

set(velt_runtime_doc ${CMAKE_INSTALL_DATADIR}/doc/libveltbaseutil1)
set(velt_development_doc ${CMAKE_INSTALL_DATADIR}/doc/libveltbaseutil-dev)
set(velt_tools_doc ${CMAKE_INSTALL_DATADIR}/doc/veltbaseutil-tools)
set(velt_package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/veltbaseutil)
set(velt_made ${PROJECT_BINARY_DIR}/install)
file(MAKE_DIRECTORY ${velt_made}/lnav)

# The library and what compiling against it needs.
install(TARGETS veltbaseutil EXPORT veltbaseutil-targets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development
  FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})  # for hosts whose CMake does not know sets of headers
install(EXPORT veltbaseutil-targets NAMESPACE veltbaseutil:: DESTINATION ${velt_package_dir} COMPONENT development)
# Read only for a host that asks for the component `log`.
install(TARGETS veltbaseutil_log EXPORT veltbaseutil-log-targets)
install(EXPORT veltbaseutil-log-targets NAMESPACE veltbaseutil:: DESTINATION ${velt_package_dir} COMPONENT development)

# A shared library brings what it is made with; hosts of a static one link all of that themselves.
set(VELT_CONFIG_PRIVATE "")
set(VELT_PC_PRIVATE "")
if(velt_library_type STREQUAL "STATIC")
  file(READ ${CMAKE_CURRENT_LIST_DIR}/find_module.cmake.in VELT_CONFIG_PRIVATE)
  string(APPEND VELT_CONFIG_PRIVATE "\n# What the static library is made with.\nfind_dependency(ZLIB)\n"
    "find_dependency(Threads)\nvelt_find_module(ACE ACE)")
  set(VELT_PC_PRIVATE "Requires.private: ACE zlib")
  if(VELT_GZIP STREQUAL "isal")
    string(APPEND VELT_CONFIG_PRIVATE "\nvelt_find_module(ISAL libisal)")
    string(APPEND VELT_PC_PRIVATE " libisal")
  endif()
  string(APPEND VELT_CONFIG_PRIVATE "\n")
  string(APPEND VELT_PC_PRIVATE "\nLibs.private: -pthread\n")
endif()

configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/veltbaseutil-config.cmake.in
  ${velt_made}/veltbaseutil-config.cmake
  INSTALL_DESTINATION ${velt_package_dir} NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(${velt_made}/veltbaseutil-config-version.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${velt_made}/veltbaseutil-config.cmake ${velt_made}/veltbaseutil-config-version.cmake
  DESTINATION ${velt_package_dir} COMPONENT development)

# The relative path from the .pc file's directory to the prefix, so that an installed tree may be moved.
file(RELATIVE_PATH VELT_PC_PREFIX /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
string(REGEX REPLACE "/$" "" VELT_PC_PREFIX "${VELT_PC_PREFIX}")
configure_file(${CMAKE_CURRENT_LIST_DIR}/veltbaseutil.pc.in ${velt_made}/veltbaseutil.pc @ONLY)
configure_file(${CMAKE_CURRENT_LIST_DIR}/veltbaseutil-log.pc.in ${velt_made}/veltbaseutil-log.pc @ONLY)
install(FILES ${velt_made}/veltbaseutil.pc ${velt_made}/veltbaseutil-log.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)

# The tools for operators; what only tests use stays here.
if(VELT_BUILD_TOOLS)
  install(TARGETS veltpipe veltcfg RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
endif()
install(DIRECTORY ${PROJECT_SOURCE_DIR}/examples/conf ${PROJECT_SOURCE_DIR}/examples/rsyslog
  ${PROJECT_SOURCE_DIR}/examples/engine_syslog ${PROJECT_SOURCE_DIR}/examples/engine_tee
  DESTINATION ${velt_tools_doc}/examples COMPONENT tools)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/share/ DESTINATION ${CMAKE_INSTALL_DATADIR}/veltbaseutil COMPONENT tools)
# lnav looks for formats of the machine in /etc/lnav, whatever its own prefix: a link there, from packages only. It
# points to nothing while the package is made.
file(CREATE_LINK /usr/share/veltbaseutil/lnav/veltbaseutil/veltbaseutil_log.json
  ${velt_made}/lnav/veltbaseutil_log.json SYMBOLIC)
install(CODE "if(CMAKE_INSTALL_PREFIX STREQUAL \"/usr\")
  file(INSTALL ${velt_made}/lnav/veltbaseutil_log.json DESTINATION /etc/lnav/formats/veltbaseutil)
endif()" COMPONENT tools)

# Documents.
install(FILES ${PROJECT_SOURCE_DIR}/README.md ${PROJECT_SOURCE_DIR}/CONTRIBUTING.md ${PROJECT_SOURCE_DIR}/SECURITY.md
  DESTINATION ${velt_development_doc} COMPONENT development)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/docs DESTINATION ${velt_development_doc} COMPONENT development
  FILES_MATCHING PATTERN "*.md" PATTERN "*.svg" PATTERN "man" EXCLUDE PATTERN "tools" EXCLUDE)
# Operators read two of the documents, which link to others, and those to more.
install(DIRECTORY ${PROJECT_SOURCE_DIR}/docs/ DESTINATION ${velt_tools_doc} COMPONENT tools
  FILES_MATCHING PATTERN "*.md" PATTERN "*.svg" PATTERN "man" EXCLUDE PATTERN "tools" EXCLUDE)

# Manual pages and change logs are installed compressed, as Debian has them.
set(velt_compressed)
function(velt_compress source result)
  add_custom_command(OUTPUT ${result} DEPENDS ${source}
    COMMAND ${CMAKE_COMMAND} -E copy ${source} ${result}.plain
    COMMAND ${VELT_GZIP_PROGRAM} -9nf -S .gz ${result}.plain
    COMMAND ${CMAKE_COMMAND} -E rename ${result}.plain.gz ${result})
endfunction()

file(GLOB velt_man_pages CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/docs/man/*.[1-8])
file(MAKE_DIRECTORY ${velt_made})
foreach(page IN LISTS velt_man_pages)
  cmake_path(GET page FILENAME name)
  string(REGEX REPLACE ".*\\." "" section ${name})
  velt_compress(${page} ${velt_made}/${name}.gz)
  install(FILES ${velt_made}/${name}.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section} COMPONENT tools)
  list(APPEND velt_compressed ${velt_made}/${name}.gz)
endforeach()

set(velt_package_revision 1)
set(velt_maintainer "libveltbaseutil authors <authors@libveltbaseutil.invalid>")
velt_compress(${PROJECT_SOURCE_DIR}/CHANGELOG.md ${velt_made}/changelog.gz)
add_custom_command(OUTPUT ${velt_made}/changelog.Debian
  DEPENDS ${PROJECT_SOURCE_DIR}/CHANGELOG.md ${CMAKE_CURRENT_LIST_DIR}/debian_changelog.sh
  COMMAND ${CMAKE_CURRENT_LIST_DIR}/debian_changelog.sh ${PROJECT_SOURCE_DIR}/CHANGELOG.md veltbaseutil
    ${velt_package_revision} ${velt_maintainer} > ${velt_made}/changelog.Debian
  VERBATIM)
velt_compress(${velt_made}/changelog.Debian ${velt_made}/changelog.Debian.gz)
list(APPEND velt_compressed ${velt_made}/changelog.gz ${velt_made}/changelog.Debian.gz)
add_custom_target(velt_installed_documents ALL DEPENDS ${velt_compressed})

file(STRINGS ${PROJECT_SOURCE_DIR}/LICENSE license_lines)
list(POP_FRONT license_lines)  # the name of the license
list(JOIN license_lines "\n " VELT_LICENSE_TEXT)
string(REGEX REPLACE "\n +\n" "\n .\n" VELT_LICENSE_TEXT "${VELT_LICENSE_TEXT}")
string(STRIP "${VELT_LICENSE_TEXT}" VELT_LICENSE_TEXT)
configure_file(${CMAKE_CURRENT_LIST_DIR}/copyright.in ${velt_made}/copyright @ONLY)
foreach(component IN ITEMS runtime development tools)
  install(FILES ${velt_made}/copyright ${velt_made}/changelog.gz ${velt_made}/changelog.Debian.gz
    DESTINATION ${velt_${component}_doc} COMPONENT ${component})
endforeach()
