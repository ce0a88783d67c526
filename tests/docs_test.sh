#!/bin/bash
# Compiles the programs of the documents: every ```cpp block with an "int main" has to be right as it stands.
#
#   docs_test.sh SOURCE_DIRECTORY [COMPILER]
#
# Errors name the document and its line. Exit 1 when a block does not compile or a document has no program at all.
set -euo pipefail

if [[ $# -lt 1 || ! -d $1/include/velt ]]; then
  echo "usage: $0 SOURCE_DIRECTORY [COMPILER]" >&2
  exit 2
fi
source_directory=$(cd "$1" && pwd)
compiler=${2:-g++}

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
failed=0

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

for document in README.md docs/host-guide.md; do
  stem=$scratch/$(basename "$document" .md)_
  extract_programs "$document" "$stem" || failed=1
  programs=0
  for program in "$stem"*.cpp; do
    [[ -e $program ]] || continue
    programs=$((programs + 1))
    "$compiler" -std=c++17 -Wall -Wextra -Werror -fsyntax-only -I"$source_directory/include" "$program" || failed=1
  done
  if [[ $programs -eq 0 ]]; then
    echo "$document: no program found"
    failed=1
  fi
  echo "$document: $programs programs"
done
exit "$failed"
