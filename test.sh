#!/usr/bin/env bash
# Installs what is missing, builds the library three times (optimised, address and undefined-behaviour sanitizers, thread
# sanitizer) and runs every test in each; checks format and lint. Prints details only of what fails.
set -euo pipefail
cd "$(dirname "$0")"

scripts/setup.sh --tests
jobs=$(nproc)
tests_at_once=$((jobs < 4 ? 16 : jobs * 4))  # many of them wait for a poll or a second
logs=build/logs
mkdir -p "$logs"
. scripts/quietly.sh

build() { cmake --preset "$1" && cmake --build --preset "$1"; }

passed=0
failed=0
run_tests() {
  local preset=$1 start=$SECONDS log=$logs/ctest-$1.log
  shift
  printf '== tests, %s' "$preset"
  "$@" ctest --test-dir "build/$preset" -j "$tests_at_once" --output-on-failure --timeout 300 >"$log" 2>&1 || true
  local summary
  summary=$(grep -E '^[0-9]+% tests passed, [0-9]+ tests failed out of [0-9]+' "$log" || true)
  if [ -z "$summary" ]; then
    printf ': ctest did not finish\n'
    tail -n 50 "$log"
    exit 1
  fi
  local bad total
  bad=$(sed -E 's/.* ([0-9]+) tests failed out of ([0-9]+).*/\1/' <<<"$summary")
  total=$(sed -E 's/.* ([0-9]+) tests failed out of ([0-9]+).*/\2/' <<<"$summary")
  passed=$((passed + total - bad))
  failed=$((failed + bad))
  printf ': %d of %d passed (%d s)\n' $((total - bad)) "$total" $((SECONDS - start))
  if [ "$bad" -ne 0 ]; then grep -vE '^ *[0-9]+/[0-9]+ Test .* Passed|^ +Start +[0-9]+:' "$log" | tail -n 300; fi
}

# Kernels with 32 random bits of address space are too many for the thread sanitizer's runtime.
without_random_addresses=()
setarch -R true 2>/dev/null && without_random_addresses=(setarch -R)

sources() { git ls-files -co --exclude-standard '*.cpp' '*.h'; }
format_holds() { sources | xargs clang-format --dry-run -Werror; }
lint_holds() {
  # Without the tests: what they compile with a precompiled header, and what is optimised at link time, is for g++ alone.
  cmake -S . -B build/tidy -G Ninja -DCMAKE_BUILD_TYPE=Debug -DVELT_BUILD_TESTS=OFF -DCMAKE_EXPORT_COMPILE_COMMANDS=ON &&
    sources | grep -E '^(platform|config|debug|process|tools)/.*\.cpp$' |
    xargs -P "$jobs" -n 3 clang-tidy -p build/tidy --quiet
}

# Format and lint are those of one version: another version formats differently. NAME PROGRAM COMMAND
with_version_14() {
  local version
  version=$("$2" --version | grep -oE 'version [0-9.]+')
  case $version in
    'version 14.'*) quietly "$1" "$3" ;;
    *) printf '== %s: skipped, it is checked with %s 14, and this is %s\n' "$1" "$2" "$version" ;;
  esac
}

with_version_14 'format' clang-format format_holds
quietly 'build release' build release
quietly 'build asan' build asan
quietly 'build tsan' "${without_random_addresses[@]}" bash -c 'cmake --preset tsan && cmake --build --preset tsan'
run_tests release
run_tests asan
run_tests tsan "${without_random_addresses[@]}"
with_version_14 'lint' clang-tidy lint_holds

echo
echo "$passed passed, $failed failed"
[ "$failed" -eq 0 ]
