#!/bin/bash
# The picture of the road of a record shows what its source says: each line of each label, and no other.
#
#   picture_test.sh SOURCE_DIRECTORY
set -euo pipefail

if [[ $# -ne 1 || ! -f $1/docs/figures/road.dot ]]; then
  echo "usage: $0 SOURCE_DIRECTORY" >&2
  exit 2
fi
cd "$1/docs/figures"
in_source=$(grep -v '^ *//' road.dot | grep -oE 'label="[^"]+"' | sed -E 's/^label="(.*)"$/\1/; s/\\n/\n/g' | sed -E 's/ +/ /g' | sort)
in_picture=$(grep -oE '<text [^>]*>[^<]+' road.svg | sed -E "s/^[^>]*>//; s/&#39;/'/g; s/&#160;|\xc2\xa0/ /g; s/ +/ /g" | sort)
diff <(echo "$in_source") <(echo "$in_picture") || {
  echo 'docs/figures/road.svg is not what docs/figures/road.dot says: run docs/tools/make_road.sh'
  exit 1
}
