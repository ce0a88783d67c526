# shellcheck shell=bash
# How the baseline and what is compared with it are written; to be sourced. Types that no public header defines are no
# part of it, nor are places, of the machine or in the source.
write_abi() {  # LIBRARY HEADERS FILE
  abidw --headers-dir "$2" --drop-private-types --exported-interfaces-only --drop-undefined-syms \
    --no-corpus-path --no-comp-dir-path --no-show-locs --no-elf-needed --no-write-default-sizes --out-file "$3" "$1" &&
    sed -i -E "s|path='[^']*/([^/']+/[^/']+)'|path='\\1'|" "$3"  # of sources, the room and the name stay
}
