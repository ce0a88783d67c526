#!/usr/bin/env bash
# examples/rsyslog against a private rsyslogd: families followed through rotations, a daemon that is stopped meanwhile,
# and the records of the syslog engine, by itself and behind the engine that keeps the files too.
#
#   rsyslog_test.sh SOURCE_DIRECTORY VELTPIPE ENGINE_SYSLOG_HOST ENGINE_TEE_HOST
set -euo pipefail

if [[ $# -ne 4 || ! -d $1/examples/rsyslog || ! -x $2 || ! -x $3 || ! -x $4 ]]; then
  echo "usage: $0 SOURCE_DIRECTORY VELTPIPE ENGINE_SYSLOG_HOST ENGINE_TEE_HOST" >&2
  exit 2
fi
source_directory=$1
veltpipe=$2
engine_host=$3
tee_host=$4
PATH=$PATH:/usr/sbin  # an ordinary user's may lack it
export LC_ALL=C TZ=UTC

scratch=$(mktemp -d)
daemon=
pipe=
host=
end() {
  local pid
  for pid in $daemon $pipe $host; do kill -KILL "$pid" 2>/dev/null || true; done
  wait
  rm -rf "$scratch"
}
trap end EXIT
logs=$scratch/log
out=$scratch/velt_files.log
engine_out=$scratch/velt_engine.log
mkdir "$logs" "$scratch/work"

fail() {
  echo "$1" >&2
  [[ ! -s $scratch/daemon ]] || { echo 'rsyslogd says:'; tail -n 20 "$scratch/daemon"; } >&2
  exit 1
}

# wait_until WHAT COMMAND...: polls for two minutes.
wait_until() {
  local what=$1 tries=0
  shift
  until "$@"; do
    ((++tries < 1200)) || fail "$what: not within two minutes"
    sleep 0.1
  done
}

next_second() {
  local -r second=$(date +%s)
  while [[ $(date +%s) -le $second ]]; do sleep 0.05; done
}

here() { sed -e "s|/var/log/server/|$logs/|g; s|/run/velt/|$scratch/run/|g; s|/var/log/velt_|$scratch/velt_|g" "$@"; }

start_daemon() {
  rsyslogd -n -f "$scratch/main.conf" -i "$scratch/pid" >>"$scratch/daemon" 2>&1 5>&- &  # the pipe has to end
  daemon=$!
}
stop_daemon() {
  kill -TERM "$daemon"
  wait "$daemon" || fail 'rsyslogd did not end in order'
  daemon=
}

# A pipe that is fed through descriptor 5, to be closed with close_pipe.
open_pipe() {
  rm -f "$scratch/fifo"
  mkfifo "$scratch/fifo"
  "$veltpipe" --name "$1" --dir "$logs" --size 1 --keep 200 <"$scratch/fifo" &
  pipe=$!
  exec 5>"$scratch/fifo"
}
close_pipe() {
  exec 5>&-
  wait "$pipe" || fail 'veltpipe lost something'
  pipe=
}
records() { seq -f 'record %07.0f of a stream that is long enough to fill some files of one megabyte' "$1" "$2"; }
# The same, slower than a file a second, and no faster than the daemon reads for half a minute: it misses a file that is
# removed before it is opened.
records_slowly() {
  local first last tries
  for ((first = $1; first <= $2; first += 5000)); do
    last=$((first + 4999 < $2 ? first + 4999 : $2))
    records "$first" "$last"
    sleep 0.7
    for ((tries = 0; tries < 300; ++tries)); do
      ! tail -n 20 "$out" 2>/dev/null | grep -aq "record 0*$last of" || break
      sleep 0.1
    done
  done
}

count() { grep -ac "$1" "$2" 2>/dev/null || true; }
has_records() { [[ $(count "$2 record \|I: record " "$1") -ge $3 ]]; }
archives() { find "$logs" -name "$1*.log.gz" | wc -l; }

# Names and numbers of what arrived of one family, in the order of arrival.
arrived() { sed -nE "s|^($logs/$1[0-9_]+\.log) .* record 0*([0-9]+) .*|\1 \2|p" "$out"; }

# Nothing twice, nothing out of order within a file, nothing from an archive.
check_arrival() {
  ! grep -aq "^$logs/[^ ]*\.gz " "$out" || fail 'an archive was read'
  arrived "$1" | awk '
    seen[$2]++ { print "twice: record " $2; bad = 1 }
    $2 <= last[$1] { print "out of order: record " $2 " in " $1; bad = 1 }
    { last[$1] = $2 }
    END { exit bad }' >"$scratch/wrong" || fail "family $1: $(head -n 5 "$scratch/wrong")"
}
check_all_arrived() {  # family, first, last
  diff <(seq "$2" "$3") <(arrived "$1" | cut -d ' ' -f 2 | sort -n) >"$scratch/wrong" ||
    fail "family $1, missing: $(grep -c '^<' "$scratch/wrong"), $(head -n 5 "$scratch/wrong")"
}

# The command of the document that names archives of which lines did not arrive.
awk '/^```sh$/ { inside = 1; next } /^```$/ { inside = 0 } inside' "$source_directory/docs/shipping.md" |
  here >"$scratch/incomplete.sh"
[[ -s $scratch/incomplete.sh ]] || fail 'docs/shipping.md has no command'
incomplete() { bash -euo pipefail "$scratch/incomplete.sh" | sort; }

# --- the files as they are installed
for file in "$source_directory"/examples/rsyslog/*.conf; do
  grep -qF "examples/rsyslog/$(basename "$file")" "$source_directory/docs/shipping.md" ||
    fail "docs/shipping.md does not name $(basename "$file")"
done
main_conf() {
  printf 'global(workDirectory="%s/work")\nmodule(load="imuxsock" sysSock.use="off")\n' "$scratch"
  printf 'include(file="%s")\n' "$@"
}
main_conf "$source_directory"/examples/rsyslog/*.conf >"$scratch/main.conf"
rsyslogd -N1 -f "$scratch/main.conf" >"$scratch/daemon" 2>&1 || fail 'the configuration is not valid'
: >"$scratch/daemon"

for file in "$source_directory"/examples/rsyslog/*.conf; do here "$file" >"$scratch/$(basename "$file")"; done
main_conf "$scratch"/6*.conf >"$scratch/main.conf"

# --- 100,000 records over several files
start_daemon
records_slowly 1 100000 | "$veltpipe" --name server_a_ --dir "$logs" --size 1 --keep 200
wait_until 'arrival of 100,000 records' has_records "$out" '' 100000
wait_until 'arrival of the last line' grep -q "$logs/server_a_.*log File close at" "$out"
stop_daemon
rotations=$(archives server_a_)
[[ $rotations -ge 5 ]] || fail "only $rotations rotations"
check_arrival server_a_
check_all_arrived server_a_ 1 100000
for archive in "$logs"/server_a_*.log.gz; do  # each line of each finished file, byte for byte
  diff <(gzip -dc "$archive") <(sed -n "s|^${archive%.gz} ||p" "$out") >"$scratch/wrong" ||
    fail "${archive##*/}: $(head -n 5 "$scratch/wrong")"
done
[[ -z $(incomplete) ]] || fail "said to be incomplete: $(incomplete)"

# --- stopped and started again while one file is being written: it goes on where it was
start_daemon
open_pipe server_b_
records 1 3000 >&5
wait_until 'the first part' has_records "$out" '' 103000
stop_daemon
records 3001 6000 >&5
start_daemon
wait_until 'the part written meanwhile' has_records "$out" '' 106000
check_arrival server_b_
check_all_arrived server_b_ 1 6000

# --- stopped while several files are finished: the rest of the one being read, and those in between, are not sent
stop_daemon
records 6001 60000 >&5
wait_until 'the last of them' grep -rq --include='server_b_*.log' 'record 0060000 ' "$logs"
for archive in "$logs"/server_b_*.log.gz; do echo "$archive"; done | sort >"$scratch/finished"
[[ $(wc -l <"$scratch/finished") -ge 3 ]] || fail 'fewer than three files were finished'
start_daemon
records 60001 60010 >&5
close_pipe
wait_until 'the last record' grep -q "$logs/server_b_.*record 0060010 " "$out"
stop_daemon
check_arrival server_b_
last_file=$(find "$logs" -name 'server_b_*.log' | sort | tail -n 1)
first_of_last=$(grep -m 1 -oE 'record 0*[0-9]+' "$last_file" | sed -E 's/record 0*//')
check_of_last() { arrived server_b_ | awk -v file="$last_file" '$1 == file { print $2 }'; }
diff <(seq "$first_of_last" 60010) <(check_of_last) >"$scratch/wrong" ||
  fail "the file that is being written: $(head -n 5 "$scratch/wrong")"
diff "$scratch/finished" <(incomplete | grep server_b_) >"$scratch/wrong" ||
  fail "archives that did not arrive whole: $(cat "$scratch/wrong")"

# --- the syslog engine, started before the daemon, in both forms
rm -rf "$scratch/run"
for form in local rfc5424; do
  socket=$scratch/run/syslog
  [[ $form == local ]] || socket=${socket}5424
  rm -f "$engine_out"
  "$engine_host" "$socket" 20000 "$form" >"$scratch/host" &
  host=$!
  start_daemon
  wait "$host" || fail "engine, $form: $(cat "$scratch/host")"
  host=
  wait_until "engine, $form" has_records "$engine_out" 'count' 20000
  stop_daemon
  stamp='[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}(\.[0-9]+)?[+-][0-9]{2}:[0-9]{2}'
  diff <(seq 20000) <(sed -nE \
    "s|^$stamp local0\.info engine_syslog_host T[0-9]+ count I: record ([0-9]+) of 20000$|\2|p" "$engine_out") \
    >"$scratch/wrong" || fail "engine, $form: $(head -n 5 "$scratch/wrong")"
done

# --- files and daemon: each has every record, in order
rm -f "$engine_out"
mkdir "$scratch/tee"
"$tee_host" "$scratch/tee" "$scratch/run/syslog" 20000 >"$scratch/host" &
host=$!
start_daemon
wait "$host" || fail "tee: $(cat "$scratch/host")"
host=
wait_until 'tee' has_records "$engine_out" 'net' 20000
stop_daemon
diff <(seq 20000) <(sed -nE \
  "s|^$stamp local0\.info engine_tee_host T[0-9]+ net I: record ([0-9]+) of 20000$|\2|p" "$engine_out") \
  >"$scratch/wrong" || fail "tee, the daemon: $(head -n 5 "$scratch/wrong")"
diff <(seq 20000) <(find "$scratch/tee" -name 'tee_*' | sort | xargs zcat -f |
  sed -nE 's|^[-0-9: .]+T[0-9]+ net I: record ([0-9]+) of 20000$|\1|p') >"$scratch/wrong" ||
  fail "tee, the files: $(head -n 5 "$scratch/wrong")"
