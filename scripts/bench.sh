#!/usr/bin/env bash
# Installs the loggers to compare with, builds, measures and prints tables; figures are in build/bench-results/.
#
#   scripts/bench.sh                all figures
#   scripts/bench.sh a c            these only (what each is: bench/figures.py)
#   scripts/bench.sh --rounds 7     more rounds than 5
#   scripts/bench.sh --quick        one round of small counts: whether everything works, not how fast it is
#   scripts/bench.sh micro          single steps of a trace call instead (arguments: those of Google Benchmark)
#   scripts/bench.sh tables         prints the tables of the last figures again
#   scripts/bench.sh markdown       the same for a document
set -euo pipefail
cd "$(dirname "$0")/.."

case "${1:-}" in
  tables | markdown) exec python3 -B bench/report.py "$1" ;;
esac

scripts/setup.sh python3 libfmt-dev libspdlog-dev liblog4cplus-dev libboost-log-dev libgoogle-glog-dev libbenchmark-dev
echo '== building'
log=$(mktemp)
trap 'rm -f "$log"' EXIT
if ! { cmake --preset bench && cmake --build --preset bench --target benchmarks; } >"$log" 2>&1; then
  tail -n 50 "$log" >&2
  exit 1
fi
if [ "${1:-}" = micro ]; then
  shift
  build/bench/bench/velt_micro "$@"
else
  python3 -B bench/run.py "$@"
fi
