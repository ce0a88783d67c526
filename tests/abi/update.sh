#!/usr/bin/env bash
# Renews libveltbaseutil.abi, what abi_test.sh compares the library with. For a release that hosts are rebuilt for.
#
#   update.sh [BUILD_DIRECTORY]    build/release unless given; it is built first
set -euo pipefail
cd "$(dirname "$0")/../.."
build=${1:-build/release}
baseline=tests/abi/libveltbaseutil.abi
# shellcheck source=tests/abi/abidw.sh
. tests/abi/abidw.sh

if [[ ! -f $build/CMakeCache.txt ]]; then cmake --preset release -B "$build" >/dev/null; fi
cmake --build "$build" --target veltbaseutil >/dev/null
write_abi "$build/libveltbaseutil.so" include "$baseline"
if grep -nE "='/" "$baseline"; then
  echo "$baseline names places of this machine" >&2
  exit 1
fi
