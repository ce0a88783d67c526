#!/usr/bin/env bash
# The load run at its full scale: 20 million records of 64 producers in some six minutes, and a check of all files. Its
# samples are build/campaign/load.csv, its figures build/campaign/load.txt; --picture redraws docs/figures/load.svg from them.
set -euo pipefail
cd "$(dirname "$0")/../.."

case ${1:-} in
  '' | --picture) ;;
  *)
    echo "usage: $0 [--picture]" >&2
    exit 2
    ;;
esac

scripts/setup.sh
out=build/campaign
mkdir -p "$out"
if ! { cmake --preset release && cmake --build --preset release --target load_run; } >"$out/build-load.log" 2>&1; then
  tail -n 100 "$out/build-load.log"
  exit 1
fi
VELT_FAULT_SCALE=full build/release/tests/load/load_run "$out/load.csv" | tee "$out/load.txt"
if [ "${1:-}" = --picture ]; then python3 tests/load/plot.py "$out/load.csv" docs/figures/load.svg; fi
