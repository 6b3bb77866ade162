#!/bin/bash
# The documents' pictures are what their sources say.
set -euo pipefail
drawn=$(mktemp -d)
trap 'rm -rf "$drawn"' EXIT
scripts/pictures "$drawn"
for picture in packet-way.svg rates.svg top.svg; do
  cmp "$drawn/$picture" "docs/pictures/$picture"
done
