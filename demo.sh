#!/bin/sh
# Builds the library, runs the example service and veltpipe on real input, and reads everything back.
set -eu
cd "$(dirname "$0")"
export LC_ALL=C

say() { printf '\n== %s\n' "$*"; }
fail() {
  printf 'demo.sh: %s\n' "$*" >&2
  exit 1
}

service=
scratch=$(mktemp -d "${TMPDIR:-/tmp}/velt_demo_XXXXXX")
clean_up() {
  status=$?
  trap - EXIT
  if [ -n "$service" ]; then kill -KILL "$service" 2>/dev/null || true; fi
  rm -rf "$scratch"
  exit "$status"
}
trap clean_up EXIT
trap 'exit 1' HUP INT TERM

# Runs a step of the build; what it prints is shown only when it fails.
quietly() {
  if ! "$@" >"$scratch/build.txt" 2>&1; then
    cat "$scratch/build.txt" >&2
    fail "failed: $*"
  fi
}

files_of() {
  if [ -n "$(ls -A "$1")" ]; then
    (cd "$1" && stat -c '%A %9s  %n' -- *)
  else
    echo '(empty)'
  fi
}

# Compares the family $2 in directory $1 with the messages listed in file $3.
verify() {
  build/release/tools/family_check "$1" "$2" "$3" || fail "the log family $2 is not what was traced"
}

logs_ending_in() { find "$1" -name "$2" | sort; }

say 'Set up and build'
quietly scripts/setup.sh
quietly cmake --preset release
quietly cmake --build --preset release --target veltbaseutil veltpipe family_check service_host
echo 'built in build/release'

say 'A service: four worker threads, a rotation, filtered records before an alert, a level changed at run time'
root=$scratch/service
mkdir -p "$root/log"
echo 'Log directory before:'
files_of "$root/log"
build/release/examples/service_host "$root" >"$scratch/service.txt" &
service=$!
tries=0
until grep -q '^ready' "$scratch/service.txt"; do
  kill -0 "$service" 2>/dev/null || fail 'the service ended by itself'
  tries=$((tries + 1))
  [ "$tries" -le 300 ] || fail 'the service does not get ready'
  sleep 0.1
done
kill -TERM "$service"
wait "$service" || fail 'the service did not end in order'
service=
tail -n 1 "$scratch/service.txt"
echo 'Log directory after SIGTERM:'
files_of "$root/log"

first=$(logs_ending_in "$root/log" 'demo2*.gz' | head -n 1)
last=$(logs_ending_in "$root/log" 'demo2*.log' | tail -n 1)
[ -n "$first" ] || fail 'the service did not rotate its log'
echo 'Head of its first log file, compressed since:'
gzip -dc "$first" >"$scratch/first.txt"
head -n 6 "$scratch/first.txt"
echo 'Tail of its last one:'
tail -n 6 "$last"
echo 'The alert, and the end of the ring of filtered records that it brought out:'
logs_ending_in "$root/log" 'demo2*' | while read -r file; do gzip -dcf "$file"; done >"$scratch/all.txt"
grep -B 5 ' A: ' "$scratch/all.txt" || fail 'no alert in the log'
grep -c 'kept in the ring' "$scratch/all.txt" | sed 's/$/ filtered records in all/'
echo 'Everything read back, the main family and that of the gateway:'
verify "$root/log" demo "$root/traced_main.txt"
verify "$root/log" demogw_ "$root/traced_gw.txt"

say 'The service flat out: four threads trace without a pause at default settings'
root=$scratch/flat_out
build/release/examples/service_host --flat-out "$root" || fail 'the service did not end in order'
echo 'Log directory after:'
files_of "$root/log"
echo 'Everything read back:'
verify "$root/log" flat_out_ "$root/traced_flat_out.txt"

source=
for candidate in /var/log/dpkg.log /var/log/syslog /var/log/messages /etc/services /etc/protocols /etc/passwd; do
  if [ -s "$candidate" ] && [ -r "$candidate" ]; then
    source=$candidate
    break
  fi
done
[ -n "$source" ] || { source=$scratch/text; ls -lR /usr/bin >"$source"; }

say "veltpipe: $source, repeated and numbered, into files of at most 1 MB"
# A NUL would come out as two characters, and a line over 2048 characters as two records: this compares whole lines.
tr -d '\000' <"$source" | cut -b 1-2000 | head -c 1000000 | awk 1 >"$scratch/once.txt"
bytes=$(wc -c <"$scratch/once.txt")
copies=$((2700000 / bytes + 1))
i=0
while [ "$i" -lt "$copies" ]; do
  cat "$scratch/once.txt"
  i=$((i + 1))
done | awk '{ print NR ": " $0 }' >"$scratch/traced.txt"

logs=$scratch/pipe/server
head -n 100 "$scratch/traced.txt" | build/release/tools/veltpipe --name server_ --dir "$logs"
echo 'Log directory before, from a short run:'
files_of "$logs"
tail -n +101 "$scratch/traced.txt" |
  build/release/tools/veltpipe --name server_ --dir "$logs" --size 1 --keep 30 --module app --level 3 --stats
echo 'Log directory after:'
files_of "$logs"
archives=$(logs_ending_in "$logs" '*.gz' | wc -l)
[ "$archives" -ge 3 ] || fail 'veltpipe did not rotate twice'
last=$(logs_ending_in "$logs" '*.log' | tail -n 1)
echo 'Head of the last log file:'
head -n 4 "$last"
echo 'Its tail:'
tail -n 7 "$last"
echo 'Everything read back:'
verify "$logs" server_ "$scratch/traced.txt"

say 'Done'
