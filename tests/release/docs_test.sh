#!/usr/bin/env bash
# Does what the documents say: builds and runs their programs with their own command line, runs their shell commands,
# and compares their samples of output with what comes out. Uses the library as it is installed.
#
#   docs_test.sh SOURCE_DIRECTORY BUILD_DIRECTORY COMPILER
#
# A program, a command or a manual page's example that is not listed here fails the test, too.
set -euo pipefail

if [[ $# -ne 3 || ! -d $1/include/velt || ! -x $2/tools/veltcfg ]]; then
  echo "usage: $0 SOURCE_DIRECTORY BUILD_DIRECTORY COMPILER" >&2
  exit 2
fi
source_directory=$(cd "$1" && pwd)
build=$(cd "$2" && pwd)
compiler=$3

scratch=$(mktemp -d)
service=
end() {
  [[ -z $service ]] || kill -KILL "$service" 2>/dev/null || true
  wait
  rm -rf "$scratch"
}
trap end EXIT
complain() {
  printf '%s\n' "$*" >&2
  : >"$scratch/complaint" # a file: a variable set in a command substitution is lost
}

cmake --install "$build" --prefix "$scratch/installed" >"$scratch/install.log" || {
  cat "$scratch/install.log" >&2
  exit 1
}
libraries=$(dirname "$(find "$scratch/installed" -name libveltbaseutil.so)")
export PKG_CONFIG_PATH=$libraries/pkgconfig LD_LIBRARY_PATH=$libraries PATH=$scratch/installed/bin:$PATH
export HOME=$scratch TZ=UTC LC_ALL=C.UTF-8 TERM=xterm-256color TMPDIR=$scratch
unset APP_ROOT COMMON_LIB_PATH _APP_LOG_DIR _APP_TMP_DIR

# --- programs ---

# Writes each program of document $1 to $2<number>.cpp, its lines numbered as in the document.
extract_programs() {
  awk -v document="$1" -v stem="$2" '
    function keep() {
      if (block !~ /(^|\n)int main *\(/) return
      count++
      file = stem count ".cpp"
      printf "#line %d \"%s\"\n%s", first, document, block > file
      close(file)
    }
    inside && /^```/ { keep(); inside = 0; next }
    inside { block = block $0 "\n" }
    !inside && /^```cpp[ \t]*$/ { inside = 1; block = ""; first = NR + 1 }
    END { if (inside) { print document ": a block has no end" > "/dev/stderr"; exit 1 } }
  ' "$source_directory/$1"
}

# A text that each program writes to its files or standard streams.
declare -A expected=(
  [README.md 1]=' net I: 12 connections'
  [docs/host-guide.md 1]=' net E: link to store lost after 30 s'
  [docs/host-guide.md 2]=' net W: configuration not usable, nothing changed' # a service, see serve
  [docs/host-guide.md 3]='accepted 1, written 1, lost 0'
  [docs/host-guide.md 4]=' 12 connections'
  [docs/host-guide.md 5]=' net I: from the child'
  [docs/host-guide.md 6]='subscriber { id 4711 }'
  [docs/host-guide.md 7]='' # ends when the flag is set
  [docs/operations.md 1]='velt_records_total{family="server_",state="written"} 1'
)
declare -A done_programs

# Runs the line of the document that compiles a host.
compile() {  # DOCUMENT PROGRAM
  local line
  line=$(grep -m 1 -E '^ {4}g\+\+ ' "$source_directory/$1") || { complain "$1 does not say how to compile"; return 1; }
  line=${line/g++/"'$compiler'" -Wall -Wextra -Werror}
  eval "${line/host.cpp/"'$2'" -o "'${2%.cpp}'"}"
}

wait_for() {  # TEXT DIRECTORY
  local tries
  for ((tries = 0; tries < 300; ++tries)); do
    if grep -rqF -e "$1" "$2" 2>/dev/null; then return; fi
    sleep 0.1
  done
  complain "within 30 seconds there is not: $1"
}

# A service that changes its levels by SIGHUP, as its operator would do it; the configuration is beside it.
serve() {  # PROGRAM LOG_DIRECTORY
  echo 'net_level = 1110' >"$1.cfg"
  "$1" >"$1.cpp.out" 2>&1 &
  service=$!
  wait_for 'File create' "$2"
  sleep 0.5
  if grep -rq ' net I: second 0$' "$2"; then complain 'level 3 is in the file, without the configuration'; fi
  echo 'net_level = 1111' >"$1.cfg"
  kill -HUP "$service"
  wait_for ' net I: second ' "$2"
  echo 'net_level = 1x11' >"$1.cfg"
  kill -HUP "$service"
  wait_for 'nothing changed' "$2"
  kill -TERM "$service"
  local code=0
  wait "$service" || code=$?
  service=
  return "$code"
}

for document in README.md docs/host-guide.md docs/operations.md; do
  stem=$scratch/$(basename "$document" .md)_
  extract_programs "$document" "$stem" || complain "$document: cannot be taken apart"
  for program in "$stem"*.cpp; do
    number=${program#"$stem"}
    number=${number%.cpp}
    key="$document $number"
    done_programs[$key]=1
    if [[ ! -v expected[$key] ]]; then
      complain "$document: nobody says what its program $number does"
      continue
    fi
    logs=$scratch/log_$(basename "$stem")$number/
    sed -i "s|/var/log/server/|$logs|; s|/etc/server.cfg|${program%.cpp}.cfg|" "$program"
    compile "$document" "$program" || { complain "$key: does not compile"; continue; }
    if grep -q ReloadModules "$program"; then
      serve "${program%.cpp}" "$logs" || complain "$key: ended with $?"
    else
      timeout 60 "${program%.cpp}" >"$program.out" 2>&1 || complain "$key: ended with $?"
    fi
    grep -rqF -e "${expected[$key]}" "$program.out" "$logs" 2>/dev/null || [[ -z ${expected[$key]} ]] ||
      complain "$key: nowhere is: ${expected[$key]}"
  done
done
for key in "${!expected[@]}"; do [[ -v done_programs[$key] ]] || complain "$key: there is no such program"; done

# --- samples ---

# The indented block of document $1 that begins with a line like $2.
sample() { awk -v begin="$2" '!inside && $0 ~ "^ +" begin { inside = 1 } inside && !/^    / { exit } inside' "$source_directory/$1" |
  sed -E 's/^ +//'; }

# Times, numbers and addresses differ each time.
shape() { sed -E 's/^\xef\xbb\xbf//; s/0x[0-9a-f]+/0xN/g; s/[0-9]+/N/g'; }

# The end without Destroy, the handler, and the same sentence without one; the operators' table has it.
grep -rqF ' net I: written, too' "$scratch/log_host-guide_3" || complain 'the record before the end of main is missing'
sentence='no module "debug" exists, modules that are not registered reach no output'
grep -qxF "server: $sentence" "$scratch/host-guide_3.cpp.out" || complain 'the problem handler has heard nothing'
[[ $(VELT_PROBLEMS=stderr "$scratch/README_1" 2>&1) == "veltbaseutil: $sentence" ]] ||
  complain 'VELT_PROBLEMS=stderr says something else'
grep -qF "| \`$sentence\` |" "$source_directory/docs/operations.md" || complain 'docs/operations.md does not have that sentence'
head -n 2 "$scratch/operations_1.cpp.out" | diff - <(sample docs/operations.md '# TYPE') >&2 ||
  complain 'docs/operations.md: the sample of the counts is another'

same_shape() {  # WHAT SAMPLE FOUND
  [[ -n $2 ]] || complain "$1: there is no sample"
  diff <(shape <<<"$2") <(shape <<<"$3") >&2 || complain "$1: the sample is another"
}

same_shape 'a file from its first to its last line' "$(sample docs/operations.md 'File create at time')" \
  "$(LC_ALL=C sed -E 's/^\xef\xbb\xbf//' "$scratch"/log_host-guide_1/server_*.log)"

"$build/examples/service_host" "$scratch/service" >"$scratch/service.out" &
service=$!
for ((tries = 0; tries < 600; ++tries)); do
  ! grep -qx ready "$scratch/service.out" || break
  sleep 0.1
done
kill -TERM "$service"
wait "$service" || complain 'the service did not end in order'
service=
same_shape 'a ring that comes out' "$(sample docs/operations.md '[-0-9: .]+T[0-9]+ net I: filtered record')" \
  "$(zgrep -h -B 2 'the link to the store is down' "$scratch"/service/log/*)"

# --- commands ---

# The command of document $1 that is line $2 of it, with directories of the scratch directory; a command that is no
# longer in the document fails the test.
documented() {
  grep -qxF -e "    $2" -e ".Dl $2" "$source_directory/$1" || complain "$1 does not say: $2"
  local command=${2//\/var\/log\/server/$scratch\/log}
  command=${command//share\/lnav/$source_directory\/share\/lnav}
  command=${command//'\(dq'/\"}
  command=${command//\/opt\/server/\/srv}
  printf '%s' "${command//\/srv/$scratch/srv}"
}
some-program() { printf 'line one\nline two\n'; }

# The pipe, and what is looked at with lnav: a family of an archive and a plain file.
for line in "README.md|some-program 2>&1 | veltpipe --name server_ --dir /var/log/server --size 5 --keep 30 --module app --level 3" \
  "docs/man/veltpipe.1|some-program 2>&1 | veltpipe --name server_ --dir /var/log/server --size 5 --keep 30"; do
  eval "$(documented "${line%%|*}" "${line#*|}")" || complain "failed: ${line#*|}"
done
[[ $(ls "$scratch/log") == server_2*.log*.gz*server_2*.log ]] || complain "veltpipe left: $(ls "$scratch/log")"
[[ $(zgrep -h -c ' app I: line two$' "$scratch"/log/*.gz) == 1 ]] || complain 'veltpipe: the line is not in the archive'

eval "$(documented docs/shipping.md 'lnav -i share/lnav/veltbaseutil/veltbaseutil_log.json')" </dev/null >/dev/null 2>&1 ||
  complain 'the format of lnav cannot be installed'
# Without a screen, since a test has none.
seen=$(eval "$(documented docs/shipping.md 'lnav /var/log/server/') -n" </dev/null)
# Newer releases of lnav show a sign for the fields that the format hides.
[[ $(grep -cE ' (⋮)?line one$' <<<"$seen") -eq 2 ]] || complain "lnav shows: $seen"
query='lnav -n -c ";SELECT log_level, module, count(*) FROM veltbaseutil_log WHERE event IS NULL GROUP BY 1, 2" /var/log/server/'
seen=$(eval "$(documented docs/shipping.md "$query")" </dev/null)
[[ $seen == *info*app*4* ]] || complain "lnav counts: $seen"

# Following the newest file: the command never ends, so the test stops it.
follow='while sleep 0.2; do tail -n +1 --follow=name "$(ls /var/log/server/server_*.log | tail -n 1)"; done'
timeout 60 bash -c "$(documented docs/operations.md "$follow")" >"$scratch/followed" 2>/dev/null &
follower=$!
: >>"$scratch/followed"
for ((tries = 0; tries < 300; ++tries)); do
  if grep -q ' app I: line two$' "$scratch/followed"; then break; fi
  sleep 0.1
done
kill "$follower"
wait "$follower" || true
[[ $tries -lt 300 ]] || complain "following shows: $(cat "$scratch/followed")"

# The archives of which not every line was sent: here one of three.
mkdir "$scratch/sent"
sample_loop=$(sed -n '/^```sh$/,/^```$/p' "$source_directory/docs/shipping.md" | sed '1d;$d')
[[ $sample_loop == for* ]] || complain 'docs/shipping.md: no loop over archives'
for part in 1 2 3; do
  log=$scratch/sent/server_2026010${part}_000000.log
  seq -f 'line %.0f' 20 | gzip >"$log.gz"
  seq -f "$log line %.0f" $((part == 2 ? 19 : 20)) >>"$scratch/velt_files.log"
done
loop=${sample_loop//\/var\/log\/server/$scratch\/sent}
seen=$(eval "${loop//\/var\/log\/velt_files.log/$scratch\/velt_files.log}")
[[ $seen == "$scratch/sent/server_20260102_000000.log.gz" ]] || complain "archives that were not sent whole: $seen"

# veltcfg over a configuration as that of the sample: whatever the document shows of it comes out, in this order.
mkdir -p "$scratch/srv/conf"
cat >"$scratch/srv/conf/default_debug.cfg" <<'END'
debug_level  = 1110
debug_output = 0100
nMaxFileNum = 500
nEachFileMaxSize = 20


net_level = 10x1
END
seen=$(eval "$(documented docs/operations.md '$ APP_ROOT=/srv veltcfg' | sed 's/^[$] //')") || [[ $? -eq 1 ]] ||
  complain 'veltcfg did not end with 1, for warnings'
shown=$(sample docs/operations.md '[$] APP_ROOT' | sed -e 1d -e "s|/srv|$scratch/srv|g")
[[ -n $shown ]] || complain 'docs/operations.md: no sample of veltcfg'
line_number=0
while IFS= read -r line; do
  [[ $line != ... ]] || continue
  next=$(tail -n "+$((line_number + 1))" <<<"$seen" | sed -E 's/^ +//' | grep -nxF -m 1 -e "$line" | cut -d: -f1) || true
  [[ -n $next ]] || { complain "veltcfg does not say: $line"; break; }
  line_number=$((line_number + next))
done <<<"$shown"
page=docs/man/veltcfg.1
[[ $(eval "$(documented $page "APP_ROOT=/opt/server veltcfg --quiet || echo 'look at it'")" 2>&1) == *warning*$'\nlook at it' ]] ||
  complain 'veltcfg(1): the check does not say what to look at'
export APP_ROOT=$scratch/srv
[[ $(eval "$(documented $page "veltcfg --json | jq '.limits[] | select(.key == \\(dqnEachFileMaxSize\\(dq).value'")") == 20971520 ]] ||
  complain 'veltcfg(1): jq finds another size'
sed -n '/^\.Sh EXAMPLES/,/^\.Sh SEE/p' "$source_directory/docs/man/velt.cfg.5" | grep '=' >"$scratch/srv/conf/default_debug.cfg"
veltcfg >/dev/null || complain 'velt.cfg(5): the example is not clean'

# What contributors run. The tests are those of this build, the notes that ctest makes of them are apart.
mkdir "$scratch/tests"
echo "subdirs(\"$build/tests\")" >"$scratch/tests/CTestTestfile.cmake"
for line in "CONTRIBUTING.md|ctest --test-dir build/release -R '^TrimStringTest'" \
  "CONTRIBUTING.md|build/release/tests/config/text_test" \
  "docs/versioning.md|ctest --test-dir build/release -R 'exports|abi' -E guard"; do
  command=$(documented "${line%%|*}" "${line#*|}")
  command=${command/--test-dir build\/release/--no-tests=error --test-dir $scratch\/tests}
  eval "${command/build\/release/$build}" >"$scratch/contributor" 2>&1 ||
    complain "failed: ${line#*|}: $(cat "$scratch/contributor")"
done

# Every other command of the documents is run by the project's own scripts and checks.
elsewhere='^(scripts/setup\.sh --tests|cmake --preset release && cmake --build --preset release|\./(demo|test)\.sh.*|scripts/(campaign|check|bench)\.sh.*|scripts/setup\.sh && cmake --preset install .*|cmake --(install|build) .*|apt install \./build/install/packages/.*)$'
while IFS= read -r line; do
  [[ $line =~ $elsewhere ]] || grep -qF -e "'$line'" -e "|$line\"" "$0" || [[ $line == g++* ]] ||
    complain "nobody runs: $line"
done < <(grep -hE '^ {4}([$] |\./|scripts/|g\+\+|build/|cmake|ctest|lnav|some-program|apt|sudo|velt(cfg|pipe)|pkg-config|ldconfig)' \
  "$source_directory"/{README,CONTRIBUTING,SECURITY}.md "$source_directory"/docs/*.md | sed -E 's/^ +//')
examples=$(cat "$source_directory"/docs/man/*.[1-8] | grep -c '^\.Dl')
[[ $examples -eq 3 ]] || complain "the manual pages have $examples examples, of which three are run here"

[[ ! -e $scratch/complaint ]]
