# shellcheck shell=bash
# Sourced by the scripts that check: shows the output of a step only when it fails.

# quietly NAME COMMAND...: the output goes into $logs/<prefix>NAME.log, where the prefix is $log_prefix if that is set. Its
# end is shown when the command fails, and the script ends. $logs is the directory of the script that sources this.
# shellcheck disable=SC2154
quietly() {
  local name=$1 start=$SECONDS
  local log=$logs/${log_prefix:-}${name// /-}.log
  shift
  printf '== %s' "$name"
  if ! "$@" >"$log" 2>&1; then
    printf ': FAILED\n'
    tail -n 100 "$log"
    exit 1
  fi
  printf ' (%d s)\n' $((SECONDS - start))
}
