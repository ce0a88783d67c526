#!/usr/bin/env bash
# Installs what building needs, where the machine lacks it. Quiet when nothing is missing.
#
#   setup.sh [--tests] [PACKAGE...]    --tests: and what the tests need; and these packages
set -euo pipefail

packages=(g++ cmake ninja-build pkg-config dpkg-dev file libace-dev zlib1g-dev libisal-dev libfmt-dev nlohmann-json3-dev
  libgtest-dev libgmock-dev)
if [ "${1:-}" = --tests ]; then
  shift
  packages+=(abigail-tools ccache clang-format clang-tidy doxygen git jq libfaketime lintian lnav mandoc python3 rsyslog)
fi
packages+=("$@")

missing=()
for package in "${packages[@]}"; do
  dpkg-query -W -f '${db:Status-Status}\n' "$package" 2>/dev/null | grep -qx installed || missing+=("$package")
done
[ ${#missing[@]} -eq 0 ] && exit 0

as_root=()
if [ "$(id -u)" -ne 0 ]; then as_root=(sudo); fi
log=$(mktemp)
trap 'rm -f "$log"' EXIT
install() { "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends "${missing[@]}"; }

echo "== installing ${missing[*]}"
# An old package list names versions that are gone, so it is renewed before the first attempt.
if ! { "${as_root[@]}" apt-get update && install; } >"$log" 2>&1; then
  tail -n 30 "$log" >&2
  exit 1
fi
