#!/usr/bin/env bash
# Compares the library's ABI with the baseline: nothing that hosts were built with may be missing or have another
# layout. New names are allowed. update.sh renews the baseline.
#
#   abi_test.sh LIBRARY HEADERS BASELINE
#
# Exit 0: compatible. 4: something changed; 12: something is missing. The differences are on standard output.
set -euo pipefail
# shellcheck source=tests/abi/abidw.sh
. "$(dirname "$0")/abidw.sh"

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
write_abi "$1" "$2" "$scratch/current"
abidiff --no-added-syms "$3" "$scratch/current"
