#!/usr/bin/env bash
# The lnav format, with lnav 0.11 or 0.12 (77 with another): it installs, its samples hold, and a family of archives and
# one plain file reads as it was traced.
#
# All patterns take the stamp without its year: lnav 0.12 joins a line whose stamp has another form than the one before to
# that line, and 0.11 counts the years of stamps with a year and of those without one differently.
#
#   lnav_test.sh SOURCE_DIRECTORY VELTPIPE SERVICE_HOST
set -euo pipefail

if [[ $# -ne 3 || ! -d $1/share/lnav || ! -x $2 || ! -x $3 ]]; then
  echo "usage: $0 SOURCE_DIRECTORY VELTPIPE SERVICE_HOST" >&2
  exit 2
fi
version=$(lnav -V)
if [[ $version != 'lnav 0.1'[12]* ]]; then
  echo "skipped: the format is for lnav 0.11 and 0.12, and this is $version"
  exit 77
fi
format=$1/share/lnav/veltbaseutil/veltbaseutil_log.json
veltpipe=$2
service_host=$3

scratch=$(mktemp -d)
service=
end() {
  [[ -z $service ]] || kill -KILL "$service" 2>/dev/null || true
  wait
  rm -rf "$scratch"
}
trap end EXIT
mkdir "$scratch/home"
# Everything that lnav keeps of a user is in the scratch directory.
export HOME=$scratch/home XDG_CONFIG_HOME=$scratch/home/config XDG_CACHE_HOME=$scratch/home/cache
export TMPDIR=$scratch TZ=UTC LC_ALL=C.UTF-8 TERM=xterm-256color
mkdir "$XDG_CONFIG_HOME" "$XDG_CACHE_HOME"

fail() {
  echo "$1" >&2
  exit 1
}

# lnav in a directory of settings that holds nothing but the format $1; the rest are its arguments.
with_format() {
  local settings=$scratch/settings.$RANDOM
  mkdir -p "$settings/formats/velt"
  cp "$1" "$settings/formats/velt/"
  lnav -I "$settings" "${@:2}" </dev/null
}

logs=$scratch/log
query() { lnav -n -c ':show-file *' -c ";$1" -c ':write-csv-to -' "$logs" </dev/null; }

expect() {  # what, expected, actual
  diff <(printf '%s\n' "$2") <(printf '%s\n' "$3") >"$scratch/diff" || fail "$1: $(cat "$scratch/diff")"
}

# A run of the pipe is a file; the next run makes an archive of it. Two files need two seconds.
trace() {  # module, level, count
  local -r second=$(date +%s)
  seq -f "$1 message %.0f" "$3" | "$veltpipe" --name viewed_ --dir "$logs" --module "$1" --level "$2"
  while [[ $(date +%s) -le $second ]]; do sleep 0.05; done
}

with_format "$format" -C || fail 'the format or one of its samples does not hold'

# The check must fail on a wrong format.
sed 's/"level": "critical" }/"level": "warning" }/' "$format" >"$scratch/wrong.json"
! cmp -s "$format" "$scratch/wrong.json" || fail 'no sample of a critical record'
! with_format "$scratch/wrong.json" -C >/dev/null 2>&1 || fail 'a sample of the wrong level is not noticed'

lnav -i "$format" </dev/null >"$scratch/install" 2>&1 || fail "cannot be installed: $(cat "$scratch/install")"

trace net 1 40
trace store 2 30
trace sched 3 20
trace net 7 10
trace net 0 5
shopt -s nullglob
archives=("$logs"/*.log.gz)
plain=("$logs"/*.log)
expect 'archives' 4 "${#archives[@]}"
expect 'plain files' 1 "${#plain[@]}"

expect 'records by level and module' 'log_level,module,count(*)
debug,net,10
info,sched,20
warning,store,30
error,net,40
critical,net,5' "$(query 'SELECT log_level, module, count(*) FROM veltbaseutil_log WHERE event IS NULL GROUP BY 1, 2')"

expect 'lines of the channel about itself' 'event,count(*)
Current date&time:,5
File close at ,5
File create at ,5
about to clear,10
after,5' "$(query 'SELECT event, count(*) FROM veltbaseutil_log WHERE event IS NOT NULL GROUP BY 1')"

expect 'files' 'count(DISTINCT log_path)
5' "$(query 'SELECT count(DISTINCT log_path) FROM veltbaseutil_log')"

# Records have no year: it comes from the time of the file.
year=$(basename "${plain[0]}" | cut -c 8-11)
expect 'years' "year
$year" "$(query "SELECT DISTINCT strftime('%Y', log_time) AS year FROM veltbaseutil_log")"

# veltpipe traces from its main thread: the thread id of the records is the process id of the first line.
expect 'threads' 'count(*)
5' "$(query 'SELECT count(*) FROM veltbaseutil_log AS head WHERE head.pid IN
      (SELECT DISTINCT CAST(thread AS INTEGER) FROM veltbaseutil_log WHERE thread IS NOT NULL)')"

expect 'one record, letter for letter' 'log_body
store message 30
thread handle output string exit' "$(query "SELECT log_body FROM veltbaseutil_log
      WHERE module = 'store' AND log_body LIKE 'store message 30%'" | tr -d '"')"

# A file that spans New Year, read years later: its lines about itself have the year of the records beside them.
logs=$scratch/new_year
mkdir "$logs"
printf '%s\n' $'\xef\xbb\xbfFile create at time 2023-12-31 23:59:58. Current ospid is 2084' 'server 1.0' \
  'Current date&time:2023-12-31 23:59:58.745076' '12-31 23:59:58.745076.T2084 net E: before' \
  'Current date&time:2024-01-01 00:00:01.745076' '01-01 00:00:01.745076.T2084 net E: after' \
  'File close at UTC 2024-01-01 00:00:02' >"$logs/server_20231231_235958.log"
touch -d '2024-01-01 00:00:02' "$logs/server_20231231_235958.log"
gzip "$logs/server_20231231_235958.log"
expect 'New Year' 'log_time,module,event
2023-12-31 23:59:58.000,<NULL>,File create at 
2023-12-31 23:59:58.745,<NULL>,Current date&time:
2023-12-31 23:59:58.745,net,<NULL>
2024-01-01 00:00:01.745,<NULL>,Current date&time:
2024-01-01 00:00:01.745,net,<NULL>
2024-01-01 00:00:02.000,<NULL>,File close at ' "$(query 'SELECT log_time, module, event FROM veltbaseutil_log')"

# Two families of one process begin with the same line when they begin in the same second. lnav takes the one for a copy
# of the other and hides it; ":show-file *" brings it back.
"$service_host" "$scratch/root" >"$scratch/service" &
service=$!
tries=0
until grep -qx ready "$scratch/service"; do
  ((++tries < 600)) || fail 'the service is not ready within a minute'
  sleep 0.1
done
kill -TERM "$service"
wait "$service" || fail 'the service did not end in order'
service=
logs=$scratch/root/log
expect 'records of the service' "count(*)
$(sed -nE 's/^traced ([0-9]+) records.*/\1/p' "$scratch/service")" \
  "$(query 'SELECT count(*) FROM veltbaseutil_log WHERE event IS NULL')"
expect 'its alert, behind the ring' 'log_level,log_body
info,"filtered record 29, kept in the ring"
critical,the link to the store is down' "$(query "SELECT log_level, log_body FROM veltbaseutil_log
      WHERE log_body LIKE 'filtered record 29%' OR log_level = 'critical'")"
