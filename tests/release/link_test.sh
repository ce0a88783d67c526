#!/usr/bin/env bash
# Every way in which a host links the library, with velt/log.h and without: found by CMake or by pkg-config where it is
# installed; as a part of the host's own build, by add_subdirectory and by the README's lines for FetchContent; each
# shared and static. Each host is built and run. The headers hold under a host's strict warnings in each language
# standard, and without exceptions and run-time types. In the end the installed files are uninstalled.
#
#   link_test.sh SOURCE_DIRECTORY BUILD_DIRECTORY COMPILER...    the build directory is one of the shared library
set -euo pipefail
export LC_ALL=C

if [[ $# -lt 3 || ! -d $1/include/velt || ! -f $2/CMakeCache.txt ]]; then
  echo "usage: $0 SOURCE_DIRECTORY BUILD_DIRECTORY COMPILER..." >&2
  exit 2
fi
source_directory=$(cd "$1" && pwd)
build=$(cd "$2" && pwd)
shift 2
compilers=("$@")
hosts=$source_directory/tests/release/host
log_hosts=$source_directory/tests/release/log_host
jobs=$(nproc)

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

# The library is built four times from the same sources; what was compiled with the same options need not be again.
launcher=()
if command -v ccache >"$scratch/output"; then
  launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
  export CCACHE_DIR=$scratch/ccache CCACHE_NOHASHDIR=1  # no two builds share a directory
fi
fail() {
  printf '%s\n' "$*" >&2
  exit 1
}
quietly() {
  "$@" >"$scratch/output" 2>&1 || { cat "$scratch/output" >&2; fail "failed: $*"; }
}
configure() { # SOURCE BUILD SETTING...
  quietly cmake -S "$1" -B "$2" -G Ninja -DCMAKE_CXX_COMPILER="${compilers[0]}" -DCMAKE_BUILD_TYPE=Debug \
    -DCMAKE_CXX_FLAGS_DEBUG=-O0 "${launcher[@]}" "${@:3}"
}

# The host traces one line, and says how it was linked.
try() { # PROGRAM HOW shared|static
  local log="$scratch/log $2 $3"
  mkdir -p "$log"
  quietly "$1" "$log" "$2"
  grep -q " net I: found by $2\$" "$log"/host_*.log || fail "$2, $3: the line is not in the log"
  case $3-$(readelf -dW "$1") in
    shared-*libveltbaseutil.so.1*) ;;
    shared-*) fail "$2: the host does not load the library" ;;
    static-*libveltbaseutil*) fail "$2: the host loads the library that should be a part of it" ;;
  esac
}

find_package_and_pkg_config() { # INSTALLED shared|static
  local pkg_config_path flags how=()
  pkg_config_path=$(dirname "$(find "$1" -name veltbaseutil.pc)")
  configure "$hosts" "$scratch/find_package_$2" -DCMAKE_PREFIX_PATH="$1"
  quietly cmake --build "$scratch/find_package_$2"
  try "$scratch/find_package_$2/host" find_package "$2"
  configure "$log_hosts" "$scratch/log_find_package_$2" -DCMAKE_PREFIX_PATH="$1"
  quietly cmake --build "$scratch/log_find_package_$2"
  try "$scratch/log_find_package_$2/log_host" 'find_package of the component log' "$2"

  if [[ $2 == static ]]; then how=(--static); fi
  read -ra flags <<<"$(PKG_CONFIG_PATH=$pkg_config_path pkg-config "${how[@]}" --cflags --libs veltbaseutil)"
  for compiler in "${compilers[@]}"; do
    quietly "$compiler" -std=c++17 -O0 "$hosts/host.cpp" -o "$scratch/pkg_config_$2" "${flags[@]}"
    LD_LIBRARY_PATH=${pkg_config_path%/pkgconfig} try "$scratch/pkg_config_$2" "pkg-config with ${compiler##*/}" "$2"
    quietly "$compiler" -std=c++17 -O0 "$hosts/channel_host.cpp" -o "$scratch/channel_$2" "${flags[@]}"
    LD_LIBRARY_PATH=${pkg_config_path%/pkgconfig} try "$scratch/channel_$2" pkg-config "$2"
  done
  read -ra flags <<<"$(PKG_CONFIG_PATH=$pkg_config_path pkg-config "${how[@]}" --cflags --libs veltbaseutil-log)"
  for compiler in "${compilers[@]}"; do
    quietly "$compiler" -std=c++17 -O0 "$log_hosts/log_host.cpp" -o "$scratch/log_pkg_config_$2" "${flags[@]}"
    LD_LIBRARY_PATH=${pkg_config_path%/pkgconfig} \
      try "$scratch/log_pkg_config_$2" "pkg-config of veltbaseutil-log with ${compiler##*/}" "$2"
  done
}

