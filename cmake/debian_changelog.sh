#!/usr/bin/env bash
# Writes CHANGELOG.md's versions in the form of a Debian changelog.
#
#   debian_changelog.sh CHANGELOG PACKAGE REVISION MAINTAINER
set -euo pipefail
export LC_ALL=C

changelog=$1 package=$2 revision=$3 maintainer=$4
day=
# A line of Debian's is at most 80 characters long.
entry() { fold -s -w 76 <<<"$2" | sed -E -e "1s/^/$1/" -e '1!s/^/    /' -e 's/ +$//'; }
close() { if [[ -n $day ]]; then printf '\n -- %s  %s\n\n' "$maintainer" "$(date -u -R -d "$day")"; fi; }

while IFS= read -r line; do
  case $line in
    '## '*' - '*)
      close
      day=${line##* - }
      version=${line#'## '}
      printf '%s (%s-%s) unstable; urgency=medium\n\n' "$package" "${version%% - *}" "$revision"
      ;;
    '- '*) entry '  * ' "${line#- }" ;;
    '  '?*) entry '    ' "${line#  }" ;;
  esac
done <"$changelog"
[[ -n $day ]] || { echo "$changelog: no line \"## VERSION - DAY\"" >&2; exit 1; }
close
