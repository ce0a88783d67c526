#!/usr/bin/env bash
# Makes the Debian packages, unpacks them into a scratch root, and builds and runs a host against them by CMake's
# find_package and by pkg-config.
#
#   packages_test.sh BUILD_DIRECTORY SOURCE_DIRECTORY COMPILER VERSION
set -euo pipefail
export LC_ALL=C
build=$1 source=$2 compiler=$3 version=$4

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
root=$scratch/root
mkdir -p "$root" "$scratch/log"

fail() {
  printf '%s\n' "$*" >&2
  exit 1
}
# Runs a step; what it prints is shown only when it fails.
quietly() {
  "$@" >"$scratch/output" 2>&1 || { cat "$scratch/output" >&2; fail "failed: $*"; }
}
field() { dpkg-deb -f "${package[$1]}" "$2"; }

quietly cpack --config "$build/CPackConfig.cmake" -G DEB -B "$scratch/packages"
declare -A package
for name in libveltbaseutil1 libveltbaseutil-dev veltbaseutil-tools; do
  package[$name]=$scratch/packages/${name}_$version-1_$(dpkg --print-architecture).deb
  [[ -f ${package[$name]} ]] || fail "no package $name: $(ls "$scratch/packages")"
  [[ $(field "$name" Maintainer) == 'libveltbaseutil authors '* ]] || fail "$name: another maintainer"
  dpkg-deb -x "${package[$name]}" "$root"
  documents=$root/usr/share/doc/$name
  grep -q 'Permission is hereby granted' "$documents/copyright" || fail "$name: no license in its copyright file"
  [[ $(gzip -dc "$documents/changelog.Debian.gz") == "veltbaseutil ($version-1) "* ]] ||
    fail "$name: its change log does not begin with $version"
  gzip -t "$documents/changelog.gz"
done
[[ $(find "$scratch/packages" -maxdepth 1 -name '*.deb' | wc -l) -eq 3 ]] || fail "more than three packages"

# The dependencies of each package: hosts need neither ACE's headers nor the compressors'.
compressor=
if grep -q '^VELT_GZIP:STRING=isal$' "$build/CMakeCache.txt"; then compressor=libisal2; fi
for wanted in libace- libc6 libstdc++6 zlib1g $compressor; do
  [[ $(field libveltbaseutil1 Depends) == *"$wanted"* ]] || fail "the library does not depend on $wanted"
done
[[ $(field libveltbaseutil-dev Depends) == "libveltbaseutil1 (= $version-1), pkg-config" ]] ||
  fail "the headers depend on $(field libveltbaseutil-dev Depends)"
[[ $(field libveltbaseutil-dev Recommends) == 'libfmt-dev (>= 9)' ]] || fail "velt/log.h is not to be had: no libfmt-dev"
[[ $(field veltbaseutil-tools Depends) == "libveltbaseutil1 (= $version-1), "*libc6* ]] ||
  fail "the tools depend on $(field veltbaseutil-tools Depends)"
[[ $(dpkg-deb -I "${package[libveltbaseutil1]}" shlibs) == "libveltbaseutil 1 libveltbaseutil1 (>= $version-1)" ]] ||
  fail "the library's shlibs file is wrong"

# The contents of the packages.
diff -r "$source/include/velt" "$root/usr/include/velt" || fail "other headers are installed than those of the source"
libraries=$(dirname "$(find "$root/usr/lib" -name libveltbaseutil.so)")
[[ $(readlink "$libraries/libveltbaseutil.so") == libveltbaseutil.so.1 ]] || fail "libveltbaseutil.so links elsewhere"
[[ $(readelf -SW "$libraries/libveltbaseutil.so.1") != *.debug_info* ]] || fail "the library is not stripped"
[[ $(ls "$root/usr/bin") == $'veltcfg\nveltpipe' ]] || fail "other tools are installed: $(ls "$root/usr/bin")"
for page in "$source"/docs/man/*.[1-8]; do
  [[ -e $page ]] || continue
  gzip -dc "$root/usr/share/man/man${page##*.}/${page##*/}.gz" | cmp - "$page"
done
tools_documents=$root/usr/share/doc/veltbaseutil-tools
for example in conf rsyslog engine_syslog engine_tee; do
  diff -r "$source/examples/$example" "$tools_documents/examples/$example" || fail "other examples than those of the source"
done
for document in operations.md shipping.md; do
  cat "$tools_documents/$document" 2>/dev/null || gzip -dc "$tools_documents/$document.gz"
done | cmp - <(cat "$source/docs/operations.md" "$source/docs/shipping.md") || fail "other documents than those of the source"
diff -r "$source/share" "$root/usr/share/veltbaseutil"

