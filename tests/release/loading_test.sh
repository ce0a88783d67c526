#!/usr/bin/env bash
# Loads the library, or a plug-in that is linked with it, into a program that was built without it.
#
#   loading_test.sh dlopen LIBRARY PROGRAM    a program in C that calls dlopen
#   loading_test.sh ctypes LIBRARY PYTHON     a Python interpreter
#   loading_test.sh plugin PLUGIN PROGRAM     the same program; its threads trace through the plug-in
#   loading_test.sh bytes LIBRARY             loads nothing: the size of the thread_local variables
set -euo pipefail
export LC_ALL=C

case $1 in
  dlopen) "$3" "$2" ;;
  ctypes)
    "$3" -c 'import ctypes, sys
library = ctypes.CDLL(sys.argv[1])
sys.exit(library._Z13VeltAppIsExitv() & 1)' "$2"
    ;;
  plugin)
    scratch=$(mktemp -d)
    trap 'rm -rf "$scratch"' EXIT
    unset APP_ROOT COMMON_LIB_PATH
    _APP_LOG_DIR=$scratch "$3" "$2" TraceIntoPlugin "$scratch"
    traced=$(cat "$scratch"/plugin*.log | grep -c 'traced by a thread of the program')
    ends=$(cat "$scratch"/plugin*.log | grep -cE 'thread [0-7] ends')
    [[ $traced == 8000 && $ends == 8 ]] || { echo "$traced records of 8000, $ends last words of 8"; exit 1; }
    ;;
  bytes)
    # The C library keeps 1,664 bytes ready for libraries that are loaded late, shared by all of them.
    bytes=$(($(readelf -lW "$2" | awk '$1 == "TLS" { print $6 }')))
    echo "$bytes bytes of thread_local variables"
    ((bytes > 0 && bytes < 256))
    ;;
  *) exit 2 ;;
esac
