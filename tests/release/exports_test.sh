#!/bin/bash
# Compares what the library exports with the list of what it is meant to export: the two are equal, name for name.
#
#   exports_test.sh LIBRARY LIST    exit 1 with the differences when they differ
#   exports_test.sh --print LIBRARY what the library exports now, in the form of the list
#
# A line of the list is a demangled name with shortened standard types. Blank lines and lines that begin with "#" are
# comments.
set -euo pipefail
export LC_ALL=C

shorten() {
  sed -E \
    -e 's/std::__cxx11::basic_string<char, std::char_traits<char>, std::allocator<char> ?>/std::string/g' \
    -e 's/std::basic_([io])fstream<char, std::char_traits<char> ?>/std::\1fstream/g' \
    -e 's/, std::less<std::string ?>, std::allocator<std::pair<std::string const, (std::string|std::pair<std::bitset<32ul>, std::bitset<32ul> ?>) ?> ?> ?>/>/g' \
    -e 's/bitset<32ul>/bitset<32>/g' -e 's/> >/>>/g' -e 's/ >/>/g' -e 's/\[abi:cxx11\]//g'
}

# The one absolute symbol is the name of the version that all others bear.
exported() {
  nm -DC --defined-only --without-symbol-versions "$1" | sed -E -e '/^[0-9a-f]+ A /d' -e 's/^[0-9a-f]+ . //' | shorten |
    sort -u
}

if [[ $# -eq 2 && $1 == --print ]]; then
  exported "$2"
  exit 0
fi
if [[ $# -ne 2 || ! -r $1 || ! -r $2 ]]; then
  echo "usage: $0 LIBRARY LIST | --print LIBRARY" >&2
  exit 2
fi

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
exported "$1" > "$scratch/exported"
sed -e '/^#/d' -e '/^[[:space:]]*$/d' "$2" | sort -u > "$scratch/listed"

failed=0
report() {  # title, file of names
  [[ -s $2 ]] || return 0
  echo "$1"
  sed 's/^/  /' "$2"
  failed=1
}

[[ -s $scratch/exported ]] || { echo "nothing is exported at all"; exit 1; }
comm -23 "$scratch/exported" "$scratch/listed" > "$scratch/unlisted"
comm -13 "$scratch/exported" "$scratch/listed" > "$scratch/missing"
report "exported, but not in the list:" "$scratch/unlisted"
report "in the list, but not exported:" "$scratch/missing"
exit "$failed"
