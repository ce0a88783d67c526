#!/bin/bash
# Compares the names that the library exports with those of its version script: the two are equal. Parameters are left
# out; the comparison of the ABI looks at them.
#
#   exports_test.sh LIBRARY VERSION_SCRIPT    exit 1 with the differences when they differ
set -euo pipefail
export LC_ALL=C

if [[ $# -ne 2 || ! -r $1 || ! -r $2 ]]; then
  echo "usage: $0 LIBRARY VERSION_SCRIPT" >&2
  exit 2
fi

# The one absolute symbol is the name of the version that all others carry.
exported() {
  nm -DC --defined-only --without-symbol-versions "$1" |
    sed -E -e '/^[0-9a-f]+ A /d' -e 's/^[0-9a-f]+ . //' -e 's/(\[abi:cxx11\])?\(.*//' | sort -u
}
# The names of the version script, without its patterns for parameters; "?" is the blank of an operator's name.
listed() {
  sed -E -e '/^  local:/,$d' -e '/^ +[^ }#].*[^:{]$/!d' -e 's/^ +//' -e 's/"//g' -e 's/;$//' \
    -e 's/(\(\)|(\?std::)?\*)$//' -e 's/\?/ /' "$1" | sort -u
}

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
exported "$1" >"$scratch/exported"
listed "$2" >"$scratch/listed"
[[ -s $scratch/exported ]] || { echo "nothing is exported at all"; exit 1; }

failed=0
report() {  # title, file of names
  [[ -s $2 ]] || return 0
  echo "$1"
  sed 's/^/  /' "$2"
  failed=1
}
comm -23 "$scratch/exported" "$scratch/listed" >"$scratch/unlisted"
comm -13 "$scratch/exported" "$scratch/listed" >"$scratch/missing"
report "exported, but not in the list:" "$scratch/unlisted"
report "in the list, but not exported:" "$scratch/missing"
exit "$failed"
