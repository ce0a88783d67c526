#!/usr/bin/env bash
# Builds the fuzz targets with clang (address and undefined-behaviour sanitizers) and runs them against their models.
#
#   fuzz/run.sh [full]        10,000,000 executions of each parser, 100,000 directories, 3,000 channels and programs
#   fuzz/run.sh short         a few seconds of each
#   fuzz/run.sh NAME [RUNS]   one target
#
# Two targets at a time; those that mostly wait for output threads run beside them. Prints a line for each target, and
# ends with 1 when there was a finding: its input and log are then in build/fuzz/findings. Every run begins with the
# seeds; what it learns is in build/fuzz/learned.
set -euo pipefail
cd "$(dirname "$0")/.."

findings=build/fuzz/findings
computing=(config_lines config_lookup bit_set_text env_reference frame directory_listing)
waiting=(channel_messages life_cycle)

# For each target: executions in a full run and in a short one, longest input, processes.
plan() {
  case $1 in
    config_lines | config_lookup | bit_set_text) echo 10000000 50000 96 1 ;;
    env_reference | frame) echo 10000000 200000 300 1 ;;
    directory_listing) echo 100000 2000 512 1 ;;
    channel_messages | life_cycle) echo 3000 32 1024 4 ;;
    *) return 1 ;;
  esac
}

# fuzz NAME LOG RUNS LONGEST: one process.
fuzz() {
  local name=$1 log=$2 runs=$3 longest=$4
  local learned=build/fuzz/learned/$log dictionary=fuzz/dictionary/$name.dict options=()
  rm -rf "$learned"
  mkdir -p "$learned"
  if [ -f "$dictionary" ]; then options+=("-dict=$dictionary"); fi
  # Freed memory is not filled and soon used again, and stacks are short: these take half of the time otherwise.
  ASAN_OPTIONS=malloc_context_size=4:quarantine_size_mb=1:max_malloc_fill_size=0 \
    "build/fuzz/fuzz/fuzz_$name" -runs="$runs" -max_len="$longest" -entropic=0 -timeout=300 -print_final_stats=1 \
    "${options[@]}" -artifact_prefix="$findings/$log-" "$learned" "fuzz/corpus/$name" >"$findings/$log.log" 2>&1
}

# Short inputs are fast and find most; one in fifty is long.
fuzz_target() {
  local name=$1 runs=$2 longest=$3 processes=$4 failed=0 process started=()
  rm -f "$findings/$name"[.-]*
  local long=0
  if [ "$longest" -lt 100 ]; then
    long=$((runs / 50))
    fuzz "$name" "$name-long" "$long" 2048 || failed=1
  fi
  for ((process = 1; process <= processes; process++)); do
    fuzz "$name" "$name-$process" $(((runs - long + processes - 1) / processes)) "$longest" &
    started+=($!)
  done
  for process in "${started[@]}"; do wait "$process" || failed=$((failed + 1)); done

  local executions
  executions=$(sed -nE 's/^stat::number_of_executed_units: *//p' "$findings/$name"-*.log |
    awk '{ sum += $1 } END { print sum + 0 }')
  echo "FIGURE target=$name executions=$executions findings=$failed"
  [ "$failed" -eq 0 ] && return
  grep -hE '^FINDING|ERROR: |runtime error|^SUMMARY|Test unit written' "$findings/$name"-*.log ||
    tail -n 20 "$findings/$name"-*.log
  return 1
}

build() {
  cmake -S . -B build/fuzz -G Ninja -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_BUILD_TYPE=Debug \
    -DCMAKE_CXX_FLAGS_DEBUG='-O2 -g1' -DVELT_SANITIZE=address,undefined -DVELT_BUILD_FUZZ=ON -DVELT_BUILD_TESTS=OFF \
    -DVELT_BUILD_EXAMPLES=OFF && cmake --build build/fuzz --target fuzz_targets
}

# One target, in a process of its own for the runs side by side below.
if [ "${1:-}" = --target ]; then
  fuzz_target "${@:2}"
  exit
fi

mode=${1:-full}
runs=${2:-}
case $mode in
  full | short) ;;
  *)
    if ! plan "$mode" >/dev/null; then
      echo "usage: fuzz/run.sh [full|short|TARGET [RUNS]], with a target of: ${computing[*]} ${waiting[*]}" >&2
      exit 2
    fi
    for name in "${computing[@]}"; do [ "$name" = "$mode" ] && computing=("$mode") waiting=(); done
    for name in "${waiting[@]}"; do [ "$name" = "$mode" ] && computing=() waiting=("$mode"); done
    ;;
esac

scripts/setup.sh clang libclang-rt-14-dev
mkdir -p build/logs "$findings"
if ! build >build/logs/fuzz-build.log 2>&1; then
  tail -n 60 build/logs/fuzz-build.log
  exit 1
fi

# lines_of NAME...: a line for each, the arguments of fuzz_target.
lines_of() {
  local name full short longest processes
  for name in "$@"; do
    read -r full short longest processes < <(plan "$name")
    if [ "$mode" = short ]; then full=$short; fi
    echo "$name ${runs:-$full} $longest $processes"
  done
}

# A process with a finding leaves its files here; the directory is removed at the end.
place=/tmp
[ -w /dev/shm ] && place=/dev/shm
TMPDIR=$(mktemp -d -p "$place" velt_fuzz_XXXXXX)
export TMPDIR
trap 'rm -rf "$TMPDIR"' EXIT

failed=0
lines_of "${waiting[@]}" | xargs -r -P 2 -L 1 fuzz/run.sh --target &
lines_of "${computing[@]}" | xargs -r -P 2 -L 1 fuzz/run.sh --target || failed=1
wait $! || failed=1
exit "$failed"
