#!/usr/bin/env bash
# Compares the library with others, or with an earlier revision of itself.
#   scripts/bench.sh [--quick | --smoke] [--only WORKLOAD[,..]] [--peers PEER[,..]] [--rounds N]
#                    [--large] [--list] [--output DIR] [--against REV]
# Installs what is missing, builds the suite and starts its driver; --help tells the rest.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
# shellcheck source=scripts/lib/packages.sh
source "$root/scripts/lib/packages.sh"

# What only tells something is not worth a build, and against a revision the driver builds itself.
build=yes
for argument in "$@"; do
  case $argument in -h | --help | --list | --against*) build=no ;; esac
done

qrt_install_packages "${QRT_BUILD_PACKAGES[@]}" "${QRT_BENCH_PACKAGES[@]}"
# The system's Python, which has the packages, whatever else the path leads to.
export PYTHONPATH=$root/bench/suite PYTHONDONTWRITEBYTECODE=1
driver=(/usr/bin/python3 -m driver)

if [[ $build == yes ]]; then
  "${driver[@]}" --list "$@" >/dev/null # so that a wrong option is told at once
  (
    cd "$root"
    cmake --preset bench
    cmake --build --preset bench --target bench/suite/all
  )
fi
exec "${driver[@]}" "$@"
