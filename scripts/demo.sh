#!/usr/bin/env bash
# Builds the library and runs the main job: real files many times larger than the memory budget go
# into the store and come back intact. Arguments are handed on to filestore (try --help).
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$root"
# shellcheck source=scripts/lib/packages.sh
source scripts/lib/packages.sh

# Twenty times the default budget of 16 MiB, and a fifth to spare: the sizes that du tells count
# directories too. Less data than this would not show much.
readonly wanted_mib=$((24 * 16))

qrt_install_packages "${QRT_BUILD_PACKAGES[@]}"
cmake --preset release
cmake --build --preset release --target filestore
filestore=build/release/examples/filestore/filestore

# The arguments name directories when one of them is a directory; otherwise this script chooses.
choose=1
for argument in "$@"; do
  if [[ -d $argument || $argument == -h || $argument == --help ]]; then
    choose=0
  fi
done

directories=()
if ((choose)); then
  held_mib=0
  for directory in /usr/share /usr/lib /usr/bin /usr/include /usr/libexec /var/lib; do
    if ((held_mib >= wanted_mib)); then
      break
    fi
    # du fails when something in the directory is unreadable; its total still stands.
    size=$(du -smx --apparent-size "$directory" 2>/dev/null | cut -f1) || true
    held_mib=$((held_mib + ${size:-0}))
    directories+=("$directory")
  done
  if ((${#directories[@]} > 1)); then
    echo "/usr/share holds less than $wanted_mib MiB here: storing ${directories[*]}"
  fi
fi

echo
exec "$filestore" "${directories[@]}" "$@"
