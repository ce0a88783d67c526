# Three Debian packages of what Install.cmake installs; the target `package` makes them.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME veltbaseutil)
set(CPACK_PACKAGE_VENDOR "libveltbaseutil authors")
set(CPACK_PACKAGE_CONTACT "${velt_maintainer}")
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL runtime development tools)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE ${velt_package_revision})
set(CPACK_DEBIAN_PACKAGE_SOURCE veltbaseutil)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "${velt_maintainer}")
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR})
set(velt_package_version "${PROJECT_VERSION}-${velt_package_revision}")

# Each package has its own first line; the project's is not put before it.
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")
set(velt_what_it_is
"Configuration look-ups, installation paths, process services, and traces that
background threads write into bounded, rotated, compressed, pruned log files.")

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libveltbaseutil1)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${CMAKE_CURRENT_LIST_DIR}/triggers)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION
"base library of server processes: configuration, services, traces
${velt_what_it_is}

This package holds the shared library.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libveltbaseutil-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "libveltbaseutil1 (= ${velt_package_version}), pkg-config")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_RECOMMENDS "libfmt-dev (>= 9)")  # for velt/log.h alone
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION
"base library of server processes: development files
${velt_what_it_is}

This package holds the headers, the files by which CMake and pkg-config find
the library, and the documents.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME veltbaseutil-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "libveltbaseutil1 (= ${velt_package_version})")
set(CPACK_DEBIAN_TOOLS_DESCRIPTION
"write any program's output into rotated, compressed log files
Tools beside libveltbaseutil. veltpipe reads lines from its standard input and
writes them into a family of bounded, rotated, compressed, pruned log files;
veltcfg checks the configuration files of an installation, and shows what they
amount to.

Sample configuration files are included, and a format for viewers of logs.")

include(CPack)
