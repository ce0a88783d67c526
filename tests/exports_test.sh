#!/bin/bash
# Compares what the library exports with the list of what it is meant to export.
#
#   exports_test.sh LIBRARY LIST    exit 1 with the differences when they differ
#   exports_test.sh --print LIBRARY what the library exports now, in the form of the list
#
# A line of the list is a demangled name with shortened standard types. A leading "?" marks a name that may be absent:
# an inline function of an exported class, which only some compilers and build types emit. Blank lines and lines that
# begin with "#" are comments. Weak copies of the standard library's and ACE's own inlines are no part of the list.
set -euo pipefail
export LC_ALL=C

shorten() {
  sed -E \
    -e 's/std::__cxx11::basic_string<char, std::char_traits<char>, std::allocator<char> ?>/std::string/g' \
    -e 's/std::basic_([io])fstream<char, std::char_traits<char> ?>/std::\1fstream/g' \
    -e 's/, std::less<std::string ?>, std::allocator<std::pair<std::string const, (std::string|std::pair<std::bitset<32ul>, std::bitset<32ul> ?>) ?> ?> ?>/>/g' \
    -e 's/bitset<32ul>/bitset<32>/g' -e 's/> >/>>/g' -e 's/ >/>/g' -e 's/\[abi:cxx11\]//g'
}

# Type letter and name of each exported symbol. A sanitizer's own marks are not the library's.
exported() {
  nm -DC --defined-only "$1" | sed -E 's/^[0-9a-f]+ //' | shorten | { grep -v '^[A-Za-z] __odr_asan' || true; }
}

# Names that count: everything strong, and of the weak ones those of this library.
own_names() {
  exported "$1" | awk '
    {
      type = $1
      name = substr($0, 3)
      if (type ~ /[WVvu]/) {
        entity = name
        sub(/^((construction )?vtable|typeinfo( name)?|VTT|guard variable|non-virtual thunk) (for|to) /, "", entity)
        while (gsub(/<[^<>]*>/, "", entity)) {}  # what a template of the standard library is made for does not count
        sub(/operator.*/, "operator", entity)
        sub(/\(.*/, "", entity)
        sub(/^.*[ *&]/, "", entity)  # a result type
        if (entity ~ /^((std|__gnu_cxx)::|ACE($|_|::))/) next
        if (entity == "operator" && name ~ /operator (new|delete)|\((std::|ACE_)/) next
      }
      print name
    }' | sort -u
}

if [[ $# -eq 2 && $1 == --print ]]; then
  own_names "$2"
  exit 0
fi
if [[ $# -ne 2 || ! -r $1 || ! -r $2 ]]; then
  echo "usage: $0 LIBRARY LIST | --print LIBRARY" >&2
  exit 2
fi

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
own_names "$1" > "$scratch/exported"
{ grep -v -e '^#' -e '^[[:space:]]*$' "$2" || true; } > "$scratch/list"
{ grep -v '^?' "$scratch/list" || true; } | sort -u > "$scratch/required"
sed 's/^? *//' "$scratch/list" | sort -u > "$scratch/allowed"

failed=0
report() {  # title, file of names
  [[ -s $2 ]] || return 0
  echo "$1"
  sed 's/^/  /' "$2"
  failed=1
}

[[ -s $scratch/exported ]] || { echo "nothing is exported at all"; exit 1; }
comm -23 "$scratch/exported" "$scratch/allowed" > "$scratch/unlisted"
comm -13 "$scratch/exported" "$scratch/required" > "$scratch/missing"
exported "$1" | sed 's/^..//' | { grep -E '(^|[: ])(memcpy|memmove|memset|strncpy|v?snprintf)_s($|\()' || true; } \
  > "$scratch/colliding"
report "exported, but not in the list:" "$scratch/unlisted"
report "in the list, but not exported:" "$scratch/missing"
report "names that may collide with a host's own:" "$scratch/colliding"
exit "$failed"
