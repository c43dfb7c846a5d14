#!/usr/bin/env bash
# Builds the library and runs its tests.
#   scripts/test.sh [preset] [ctest options]
# The presets are release (the default), debug, asan-ubsan and clang, the same for 32-bit x86:
# linux-i386, asan-ubsan-i386 and clang-i386, and windows-x86_64 and windows-i686. Two build and run a
# part: tsan what threads may do at once, check-pins the examples under Valgrind with unpinned objects
# hidden. Ends with status 77 where programs of a preset can be built but do not run.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$root"
# shellcheck source=scripts/lib/packages.sh
source scripts/lib/packages.sh
# shellcheck source=scripts/lib/machine.sh
source scripts/lib/machine.sh

preset=release
if (($# > 0)) && [[ $1 != -* ]]; then
  preset=$1
  shift
fi

packages=("${QRT_BUILD_PACKAGES[@]}")
case $preset in clang*) packages+=("${QRT_CI_PACKAGES[@]}") ;; esac
case $preset in *i386) packages+=("${QRT_I386_PACKAGES[@]}") ;; esac
case $preset in windows*) packages+=("${QRT_WINDOWS_PACKAGES[@]}") ;; esac
qrt_install_packages "${packages[@]}"
if [[ $preset == *i386 ]] && ! qrt_runs_32_bit; then
  echo "This machine does not run 32-bit programs: no test of $preset can run here." >&2
  exit 77
fi
cmake --preset "$preset"
cmake --build --preset "$preset"
ctest --preset "$preset" -j "$(nproc)" "$@"
