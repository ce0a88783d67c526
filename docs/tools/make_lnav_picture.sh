#!/usr/bin/env bash
# Makes docs/figures/lnav.svg: what lnav shows of the log families of the example service, around its alert.
#
#   make_lnav_picture.sh [BUILD_DIRECTORY]    with examples/service_host in it; build/release unless named
#
# Needs lnav, tmux and python3.
set -euo pipefail
source_directory=$(cd "$(dirname "$0")/../.." && pwd)
build=${1:-$source_directory/build/release}

for program in lnav tmux python3; do
  command -v "$program" >/dev/null || { echo "$0: $program is missing" >&2; exit 1; }
done
[[ -x $build/examples/service_host ]] || { echo "$0: no examples/service_host in $build" >&2; exit 1; }

scratch=$(mktemp -d)
service=
end() {
  [[ -z $service ]] || kill -KILL "$service" 2>/dev/null || true
  tmux -S "$scratch/tmux" kill-server 2>/dev/null || true
  rm -rf "$scratch"
}
trap end EXIT

wait_until() {  # what, command...
  local what=$1 tries=0
  shift
  until "$@"; do
    ((++tries < 300)) || { echo "$0: $what: not within half a minute" >&2; exit 1; }
    sleep 0.1
  done
}

"$build/examples/service_host" "$scratch/root" >"$scratch/service" &
service=$!
wait_until 'the service' grep -qx ready "$scratch/service"
kill -TERM "$service"
wait "$service"
service=

# Settings of its own: no user's colours, and nothing is left behind.
export HOME=$scratch/home XDG_CONFIG_HOME=$scratch/home/config XDG_CACHE_HOME=$scratch/home/cache
export TZ=UTC LC_ALL=C.UTF-8
mkdir -p "$XDG_CONFIG_HOME" "$XDG_CACHE_HOME"
lnav -i "$source_directory/share/lnav/veltbaseutil/veltbaseutil_log.json" </dev/null >/dev/null 2>&1

cd "$scratch/root/log"  # short names at the top of the screen
alert=$(lnav -n -c ";SELECT log_line FROM veltbaseutil_log WHERE log_level = 'critical' LIMIT 1" \
  -c ':write-csv-to -' demo2* </dev/null | tail -n 1)
[[ $alert =~ ^[0-9]+$ ]] || { echo "$0: no alert among the records" >&2; exit 1; }

screen() { tmux -S "$scratch/tmux" capture-pane -epN; }
shows_alert() { screen | grep -q 'the link to the store is down'; }
tmux -S "$scratch/tmux" -f /dev/null new-session -d -x 132 -y 26 \
  "TERM=screen-256color lnav -c ':goto $((alert - 12))' demo2*"
wait_until 'the alert on the screen' shows_alert
sleep 1  # lnav draws its frame once more when it has read everything
screen >"$scratch/screen"
python3 "$source_directory/docs/tools/ansi_to_svg.py" <"$scratch/screen" >"$scratch/lnav.svg"
size=$(stat -c %s "$scratch/lnav.svg")
((size < 60000)) || { echo "$0: the picture has $size bytes" >&2; exit 1; }
cp "$scratch/lnav.svg" "$source_directory/docs/figures/lnav.svg"
