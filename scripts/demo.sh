#!/usr/bin/env bash
# Builds the library and shows it at work: 170 MB of XML in 2,000 real documents become trees in a
# store that may use 16 MiB of memory. They are searched, edited, written back and compared with
# their files. With arguments it hands these on to xmltree instead (try --help).
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$root"
# shellcheck source=scripts/lib/packages.sh
source scripts/lib/packages.sh

readonly documents=/usr/share/unicode/cldr
readonly german=$documents/common/main/de.xml

qrt_install_packages "${QRT_BUILD_PACKAGES[@]}" "${QRT_DEMO_PACKAGES[@]}"
cmake --preset release
cmake --build --preset release --target xmltree
xmltree=build/release/examples/xmltree/xmltree

if (($#)); then
  exec "$xmltree" "$@"
fi

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

# Says what is to be run, then runs it.
show() {
  printf '\n$ xmltree'
  printf ' %q' "$@"
  printf '\n'
  "$xmltree" "$@"
}

show outline --depth 4 --children 3 "$german"
show find --limit 5 "//ldml/localeDisplayNames/territories/territory[@type='DE']" "$documents"
show edit --remove "//localeDisplayNames/languages" --move "//territories" --to "/ldml/identity" \
  --append "/ldml/identity" --xml "<note>edited in the store</note>" \
  --output "$scratch/edited.xml" "$german"
show outline --depth 3 --children 4 "$scratch/edited.xml"
show export --output "$scratch/copy.xml" "$german"
show check "$german" "$scratch/copy.xml"
show load --verify "$documents"
