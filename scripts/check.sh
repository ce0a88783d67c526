#!/usr/bin/env bash
# The longer check: lint over the tests, clang builds (plain and under its sanitizers), valgrind, coverage, and the
# README's commands for installing, with a root of their own.
# scripts/check.sh lint|clang|valgrind|coverage|install runs one of them.
# scripts/check.sh debian 12|13 [g++|clang++] builds and tests in a bare system of that release instead.
set -euo pipefail
cd "$(dirname "$0")/.."

if [ "${1:-}" != debian ]; then scripts/setup.sh --tests clang libclang-rt-14-dev valgrind gcovr; fi
jobs=$(nproc)
logs=build/logs
log_prefix=check-
mkdir -p "$logs"
. scripts/quietly.sh

configure() {  # DIRECTORY SETTING...
  cmake -S . -B "$1" -G Ninja -DCMAKE_EXPORT_COMPILE_COMMANDS=ON "${@:2}"
}

build() { configure "$@" && cmake --build "$1"; }  # DIRECTORY SETTING...

run_tests() { ctest --test-dir "$1" -j $((jobs * 4)) --output-on-failure --timeout 600 "${@:2}"; }

lint() {
  # The compiler's precompiled headers are not clang's. The measurements include what they are compared with.
  scripts/setup.sh libspdlog-dev liblog4cplus-dev libboost-log-dev libgoogle-glog-dev libbenchmark-dev &&
    configure build/lint -DCMAKE_BUILD_TYPE=Debug -DCMAKE_DISABLE_PRECOMPILE_HEADERS=ON \
      -DVELT_BUILD_BENCH=ON &&
    git ls-files -co --exclude-standard 'tests/*.cpp' 'examples/*.cpp' 'bench/*.cpp' 'fuzz/*.cpp' |
    xargs -P "$jobs" -n 1 clang-tidy -p build/lint --quiet
}

clang_settings=(-DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ -DVELT_WARNINGS_AS_ERRORS=ON)

clang_release() { build build/clang "${clang_settings[@]}" -DCMAKE_BUILD_TYPE=Release && run_tests build/clang; }
clang_asan() {
  build build/clang-asan "${clang_settings[@]}" -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS_DEBUG='-O1 -g1' \
    -DVELT_SANITIZE=address,undefined && run_tests build/clang-asan
}
clang_tsan() {
  # clang's runtime, unlike g++'s, can start threads in a child of a process that had several. It does not see locks
  # that are taken through the functions of two tests that replace them, nor descriptors that are closed through the
  # shim of the fault scenarios: it takes the next file with that number for the old one.
  build build/clang-tsan "${clang_settings[@]}" -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS_DEBUG='-O1 -g1' \
    -DVELT_SANITIZE=thread &&
    TSAN_OPTIONS=die_after_fork=0 setarch -R ctest --test-dir build/clang-tsan -j $((jobs * 4)) --output-on-failure \
      -LE faults -E "LockFailure|ChannelCapTest"
}

valgrind_tests() {
  # Each test case in a process of its own here too. Left out are whole programs and scripts, which valgrind does not
  # follow into, what takes too long at its pace, and a thread's signal mask, which valgrind changes itself.
  local programs='Veltpipe|Veltcfg|ServiceHost|EndToEnd|Syslog|Checker|^fuzz_|^exports$|^docs$|^man$|^doxygen$|^picture$'
  local others='Megabyte|Million|Depot|TheThreadBlocksEverySignal|NoThreadSeesSomeModules|ASignalChangesTheLevel'
  local settings=(-j $((jobs * 2)) -LE 'faults|load')
  # Programs that replace operator new keep theirs, and a busy thread does not keep others from running.
  build build/valgrind -DCMAKE_BUILD_TYPE=Debug \
    '-DCMAKE_CROSSCOMPILING_EMULATOR=valgrind;--quiet;--error-exitcode=9;--fair-sched=yes;--soname-synonyms=somalloc=nouserintercepts' &&
    VALGRIND_OPTS='--leak-check=full --errors-for-leak-kinds=definite' \
      run_tests build/valgrind "${settings[@]}" -E "$programs|$others|Child|Fork" &&
    # In a forked child, memory to which only the stacks of the parent's other threads point looks lost.
    VALGRIND_OPTS='--leak-check=no' run_tests build/valgrind "${settings[@]}" -R 'Child|Fork' -E "$programs"
}

coverage() {
  # Atomic, so that no counts of threads are lost. A process may end while its threads count: gcovr leaves such a count
  # out instead of failing.
  build build/coverage -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS='--coverage -fprofile-update=atomic -O0' &&
    find build/coverage -name '*.gcda' -delete &&
    run_tests build/coverage &&
    gcovr --root . --filter '(platform|config|debug|process)/' --exclude-throw-branches --exclude-unreachable-branches \
      --gcov-ignore-parse-errors --print-summary --fail-under-line 97 --fail-under-branch 85 \
      build/coverage/CMakeFiles/velt_objects.dir
}

