#!/usr/bin/env bash
# The longer check: lint over the tests, clang builds (plain and under its sanitizers), valgrind, coverage, and the
# README's commands for installing, with a root of their own.
# scripts/check.sh lint|clang|valgrind|coverage|install runs one of them.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh --tests clang libclang-rt-14-dev valgrind gcovr
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

clang_settings=(-DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++)

clang_release() { build build/clang "${clang_settings[@]}" -DCMAKE_BUILD_TYPE=Release && run_tests build/clang; }
clang_asan() {
  build build/clang-asan "${clang_settings[@]}" -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS_DEBUG='-O1 -g1' \
    -DVELT_SANITIZE=address,undefined && run_tests build/clang-asan
}
clang_tsan() {
  # Its runtime, unlike g++'s, can start threads in a child of a process that had some; and it does not see locks behind
  # the lock functions that two tests put in their place, nor files behind the shim of the fault scenarios: it takes one
  # that was closed there for the next of its number.
  build build/clang-tsan "${clang_settings[@]}" -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS_DEBUG='-O1 -g1' \
    -DVELT_SANITIZE=thread &&
    TSAN_OPTIONS=die_after_fork=0 setarch -R ctest --test-dir build/clang-tsan -j $((jobs * 4)) --output-on-failure \
      -LE faults -E LockFailure
}

valgrind_tests() {
  # Each test case in a process of its own here too. Left out are whole programs and scripts, which valgrind does not
  # follow into, what takes too long at its pace, and a thread's signal mask, which it changes for its own ends.
  local programs='Veltpipe|Veltcfg|ServiceHost|EndToEnd|Syslog|Checker|^fuzz_|^exports$|^docs$|^man$|^doxygen$|^picture$'
  local others='Megabyte|Million|Depot|TheThreadBlocksEverySignal'
  local settings=(-j $((jobs * 2)) -LE 'faults|load')
  # The programs that replace operator new keep theirs, and no thread is kept waiting by another that never rests.
  build build/valgrind -DCMAKE_BUILD_TYPE=Debug \
    '-DCMAKE_CROSSCOMPILING_EMULATOR=valgrind;--quiet;--error-exitcode=9;--fair-sched=yes;--soname-synonyms=somalloc=nouserintercepts' &&
    VALGRIND_OPTS='--leak-check=full --errors-for-leak-kinds=definite' \
      run_tests build/valgrind "${settings[@]}" -E "$programs|$others|Child|Fork" &&
    # What only the stacks of the parent's other threads refer to looks lost in a forked child.
    VALGRIND_OPTS='--leak-check=no' run_tests build/valgrind "${settings[@]}" -R 'Child|Fork' -E "$programs"
}

coverage() {
  # Counters of threads must not be lost. A count that is not consistent, because a process ended in the middle of its
  # threads, is left out by gcovr instead of ending it.
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
  [[ $(wc -l <<<"$lines") -eq 3 ]] || return 1
  ldconfig() { :; } # the machine's own libraries stay as they are
  while IFS= read -r line; do
    (cd "$clone" && if [[ $line == *--install* ]]; then export DESTDIR=$clone.root; fi && eval "$line") || return 1
  done <<<"$lines"
  [[ -e $clone.root/usr/local/bin/veltcfg && $(find "$clone.root" -name libveltbaseutil.so.1) ]] &&
    [[ $(find "$clone/build/install/packages" -maxdepth 1 -name '*.deb' | wc -l) -eq 3 ]]
}

case ${1:-all} in
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
  *)
    echo "usage: $0 [lint|clang|valgrind|coverage|install]" >&2
    exit 2
    ;;
esac
