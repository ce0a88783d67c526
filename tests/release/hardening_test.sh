#!/usr/bin/env bash
# Looks at built programs and libraries for what the hardened build gives them.
#
#   hardening_test.sh [--checked-calls] FILE...
#
# With --checked-calls each file has to call at least one checked function of the C library; some compilers do not
# know how to replace the calls of C++ programs.
set -euo pipefail
export LC_ALL=C

checked_calls=false
if [[ ${1-} == --checked-calls ]]; then
  checked_calls=true
  shift
fi
[[ $# -gt 0 ]] || { echo "usage: $0 [--checked-calls] FILE..." >&2; exit 2; }

failed=0
complain() {
  printf '%s: %s\n' "$file" "$1"
  failed=1
}

for file in "$@"; do
  dynamic=$(readelf -dW "$file")
  segments=$(readelf -lW "$file")
  needed=$(nm -D --undefined-only --without-symbol-versions "$file" | awk '{ print $NF }')
  grep -qE '\(FLAGS\).*BIND_NOW' <<<"$dynamic" || complain "relocated lazily"
  grep -q GNU_RELRO <<<"$segments" || complain "relocations stay writable"
  grep -qE 'GNU_STACK( +0x[0-9a-f]+){5} RW ' <<<"$segments" || complain "executable stack"
  grep -qx __stack_chk_fail <<<"$needed" || complain "no stack protector"
  if $checked_calls; then
    grep -qE '^__[a-z]+_chk$' <<<"$needed" || complain "calls no checked function"
  fi
  if grep -qE ' INTERP ' <<<"$segments"; then
    grep -qE '\(FLAGS_1\).*PIE' <<<"$dynamic" || complain "loaded at a fixed address"
  else
    grep -q '(SONAME)' <<<"$dynamic" || complain "neither a program nor a library"
  fi
done
exit "$failed"