# Two hosts whose CMakeLists.txt has these lines, and the library in its directory veltbaseutil: `host`, and `log_host`,
# which is of velt/log.h.
write_hosts() { # NAME LINES
  mkdir "$scratch/$1"
  ln -s "$source_directory" "$scratch/$1/veltbaseutil"
  cp "$hosts/host.cpp" "$log_hosts/log_host.cpp" "$scratch/$1"
  printf '%s\n' 'cmake_minimum_required(VERSION 3.25)' 'project(host LANGUAGES CXX)' 'add_executable(host host.cpp)' \
    "$2" 'add_executable(log_host log_host.cpp)' 'target_link_libraries(log_host PRIVATE veltbaseutil::log)' \
    >"$scratch/$1/CMakeLists.txt"
}
build_hosts() { # NAME shared|static SETTING...
  local build=$scratch/$1/$2 extra
  configure "$scratch/$1" "$build" "${@:3}"
  extra=$(cmake --build "$build" --target help | grep -E '_test:|veltpipe:|veltcfg:|service_host:' || true)
  [[ -z $extra ]] || fail "$1, $2: the host's build has $extra"
  quietly cmake --build "$build" -j "$jobs"
}

# --- installed, shared ---

quietly cmake --install "$build" --prefix "$scratch/shared"
cp "$build/install_manifest.txt" "$scratch/" 2>/dev/null || fail 'the installation left no list of its files'
find_package_and_pkg_config "$scratch/shared" shared

# --- in the host's own build; the installed static library is that of the first of them ---

by_subdirectory='add_subdirectory(veltbaseutil)
target_link_libraries(host PRIVATE veltbaseutil::veltbaseutil)'
lines=$(sed -n '/^```cmake$/,/^```$/p' "$source_directory/README.md" | sed '/^```/d')
[[ $lines == *FetchContent_MakeAvailable* && $(wc -l <<<"$lines") -eq 4 ]] ||
  fail "README.md has not the four lines of CMake for FetchContent: $lines"

write_hosts add_subdirectory "$by_subdirectory"
write_hosts FetchContent "$lines"
for kind in static shared; do
  setting=() # shared is the default
  if [[ $kind == static ]]; then setting=(-DBUILD_SHARED_LIBS=OFF); fi
  build_hosts add_subdirectory "$kind" -DVELT_INSTALL=ON "${setting[@]}"
  build_hosts FetchContent "$kind" "${setting[@]}"
  for way in add_subdirectory FetchContent; do
    for program in host log_host; do try "$scratch/$way/$kind/$program" "$way, $program" "$kind"; done
  done
done
quietly cmake --install "$scratch/add_subdirectory/static" --prefix "$scratch/static"
find_package_and_pkg_config "$scratch/static" static

# --- the headers ---

# Of one compiler and its settings; in parallel with the others.
check_headers() { # SETTING...
  "$@" -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror -fsyntax-only "${flags[@]}" "$hosts/headers.cpp" 2>&1 ||
    { echo "failed: $*"; return 1; }
}
read -ra flags <<<"$(PKG_CONFIG_PATH=$(dirname "$(find "$scratch/shared" -name veltbaseutil.pc)") \
  pkg-config --cflags veltbaseutil)"
started=()
for compiler in "${compilers[@]}"; do
  for standard in c++17 c++20 c++2b; do
    check_headers "$compiler" "-std=$standard" &
    started+=($!)
  done
  check_headers "$compiler" -std=c++17 -fno-exceptions -fno-rtti &
  started+=($!)
done
for process in "${started[@]}"; do wait "$process" || fail 'the headers do not hold in every host'; done

# --- uninstalled ---

cmake -D BUILD_DIRECTORY="$scratch" -P "$source_directory/cmake/Uninstall.cmake" >"$scratch/output" 2>&1
left=$(find "$scratch/shared" ! -type d -o -name '*velt*')
[[ -z $left ]] || fail "uninstalled, and there is still: $left"
