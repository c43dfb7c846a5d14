#!/usr/bin/env bash
# Compares what hosts were compiled against with what the library is now: functions, virtual tables,
# the layout of exported classes. Ends with an error on any difference.
#   tests/abi/check.sh            compares with tests/abi/x86_64.abi and tests/abi/i386.abi
#   tests/abi/check.sh --accept   takes the library as it is for the new baseline. A change that hosts
#                                 do not survive needs a new minor version in CMakeLists.txt first.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
cd "$root"
# shellcheck source=scripts/lib/packages.sh
source scripts/lib/packages.sh
accept=no
case ${1:-} in
  "") ;;
  --accept) accept=yes ;;
  *)
    sed -n '2,6s/^# \{0,1\}//p' "${BASH_SOURCE[0]}"
    exit 2
    ;;
esac
qrt_install_packages "${QRT_BUILD_PACKAGES[@]}" "${QRT_I386_PACKAGES[@]}" abigail-tools

# describe <architecture> <cmake option...>: writes build/abi-<architecture>/now.abi
describe() {
  local build=build/abi-$1
  cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DQRT_BUILD_TESTS=OFF \
    -DQRT_BUILD_EXAMPLES=OFF "${@:2}" >/dev/null 2>&1
  cmake --build "$build" --target QRTVirtualMemMgmt >/dev/null
  # Only what the public headers show: what stands behind a pointer is the library's own affair.
  abidw --headers-dir include --headers-dir platform/QRTCore --headers-dir platform/HZSStreams \
    --drop-private-types --exported-interfaces-only --no-parameter-names --no-show-locs \
    --no-corpus-path --no-comp-dir-path --type-id-style hash \
    --out-file "$build/now.abi" "$build/src/libQRTVirtualMemMgmt.so"
}

failed=0
compare() {
  local architecture=$1
  describe "$@"
  if [[ $accept == yes ]]; then
    cp "build/abi-$architecture/now.abi" "tests/abi/$architecture.abi"
    return
  fi
  echo "$architecture"
  if ! abidiff "tests/abi/$architecture.abi" "build/abi-$architecture/now.abi"; then
    failed=1
  fi
}
compare x86_64 -DCMAKE_CXX_COMPILER=g++
compare i386 -DCMAKE_TOOLCHAIN_FILE=cmake/toolchains/linux-i386.cmake
if ((failed)); then
  echo "Hosts would notice. If that is wanted, see tests/abi/check.sh --help." >&2
fi
exit "$failed"
