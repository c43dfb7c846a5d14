#!/usr/bin/env bash
# Builds the library and runs its tests.
#   scripts/test.sh [preset] [ctest options]
# The presets are release (the default), debug, asan-ubsan and clang.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$root"
# shellcheck source=scripts/lib/packages.sh
source scripts/lib/packages.sh

preset=release
if (($# > 0)) && [[ $1 != -* ]]; then
  preset=$1
  shift
fi

packages=("${QRT_BUILD_PACKAGES[@]}")
if [[ $preset == clang ]]; then
  packages+=("${QRT_CI_PACKAGES[@]}")
fi
qrt_install_packages "${packages[@]}"
cmake --preset "$preset"
cmake --build --preset "$preset"
ctest --preset "$preset" -j "$(nproc)" "$@"
