#!/usr/bin/env bash
# Runs the model machine from random seeds for some minutes on all cores, and counts what it did: an
# optimised build with the engine's assertions, plain, with faults and on a small disk that fills up,
# then the sanitizers' build with faults. Fails at the first difference between the library and its
# models, and names the seed that shows it again.
#   scripts/soak.sh <minutes>
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$root"
# shellcheck source=scripts/lib/packages.sh
source scripts/lib/packages.sh

minutes=${1:?how many minutes}
readonly disk_size=1m # a fraction of what a run stores

qrt_install_packages "${QRT_BUILD_PACKAGES[@]}"
for preset in soak asan-ubsan; do
  cmake --preset "$preset"
  cmake --build --preset "$preset" --target model_soak
done

cores=$(nproc)
logs=build/soak/logs
rm -rf "$logs"
mkdir -p "$logs"
mounted=()
# shellcheck disable=SC2317  # called when the script ends
unmount() {
  local disk
  for disk in "${mounted[@]}"; do
    umount "$disk"
    rmdir "$disk"
  done
}
trap unmount EXIT

# A disk of its own for each core, so that each fills up by itself.
disks=()
for ((core = 0; core < cores; ++core)); do
  disk=$(mktemp -d)
  if ((EUID == 0)) && mount -t tmpfs -o "size=$disk_size" qrt-soak "$disk" 2>/dev/null; then
    mounted+=("$disk")
    disks+=("$disk")
  else
    rmdir "$disk"
    echo "SKIPPED: the disk that fills up, which only root can mount"
    break
  fi
done

# build, mode: each core does one after the other.
parts=("soak plain" "soak faults" "asan-ubsan faults")
if ((${#disks[@]} == cores)); then
  parts+=("soak disk")
fi
seconds=$((minutes * 60 / ${#parts[@]}))

# work <core>
work() {
  local core=$1 part build mode log directory
  for part in "${parts[@]}"; do
    read -r build mode <<<"$part"
    log=$logs/$core-$build-$mode.log
    directory=${TMPDIR:-/tmp}
    if [[ $mode == disk ]]; then
      directory=${disks[core]} # the others may not meet a full one
    fi
    if ! TMPDIR=$directory "build/$build/tests/model/model_soak" "$mode" "$seconds" \
      >"$log" 2>&1; then
      echo "LOST: build/$build/tests/model/model_soak $mode, $log ends with"
      tail -n 40 "$log"
      return 1
    fi
  done
}

workers=()
for ((core = 0; core < cores; ++core)); do
  work "$core" &
  workers+=($!)
done
status=0
for worker in "${workers[@]}"; do
  wait "$worker" || status=1
done

echo
for part in "${parts[@]}"; do
  read -r build mode <<<"$part"
  awk -v name="$build $mode" '/^counts / { runs += $2; operations += $3; faults += $4; failed += $5
                                           losses += $6 }
       END { printf "%-20s %9d runs %12d operations %11d faults %10d failed calls %d losses\n",
                    name, runs, operations, faults, failed, losses }' \
    "$logs"/*-"$build-$mode.log"
done
exit "$status"
