#!/usr/bin/env bash
# Builds the functions that expand hosts' formats with the checked functions of the C library switched on behind every
# option of ours, and expands a %n in a format that can be written to: the process must not end.
#
#   checked_formats_test.sh SOURCE_DIRECTORY COMPILER
set -euo pipefail
source=$1
compiler=$2
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

cat >"$scratch/main.cpp" <<'END'
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "platform/bounded.h"
#include "platform/message_format.h"

#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"

static int Expand(char* buffer, std::size_t capacity, char const* format, ...) {
  std::va_list args;
  va_start(args, format);
  int const kept = velt::FormatMessage(buffer, capacity, format, args);
  va_end(args);
  return kept;
}

int main() {
  char format[] = "abc%nde";
  char message[16] = "";
  char bounded[16] = "";
  int first = 0;
  int second = 0;
  bool const expanded = Expand(message, sizeof message, format, &first) == 5 &&
                        velt::snprintf_s(bounded, sizeof bounded, 15, format, &second) == 5;
  if (!expanded || first != 3 || second != 3 || std::strcmp(message, bounded) != 0) return 1;
  return std::puts(message) < 0 ? 2 : 0;
}
END

for level in 2 3; do
  "$compiler" -std=c++17 -O2 -U_FORTIFY_SOURCE "-Wp,-D_FORTIFY_SOURCE=$level" -I"$source" -I"$source/include" \
    "$scratch/main.cpp" "$source"/platform/{bounded,format_fields,message_format}.cpp -o "$scratch/main"
  result=0
  text=$("$scratch/main") || result=$?
  if [ "$result" -ne 0 ] || [ "$text" != abcde ]; then
    echo "_FORTIFY_SOURCE=$level: ended with $result, printed '$text'"
    exit 1
  fi
done
