#!/bin/bash
# Builds the documentation of the public API: a declaration without a comment, or a reference to nowhere, is an error.
#
#   doxygen_test.sh SOURCE_DIRECTORY
set -euo pipefail

if [[ $# -ne 1 || ! -f $1/docs/tools/Doxyfile ]]; then
  echo "usage: $0 SOURCE_DIRECTORY" >&2
  exit 2
fi
cd "$1"
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

{
  cat docs/tools/Doxyfile
  echo "OUTPUT_DIRECTORY = $scratch"
} | doxygen -

for class in VeltDebugMgr VeltDebugInfo VeltDebugEngine OutDataUnit AsnType; do
  [[ -s $scratch/html/class$class.html ]] || {
    echo "no page for class $class"
    exit 1
  }
done
