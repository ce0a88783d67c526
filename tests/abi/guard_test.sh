#!/usr/bin/env bash
# Shows that abi_test.sh finds changes that break hosts: links the library with one source changed, and runs it on that.
#
#   guard_test.sh SOURCE_DIRECTORY COMPILER OBJECT...    the objects of the library
set -euo pipefail
export LC_ALL=C
source_directory=$1 compiler=$2
shift 2
objects=("$@")

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
fail() {
  printf '%s\n' "$*" >&2
  exit 1
}
read -ra ace <<<"$(pkg-config --cflags --libs ACE)"

# A copy of the files that a variant may change: the public headers, one room of sources, the version script.
start() {  # VARIANT
  variant=$scratch/$1
  mkdir "$variant"
  cp -r "$source_directory/include" "$source_directory/process" "$source_directory/cmake/veltbaseutil.map" "$variant"
}
change() {  # FILE SED_SCRIPT
  cp "$variant/$1" "$scratch/before"
  sed -i "$2" "$variant/$1"
  if cmp -s "$variant/$1" "$scratch/before"; then fail "nothing to change in $1: $2"; fi
}
# Compiles the copied sources named, and links them with the library's other objects.
link() {  # SOURCE...
  local others=() object source
  for object in "${objects[@]}"; do
    for source in "$@"; do
      if [[ $object == */process/$source.o ]]; then continue 2; fi
    done
    others+=("$object")
  done
  [[ ${#others[@]} -eq $((${#objects[@]} - $#)) ]] || fail "not among the objects: $*"
  printf '%s\0' "$@" | xargs -0 -P 2 -I '{}' "$compiler" -std=c++17 -O0 -g -femit-class-debug-always -fPIC \
    -fvisibility=hidden -fvisibility-inlines-hidden -I"$variant/include" -I"$source_directory" "${ace[@]}" \
    -c "$variant/process/{}" -o "$variant/{}.o"
  "$compiler" -shared -fno-lto -o "$variant/libveltbaseutil.so" -Wl,-soname,libveltbaseutil.so.1 \
    -Wl,--version-script="$variant/veltbaseutil.map" "${others[@]}" "$variant"/*.o "${ace[@]}" -lz
}
# The exit code of abi_test.sh: 0 the same or compatible; 4 a change; 12 one that surely breaks hosts.
verdict() {
  local answer=0
  "$(dirname "$0")/abi_test.sh" "$variant/libveltbaseutil.so" "$variant/include" "$scratch/baseline" \
    >"$variant/answer" || answer=$?
  echo "$answer"
}
expect() {  # VERDICT PHRASE
  local answer
  answer=$(verdict)
  if [[ $answer -eq $1 ]] && { [[ -z $2 ]] || grep -qF "$2" "$variant/answer"; }; then return 0; fi
  cat "$variant/answer"
  fail "${variant##*/}: the answer is $answer, and should be $1 with \"$2\""
}

# shellcheck source=tests/abi/abidw.sh
. "$(dirname "$0")/abidw.sh"
services=$(cd "$source_directory/process" && printf '%s\n' *.cpp)

# The others are compared with the unchanged source.
start unchanged
link service_wait.cpp
write_abi "$variant/libveltbaseutil.so" "$variant/include" "$scratch/baseline"
expect 0 ''

start removed_function
change process/service_wait.cpp '/^void VeltsvcdServiceExit()/d'
link service_wait.cpp
expect 12 'VeltsvcdServiceExit'

start grown_class
change include/velt/process.h 's/^  velt::ServiceWaitState\* m_pState;/  long m_nGrown = 0;\n&/'
# shellcheck disable=SC2086  # one word for each source
link $services
expect 4 'm_nGrown'

start added_function
change include/velt/process.h 's/^VELT_EXPORT void VeltsvcdServiceExit();/&\nVELT_EXPORT void VeltAdded();/'
change process/service_wait.cpp '/^void VeltsvcdServiceExit()/a void VeltAdded() {}'
change veltbaseutil.map 's/^ *VeltsvcdServiceExit\*;/&\n VeltAdded*;/'
link service_wait.cpp
[[ $(nm -D --defined-only "$variant/libveltbaseutil.so") == *VeltAdded* ]] || fail "the added function is not exported"
expect 0 ''
