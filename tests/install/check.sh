#!/usr/bin/env bash
# Links hosts against the library in every way that the README names.
#   tests/install/check.sh installed <build directory> [options of cmake...]
#       installs a build into a folder with a space in its name, moves it, and links hosts by find_package
#       and pkg-config; the options, a toolchain file say, are for a host that is built for another system
#   tests/install/check.sh subproject add_subdirectory|FetchContent [options of cmake...]
#       builds the library as a part of a host
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
root=$(cd "$here/../.." && pwd)
kind=$1
what=$2
shift 2
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

# expect_greeting <command...>
expect_greeting() {
  local said
  said=$("$@" | tr -d '\r')
  if [[ $said != "hello from the store" ]]; then
    echo "$* said '$said'" >&2
    return 1
  fi
}

# run_host <folder> <name>: the host that was built there, in Wine if it is for Windows.
run_host() {
  if [[ -f $1/$2.exe ]]; then
    "$root/cmake/toolchains/wine.sh" "$(command -v wine64 || echo /usr/lib/wine/wine64)" "$1/$2.exe"
  else
    "$1/$2"
  fi
}

installed() {
  local libdir prefix="$scratch/moved here" build=$what
  cmake --install "$build" --prefix "$scratch/first one" >/dev/null
  mv "$scratch/first one" "$prefix" # nothing installed may remember the prefix
  libdir=$(dirname "$(find "$prefix" -name 'QRTVirtualMemMgmtConfig.cmake')")/../..

  echo "find_package"
  cmake -S "$here" -B "$scratch/consumer" -G Ninja -DQRTVirtualMemMgmt_DIR="$libdir/cmake/QRTVirtualMemMgmt" "$@" >/dev/null
  cmake --build "$scratch/consumer" >/dev/null
  if [[ -d $prefix/bin ]]; then
    cp "$prefix"/bin/*.dll "$scratch/consumer/" # a DLL is found beside its program
  fi
  expect_greeting run_host "$scratch/consumer" consumer

  if (($#)); then
    return 0 # what pkg-config says is the same for every system
  fi
  echo "pkg-config"
  export PKG_CONFIG_PATH=$libdir/pkgconfig
  local flags
  mapfile -t flags < <(pkg-config --cflags --libs QRTVirtualMemMgmt | xargs -n1)
  "${CXX:-c++}" -std=c++17 "$root/examples/hello/hello.cpp" "${flags[@]}" -o "$scratch/hello"
  LD_LIBRARY_PATH=$libdir expect_greeting "$scratch/hello"
  [[ $(pkg-config --modversion QRTVirtualMemMgmt) == $(sed -n 's/.*VERSION \([0-9.]*\) LANG.*/\1/p' \
    "$root/CMakeLists.txt") ]]

  echo "pkg-config with absolute folders"
  cmake -S "$root" -B "$scratch/absolute" -G Ninja -DCMAKE_BUILD_TYPE=Debug -DQRT_BUILD_TESTS=OFF \
    -DQRT_BUILD_EXAMPLES=OFF "-DCMAKE_INSTALL_LIBDIR=/opt/so me/lib" \
    "-DCMAKE_INSTALL_INCLUDEDIR=/opt/so me/include" >/dev/null
  [[ $(PKG_CONFIG_PATH=$scratch/absolute pkg-config --cflags --libs QRTVirtualMemMgmt | xargs -n1) == \
    $'-I/opt/so me/include/QRTVirtualMemMgmt\n-L/opt/so me/lib\n-lQRTVirtualMemMgmt' ]]
}

subproject() {
  echo "$what $*"
  cmake -S "$here/subproject" -B "$scratch/host" -G Ninja -DQRT_FROM="$root" -DQRT_HOW="$what" \
    "$@" >/dev/null
  cmake --build "$scratch/host" >/dev/null
  expect_greeting run_host "$scratch/host" host
  # A host's installation has the host and nothing of ours, unless it asks for it.
  cmake --install "$scratch/host" --prefix "$scratch/prefix" >/dev/null
  [[ $(find "$scratch/prefix" -type f -printf '%P\n') == bin/host ]]
}

"$kind" "$@"
