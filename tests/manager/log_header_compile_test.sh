#!/usr/bin/env bash
# Which uses of velt/log.h compile, and which do not, in every language standard that hosts use. Each case that must not
# compile differs in one place from a case that does.
#
#   log_header_compile_test.sh SOURCE_DIRECTORY COMPILER...    a compiler that is not installed is left out
set -euo pipefail
export LC_ALL=C
source_directory=$1
shift

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
read -ra flags <<<"$(pkg-config --cflags ACE fmt)"
flags+=(-I "$source_directory/include" -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror -fsyntax-only)

complain() {
  printf '%s\n' "$*" >&2
  touch "$scratch/complaint"
}
compile() {  # STANDARD, the program on standard input
  "$compiler" "-std=c++$1" "${flags[@]}" -x c++ - >"$said" 2>&1
}
passes() {  # STANDARD CODE
  compile "$1" <<<"#include \"velt/log.h\"
$2" || { cat "$said" >&2; complain "$compiler, C++$1: does not compile: $2"; }
}
# The compiler must reject the format, not something else in the program.
refused() {  # STANDARD CODE
  if compile "$1" <<<"#include \"velt/log.h\"
$2"; then
    complain "$compiler, C++$1: compiles: $2"
  elif ! grep -qiE 'format|consteval|constant expression' "$said"; then
    cat "$said" >&2
    complain "$compiler, C++$1: is refused for another reason: $2"
  fi
}
in_main() { printf 'int main() { velt::Module const net("net"); int n = 1; (void)n; %s }' "$1"; }

try() {  # STANDARD
  passes "$1" "$(in_main 'VELT_INFO(net, "{:d}", n); VELT_INFO(net, "{} {}", n, n); VELT_ALERT(net, "none");
    if (n > 0) VELT_ERROR(net, "a"); else VELT_WARNING(net, "b {:>{}}", n, 3);
    net.Info("{:d}", n); net.Log(velt::kInfo, "{} {}", n, n); net.Alert("none"); net.Info(FMT_STRING("{:d}"), n);
    net.Register(velt::UpTo(velt::kInfo), velt::kToFile | velt::kToStandardOutput);')"
  refused "$1" "$(in_main 'VELT_INFO(net, "{:d}", "text");')"
  refused "$1" "$(in_main 'VELT_INFO(net, "{} {}", n);')"
  refused "$1" "$(in_main 'net.Info(FMT_STRING("{:d}"), "text");')"
  [[ $1 != 17 ]] || return 0
  refused "$1" "$(in_main 'net.Info("{:d}", "text");')"
  refused "$1" "$(in_main 'net.Log(velt::kInfo, "{} {}", n);')"
}

tried=0
for compiler in "$@"; do
  command -v "$compiler" >/dev/null || continue
  tried=$((tried + 1))
  for standard in 17 20 2b; do
    said=$scratch/$tried-$standard
    try $standard &
  done
  wait
done
[[ $tried -gt 0 ]] || complain 'there is no compiler to try'
[[ ! -e $scratch/complaint ]]
