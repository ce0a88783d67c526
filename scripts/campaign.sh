#!/usr/bin/env bash
# Every fault scenario at its full scale: thousands of kills, forks and refused calls. Prints the figures that the
# scenarios report, keeps them in build/campaign/figures.csv, and ends with the counts of passed and failed.
# scripts/campaign.sh NAME... runs the scenarios of these files of tests/faults (kill, write_fault, ...) only,
# scripts/campaign.sh fuzz and scripts/campaign.sh load run the fuzzers and the load runs.
set -euo pipefail
cd "$(dirname "$0")/.."

case ${1:-} in
  fuzz) exec ./fuzz/run.sh "${@:2}" ;;
  load) exec ./tests/load/run.sh "${@:2}" ;;
esac

scripts/setup.sh jq strace faketime libfaketime
jobs=$(nproc)
out=build/campaign
limit=${VELT_CAMPAIGN_LIMIT:-1200}  # seconds for one scenario
export VELT_FAULT_SCALE=${VELT_FAULT_SCALE:-full}  # "small" tries this script out

rm -rf "$out"
mkdir -p "$out"

# Scenarios that run in the release build only: those that kill a host a thousand times, or preload a library that sets
# the clock.
only_release='^(kill|clock)_test(_zlib)?$'
# What traces as fast as the machine can runs by itself, after the others.
alone='^unpaced_test$'

build() {  # PRESET
  printf '== build %s\n' "$1"
  if ! { cmake --preset "$1" && cmake --build --preset "$1" --target fault_scenarios; } >"$out/build-$1.log" 2>&1; then
    tail -n 100 "$out/build-$1.log"
    exit 1
  fi
}

# Lines "PRESET PROGRAM SUITE.TEST", one scenario each: the test cases that ctest knows by the label faults.
scenarios() {  # PRESET
  ctest --test-dir "build/$1" --show-only=json-v1 -L '^faults$' |
    jq -r '.tests[].command | (.[0] | sub(".*/"; "")) + " " + (.[1] | ltrimstr("--gtest_filter="))' |
    while read -r program test; do
      if [ "$1" != release ] && [[ $program =~ $only_release ]]; then continue; fi
      if [ ${#chosen[@]} -eq 0 ] || [[ " ${chosen[*]} " == *" ${program%_zlib} "* ]]; then echo "$1 $program $test"; fi
    done
}

# One scenario in a process of its own; its log ends with "== RESULT".
run_one() {
  local preset=$1 program=$2 test=$3 log result
  log=$out/$preset-$program-${test//\//_}.log
  if timeout --kill-after=10 "$limit" "build/$preset/tests/faults/$program" --gtest_filter="$test" >"$log" 2>&1; then
    result=passed
    if grep -q '^\[  SKIPPED \]' "$log"; then result=skipped; fi
  else
    result=failed
  fi
  echo "== $result" >>"$log"
  echo "$result $preset $program $test" >>"$out/results"
  case $result in
    passed) sed -nE "s|^FIGURE (.*)|$preset,$program,$test,\1|p" "$log" >>"$out/figures.csv" ;;
    skipped) printf 'SKIPPED %s %s: %s\n' "$preset" "$test" "$(grep -A1 -m1 'Skipped$' "$log" | tail -n 1)" ;;
    failed)
      printf 'FAILED %s %s\n' "$preset" "$test"
      grep -vE '^\[(==|--| RUN)|^Running main|^Note:' "$log" | head -n 60
      ;;
  esac
}
export -f run_one
export out limit

chosen=()
for name in "$@"; do
  name=${name%.cpp}
  chosen+=("${name%_test}_test")
done
build release
for name in "${chosen[@]}"; do
  grep -q "^release $name " <<<"$(scenarios release)" || { echo "no scenarios $name in tests/faults" >&2; exit 2; }
done
build asan
echo 'build,program,scenario,figures' >"$out/figures.csv"
: >"$out/results"
for preset in release asan; do
  start=$SECONDS
  list=$(scenarios "$preset")
  # Three scenarios per core, since they mostly wait.
  awk -v alone="$alone" '$2 !~ alone' <<<"$list" | xargs -r -P $((jobs * 3)) -L 1 bash -c 'run_one "$@"' run_one
  awk -v alone="$alone" '$2 ~ alone' <<<"$list" | xargs -r -L 1 bash -c 'run_one "$@"' run_one
  printf '== scenarios, %s (%d s)\n' "$preset" $((SECONDS - start))
done

echo
awk -F, 'NR > 1 { printf "%-8s %-28s %-100s %s\n", $1, $2, $3, $4 }' "$out/figures.csv" | sort
passed=$(grep -c '^passed' "$out/results" || true)
failed=$(grep -c '^failed' "$out/results" || true)
skipped=$(grep -c '^skipped' "$out/results" || true)
echo
if [ "$skipped" -ne 0 ]; then echo "$skipped skipped, see above"; fi
echo "$passed passed, $failed failed"
[ "$failed" -eq 0 ] && [ "$passed" -ne 0 ]
