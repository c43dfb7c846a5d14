#!/usr/bin/env bash
# Installs a build into a fresh directory, moves it, and links a host against it both ways.
#   tests/install/check.sh <build directory>
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
build=$1
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

cmake --install "$build" --prefix "$scratch/first" >/dev/null
mv "$scratch/first" "$scratch/moved" # nothing installed may remember the prefix
prefix=$scratch/moved
libdir=$(dirname "$(find "$prefix" -name 'libQRTVirtualMemMgmt.so')")

expect_greeting() {
  local said
  said=$("$@")
  if [[ $said != "hello from the store" ]]; then
    echo "$1 said '$said'" >&2
    return 1
  fi
}

echo "find_package"
cmake -S "$here" -B "$scratch/consumer" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$scratch/consumer" >/dev/null
expect_greeting "$scratch/consumer/consumer"

echo "pkg-config"
export PKG_CONFIG_PATH=$libdir/pkgconfig
read -ra flags < <(pkg-config --cflags --libs QRTVirtualMemMgmt)
"${CXX:-c++}" -std=c++17 "$here/../../examples/hello/hello.cpp" "${flags[@]}" -o "$scratch/hello"
LD_LIBRARY_PATH=$libdir expect_greeting "$scratch/hello"
