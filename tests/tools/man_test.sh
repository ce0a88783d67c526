#!/usr/bin/env bash
# Compares the manual pages with the programs: every option of --help is in the page and the other way round, every
# word for a finding is explained, and the limits in the pages and in the operators' table are those of veltcfg.
#
#   man_test.sh SOURCE_DIRECTORY DIRECTORY_OF_PROGRAMS
#
# Where mandoc is installed, the pages are linted too. Exit 1 when something differs.
set -euo pipefail

if [[ $# -ne 2 || ! -d $1/docs/man || ! -x $2/veltcfg ]]; then
  echo "usage: $0 SOURCE_DIRECTORY DIRECTORY_OF_PROGRAMS" >&2
  exit 2
fi
source_directory=$1
programs=$2
pages=$source_directory/docs/man
failed=0

complain() {
  echo "$1" >&2
  failed=1
}

# same WHAT ONE OTHER: two sorted lists, neither of them empty.
same() {
  [[ -n $2 && -n $3 ]] || complain "$1: nothing was found to compare"
  diff <(printf '%s\n' "$2") <(printf '%s\n' "$3") >&2 || complain "$1 differ"
}

options_of_help() { "$programs/$1" --help | sed -n 's/^  --\([a-z-]*\) .*/\1/p' | sort; }
options_of_page() { sed -n 's/^\.It Fl -\([a-z-]*\).*/\1/p' "$pages/$1.1" | sort; }
options_of_synopsis() {
  sed -n '/^\.Sh SYNOPSIS/,/^\.Sh DESCRIPTION/p' "$pages/$1.1" | grep -o 'Fl -[a-z-]*' | sed 's/Fl -//' | sort
}

for program in veltpipe veltcfg; do
  same "$program: options of --help and page" "$(options_of_help $program)" "$(options_of_page $program)"
  same "$program: options of --help and synopsis" "$(options_of_help $program)" "$(options_of_synopsis $program)"
done

findings_of_page() {
  sed -n '/^\.Sh FINDINGS/,/^\.Sh ENVIRONMENT/p' "$pages/veltcfg.1" | grep '^\.It' | grep -o 'Ic [a-z-]*'
}
findings_of_source() {
  grep -hoE '"[a-z]+(-[a-z]+)+"|"duplicate"|"overridden"' \
    "$source_directory"/tools/veltcfg/{check_*,config_lines,installation,sources}.cpp
}
same 'words of findings in source and page' "$(findings_of_source | tr -d '"' | sort -u)" \
  "$(findings_of_page | sed 's/Ic //' | sort)"

# KEY DEFAULT LOW HIGH of each limit, as veltcfg says it; the size of a file in megabytes, as it is configured.
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
: >"$scratch/empty.cfg"
limits=$(env -u APP_ROOT -u COMMON_LIB_PATH "$programs/veltcfg" --json "$scratch/empty.cfg" |
  jq -r '.limits[] | (if .unit == "bytes" then 1048576 else 1 end) as $unit |
    "\(.key) \(.default / $unit) \(.low / $unit) \(.high / $unit)"' | sort)
[[ $(wc -l <<<"$limits") -eq 5 ]] || complain 'veltcfg does not say five limits'

limits_of_page() {
  awk '/^\.It Ic n/ { key = $3 }
       /^Default [0-9]+, range/ { gsub(/[,.]/, ""); if ($2 == $NF) print key, $2, $4, $6 }' "$pages/velt.cfg.5" | sort
}
limits_of_table() {
  sed -nE 's/^\| `(n[A-Za-z]+)` \| ([0-9]+) \| ([0-9]+) to ([0-9]+) \| ([0-9]+) \|.*/\1 \2 \3 \4 \5/p' \
    "$source_directory/docs/operations.md" | awk '$2 == $5 { print $1, $2, $3, $4 }' | sort
}
limits_of_example() {
  awk '/^#/ { if (match($0, /[0-9]+ to [0-9]+, default [0-9]+/)) said = substr($0, RSTART, RLENGTH) }
       /^n[A-Za-z]+ *=/ { gsub(/,/, "", said); split(said, w, " "); print $1, w[5], w[1], w[3]; said = "" }' \
    "$source_directory/examples/conf/default_debug.cfg" | sort
}
same 'limits of veltcfg and velt.cfg.5' "$limits" "$(limits_of_page)"
same 'limits of veltcfg and operations.md' "$limits" "$(limits_of_table)"
same 'limits of veltcfg and the example' "$limits" "$(limits_of_example)"

# The example has every key, and veltcfg finds nothing in it.
APP_ROOT=$source_directory/examples "$programs/veltcfg" >"$scratch/report" ||
  complain "veltcfg finds fault with examples/conf: $(sed -n '/^Findings/,$p' "$scratch/report")"
grep -q '^Findings: none$' "$scratch/report" || complain 'veltcfg has notes on examples/conf'
if grep '(default)' "$scratch/report" >&2; then complain 'keys are missing in examples/conf'; fi

if command -v mandoc >/dev/null; then
  for page in "$pages"/*; do
    warnings=$(mandoc -Tlint -Wwarning "$page") || true
    [[ -z $warnings ]] || complain "$warnings"
    # A quote within quotes: a macro has taken the macros behind it as its arguments.
    if nested=$(mandoc -Tutf8 "$page" | col -b | grep -E "‘[^’]*‘|’’"); then
      complain "${page##*/} has quotes within quotes: $nested"
    fi
  done
fi
exit "$failed"
