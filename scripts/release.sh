#!/usr/bin/env bash
# Makes a release of what is committed: checks it, packs it, tags it. Pushes nothing.
#   scripts/release.sh [--dry-run] [--no-ci]
#     --dry-run   everything but the tag; works before the changelog has a date
#     --no-ci     without .ci/run, for when it has just passed on the same commit
# The version is that of CMakeLists.txt. The archive and its checksum are in build/dist: made of the same
# commit it has the same bytes, wherever and whenever. Debian packages are made by scripts/package.sh.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$root"

dry_run=no
ci=yes
for argument in "$@"; do
  case $argument in
    --dry-run) dry_run=yes ;;
    --no-ci) ci=no ;;
    *)
      sed -n '2,7s/^# \{0,1\}//p' "${BASH_SOURCE[0]}"
      exit 2
      ;;
  esac
done
refuse() {
  echo "No release: $*" >&2
  exit 1
}

version=$(sed -n 's/^project(QRTVirtualMemMgmt VERSION \([0-9.]*\) .*/\1/p' CMakeLists.txt)
[[ $version =~ ^[0-9]+\.[0-9]+\.[0-9]+$ ]] || refuse "CMakeLists.txt names no version"
name=qrtvirtualmemmgmt-$version
tag=v$version
[[ -z $(git status --porcelain) ]] || refuse "there are changes that are not committed"
if git rev-parse -q --verify "refs/tags/$tag" >/dev/null; then
  refuse "$tag is there already; a new version goes into CMakeLists.txt"
fi
if [[ $dry_run == no ]] && ! grep -qE "^## ${version//./\\.} - [0-9]{4}-[0-9]{2}-[0-9]{2}$" CHANGELOG.md; then
  refuse "CHANGELOG.md has no section '## $version - <date>'"
fi

# pack <file>: git stamps every member with the commit's date, gzip -n adds none of its own.
pack() { git archive --format=tar --prefix="$name/" HEAD | gzip -9n >"$1"; }

mkdir -p build/dist
archive=build/dist/$name.tar.gz
pack "$archive"
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
pack "$scratch/again.tar.gz"
cmp "$archive" "$scratch/again.tar.gz" || refuse "the archive differs from one packing to the next"

echo "what is in the archive builds and says hello"
tar -xzf "$archive" -C "$scratch"
cmake -S "$scratch/$name" -B "$scratch/build" -G Ninja -DCMAKE_BUILD_TYPE=Release \
  -DQRT_BUILD_TESTS=OFF >/dev/null
cmake --build "$scratch/build" --target hello >/dev/null
[[ $("$scratch/build/examples/hello/hello") == "hello from the store" ]] || refuse "hello is silent"

if [[ $ci == yes ]]; then
  .ci/run
fi
(cd build/dist && sha256sum "$name.tar.gz" | tee "$name.tar.gz.sha256")
if [[ $dry_run == yes ]]; then
  echo "$tag was not made: --dry-run"
else
  git tag -a "$tag" -m "QRTVirtualMemMgmt $version"
  echo "$tag is made; push it with: git push origin $tag"
fi