# Links of the documents lead to something that the same package has.
while IFS=: read -r document link; do
  [[ -e ${document%/*}/${link%%#*} || -e ${document%/*}/${link%%#*}.gz ]] || fail "${document##*/} links to $link, which is not there"
done < <(grep -rHoE --include='*.md' '\]\([^)#:][^):]*\)' "$tools_documents" "$root/usr/share/doc/libveltbaseutil-dev" |
  sed -E 's/\]\((.*)\)$/\1/')
if grep -rlF -e "$build" -e "$source" "$root"; then fail "these files name the directories that they were made in"; fi

# The log holds the one line that the host traced, and the trailer of an orderly end.
check_log() {  # DIRECTORY HOW
  local files=("$1"/host_*.log)
  [[ ${#files[@]} -eq 1 && -f ${files[0]} ]] || fail "found by $2: log directory holds $(ls "$1")"
  if [[ $(grep -cE "^.{21}\.T[0-9]+ net I: found by $2\$" "${files[0]}") -ne 1 ]] ||
    ! grep -q '^File close at ' "${files[0]}"; then
    cat "${files[0]}" >&2
    fail "found by $2: the line of the host or the trailer is missing"
  fi
}

# CMake must not find zlib and {fmt}, nor pkg-config other packages: a host's machine need not have them.
quietly cmake -S "$source/tests/release/host" -B "$scratch/by_cmake" -DCMAKE_CXX_COMPILER="$compiler" \
  -DCMAKE_PREFIX_PATH="$root/usr" -DCMAKE_DISABLE_FIND_PACKAGE_ZLIB=ON -DCMAKE_DISABLE_FIND_PACKAGE_fmt=ON \
  -DCMAKE_BUILD_TYPE=Release
quietly cmake --build "$scratch/by_cmake"
mkdir "$scratch/log/cmake"
quietly "$scratch/by_cmake/host" "$scratch/log/cmake" find_package
check_log "$scratch/log/cmake" find_package

# A host of velt/log.h: only this one needs {fmt}, and gets an error that names it where it is missing.
quietly cmake -S "$source/tests/release/log_host" -B "$scratch/log_by_cmake" -DCMAKE_CXX_COMPILER="$compiler" \
  -DCMAKE_PREFIX_PATH="$root/usr" -DCMAKE_BUILD_TYPE=Release
quietly cmake --build "$scratch/log_by_cmake"
mkdir "$scratch/log/log_cmake"
quietly "$scratch/log_by_cmake/log_host" "$scratch/log/log_cmake" find_package
check_log "$scratch/log/log_cmake" find_package
if cmake -S "$source/tests/release/log_host" -B "$scratch/log_without_fmt" -DCMAKE_CXX_COMPILER="$compiler" \
  -DCMAKE_PREFIX_PATH="$root/usr" -DCMAKE_DISABLE_FIND_PACKAGE_fmt=ON >"$scratch/output" 2>&1; then
  fail 'the component log is found without {fmt}'
fi
grep -q 'libfmt-dev' "$scratch/output" || { cat "$scratch/output" >&2; fail 'nothing says that {fmt} is missing'; }

mkdir "$scratch/pkgconfig_fmt"
cp "$(pkg-config --variable=pcfiledir fmt)/fmt.pc" "$scratch/pkgconfig_fmt"
mkdir "$scratch/pkgconfig"
export PKG_CONFIG_LIBDIR=$scratch/pkgconfig PKG_CONFIG_PATH=$libraries/pkgconfig
[[ $(pkg-config --modversion veltbaseutil) == "$version" ]] || fail "pkg-config says another version than $version"
read -ra flags <<<"$(pkg-config --cflags --libs veltbaseutil)"
if [[ " ${flags[*]} " =~ ' '-l(z|isal|ACE)' ' ]]; then fail "pkg-config asks hosts for ${BASH_REMATCH[0]}"; fi
quietly "$compiler" -std=c++17 "$source/tests/release/host/host.cpp" -o "$scratch/by_pkg_config" "${flags[@]}"
mkdir "$scratch/log/pkg-config"
export LD_LIBRARY_PATH=$libraries
quietly "$scratch/by_pkg_config" "$scratch/log/pkg-config" pkg-config
check_log "$scratch/log/pkg-config" pkg-config
if [[ " ${flags[*]} " == *fmt* ]]; then fail "pkg-config asks hosts for {fmt} that do not use it"; fi
[[ $(PKG_CONFIG_PATH+=:$scratch/pkgconfig_fmt pkg-config --modversion veltbaseutil-log) == "$version" ]] || fail "pkg-config says another version of veltbaseutil-log"
if pkg-config --exists veltbaseutil-log; then fail "pkg-config finds velt/log.h usable without {fmt}"; fi
read -ra flags <<<"$(PKG_CONFIG_PATH+=:$scratch/pkgconfig_fmt pkg-config --cflags --libs veltbaseutil-log)"
quietly "$compiler" -std=c++17 "$source/tests/release/log_host/log_host.cpp" -o "$scratch/log_by_pkg_config" "${flags[@]}"
mkdir "$scratch/log/log_pkg-config"
quietly "$scratch/log_by_pkg_config" "$scratch/log/log_pkg-config" pkg-config
check_log "$scratch/log/log_pkg-config" pkg-config

printf 'a first line\na line of some program\n' | quietly "$root/usr/bin/veltpipe" --name pipe_ --dir "$scratch/log/pipe"
grep -q 'a line of some program$' "$scratch"/log/pipe/pipe_*.log || fail "the packaged veltpipe wrote nothing"

# The lnav format is where lnav looks for the machine's formats, and with it lnav recognises a family.
link=etc/lnav/formats/veltbaseutil/veltbaseutil_log.json
[[ -L $root/$link && -f $root$(readlink "$root/$link") ]] || fail "lnav's format is not in its place: $(find "$root/etc" 2>&1)"
mkdir -p "$scratch/machine/${link#etc/}" "$scratch/home"
rmdir "$scratch/machine/${link#etc/}"
cp "$root$(readlink "$root/$link")" "$scratch/machine/${link#etc/}"
seen=$(env -u XDG_CONFIG_HOME HOME="$scratch/home" TERM=xterm lnav -n -I "$scratch/machine/lnav" \
  -c ';SELECT log_level, module FROM veltbaseutil_log WHERE event IS NULL' "$scratch/log/pipe" </dev/null)
[[ $seen == *info*app* ]] || fail "lnav shows of the pipe's family: $seen"

[[ $("$root/usr/bin/veltcfg" --version) == *"$version"* ]] || fail "the packaged veltcfg says another version"
unset LD_LIBRARY_PATH

as_root=()
if [[ $(id -u) -eq 0 ]]; then as_root=(--allow-root); fi
quietly lintian --no-cfg "${as_root[@]}" --fail-on error "${package[@]}"
