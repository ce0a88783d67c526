# shellcheck shell=bash
# Writes the ABI of a library as the baseline has it; to be sourced. Left out are types that no public header defines,
# addresses, and source lines.
write_abi() {  # LIBRARY HEADERS FILE
  abidw --headers-dir "$2" --drop-private-types --exported-interfaces-only --drop-undefined-syms \
    --no-corpus-path --no-comp-dir-path --no-show-locs --no-elf-needed --no-write-default-sizes --out-file "$3" "$1" &&
    sed -i -E "s|path='[^']*/([^/']+/[^/']+)'|path='\\1'|" "$3"  # of sources, the room and the name stay
}