install_as_documented() {
  local clone=$PWD/build/documented line lines
  rm -rf "$clone" "$clone.root"
  git clone -q . "$clone" || return 1
  lines=$(grep -E '^ {4}(scripts/setup\.sh &&|cmake) ' README.md)
  [[ $(wc -l <<<"$lines") -eq 4 ]] || return 1
  ldconfig() { :; } # the machine's own libraries stay as they are
  while IFS= read -r line; do
    line=${line%%#*}
    if [[ $line == *uninstall* ]]; then
      [[ -e $clone.root/usr/local/bin/veltcfg && $(find "$clone.root" -name libveltbaseutil.so.1) ]] || return 1
    fi
    (cd "$clone" && if [[ $line == *--install* || $line == *uninstall* ]]; then export DESTDIR=$clone.root; fi && eval "$line") || return 1
  done <<<"$lines"
  [[ -z $(find "$clone.root" ! -type d) ]] &&
    [[ $(find "$clone/build/install/packages" -maxdepth 1 -name '*.deb' | wc -l) -eq 3 ]]
}

# A bare system of another release, in build/debian-RELEASE; made once, from the mirror that this machine uses.
debian_system() {  # RELEASE NAME
  local root=$PWD/build/debian-$1 mirror
  if [ -e "$root/.complete" ]; then return; fi
  scripts/setup.sh debootstrap &&
    mirror=$(apt-get indextargets --format '$(SITE)' 'Created-By: Packages' | grep -m 1 '/debian/*$') &&
    as_root rm -rf "$root" && as_root debootstrap --variant=minbase "$2" "$root" "$mirror" &&
    echo force-unsafe-io | as_root tee "$root/etc/dpkg/dpkg.cfg.d/fast" && as_root touch "$root/.complete"
}

as_root() { if [ "$(id -u)" -eq 0 ]; then "$@"; else sudo "$@"; fi; }

# A copy of this tree is built and tested in the system. Its mounts end with the command.
debian_tests() {  # RELEASE COMPILER
  local root=$PWD/build/debian-$1 packages=(ccache)
  if [ "$2" = clang++ ]; then packages+=(clang); fi
  as_root cp /etc/resolv.conf "$root/etc/resolv.conf" && as_root rm -rf "$root/source" &&
    as_root mkdir -p "$root/source" "$root/build/ccache" &&
    git ls-files -co -z --exclude-standard | tar --null -T - --ignore-failed-read -c | as_root tar -x -C "$root/source" || return 1
  # shellcheck disable=SC2016  # the inner shells expand it
  as_root unshare --mount bash -euc '
    mount -t proc proc "$1/proc"
    mount --rbind /dev "$1/dev"
    mount -t tmpfs tmpfs "$1/tmp"
    exec chroot "$1" env -i HOME=/root PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin \
      LC_ALL=C.UTF-8 CCACHE_DIR=/build/ccache bash -euc "$2" run "${@:3}"
  ' outer "$root" '
    compiler=$1 jobs=$2
    cd /source
    apt-get update -q
    scripts/setup.sh --tests "${@:3}"
    cmake -S . -B "/build/$compiler" -G Ninja -DCMAKE_BUILD_TYPE=Release -DCMAKE_CXX_COMPILER="$compiler" \
      -DCMAKE_CXX_COMPILER_LAUNCHER=ccache
    cmake --build "/build/$compiler" -j "$jobs"
    ctest --test-dir "/build/$compiler" -j $((jobs * 4)) --output-on-failure --timeout 600
    cmake --build "/build/$compiler" --target package
    apt install -y --allow-downgrades --reinstall "/build/$compiler"/packages/*.deb
    veltcfg --version
    apt remove -y libveltbaseutil1
  ' "$2" "$jobs" "${packages[@]}"
}

debian() {  # RELEASE [COMPILER]
  local name compiler
  case ${1:-} in
    12) name=bookworm ;;
    13) name=trixie ;;
    11)
      echo 'Debian 11 brings CMake 3.18, and this tree needs 3.25: take 12 or 13' >&2
      exit 2
      ;;
    *) usage ;;
  esac
  quietly "debian $1 system" debian_system "$1" "$name"
  for compiler in ${2:-g++ clang++}; do
    quietly "debian $1 $compiler" debian_tests "$1" "$compiler"
    grep -E '^[0-9]+% tests passed|\(Skipped\)|\*\*\*Skipped' "$logs/check-debian-$1-$compiler.log"
  done
}

usage() {
  echo "usage: $0 [lint|clang|valgrind|coverage|install|debian 12|13 [g++|clang++]]" >&2
  exit 2
}

case ${1:-all} in
  debian) debian "${@:2}" ;;
  lint) quietly 'lint over tests' lint ;;
  install) quietly 'install' install_as_documented ;;
  clang) quietly 'clang' clang_release && quietly 'clang asan' clang_asan && quietly 'clang tsan' clang_tsan ;;
  valgrind) quietly 'valgrind' valgrind_tests ;;
  coverage) quietly 'coverage' coverage && tail -n 3 "$logs/check-coverage.log" ;;
  all)
    quietly 'clang' clang_release
    quietly 'clang asan' clang_asan
    quietly 'clang tsan' clang_tsan
    quietly 'valgrind' valgrind_tests
    quietly 'coverage' coverage
    tail -n 3 "$logs/check-coverage.log"
    quietly 'lint over tests' lint
    quietly 'install' install_as_documented
    ;;
  *) usage ;;
esac
