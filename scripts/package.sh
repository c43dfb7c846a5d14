#!/usr/bin/env bash
# Makes the Debian packages in build/package/packages and checks them: the library, its development
# files, and its debug information.
#   scripts/package.sh            builds, has lintian look at them, compiles a host against their content
#   scripts/package.sh --chroot   as root also installs them into an empty system made by debootstrap,
#                                 compiles the README's first program there with the README's own
#                                 lines, runs it, and removes them again
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$root"
# shellcheck source=scripts/lib/packages.sh
source scripts/lib/packages.sh

chroot=no
case ${1:-} in
  "") ;;
  --chroot) chroot=yes ;;
  *)
    sed -n '2,7s/^# \{0,1\}//p' "${BASH_SOURCE[0]}"
    exit 2
    ;;
esac

qrt_install_packages "${QRT_BUILD_PACKAGES[@]}" "${QRT_PACKAGE_PACKAGES[@]}"

# The date in the packages is that of what is packed, not of the packing.
SOURCE_DATE_EPOCH=${SOURCE_DATE_EPOCH:-$(git log -1 --format=%ct 2>/dev/null || echo 0)}
export SOURCE_DATE_EPOCH
cmake --preset package
cmake --build --preset package
cmake --build --preset package --target split_debug
rm -rf build/package/packages
cpack --config build/package/CPackConfig.cmake >build/package/cpack.log ||
  { cat build/package/cpack.log; exit 1; }
shopt -s nullglob
made=(build/package/packages/*.deb)
shopt -u nullglob
if ((${#made[@]} != 3)); then
  echo "expected three packages, made ${#made[@]}: ${made[*]}" >&2
  exit 1
fi
ls -l "${made[@]}"

echo "lintian"
# Not meant for Debian's own archive: no bug report asks for it there.
lintian --fail-on error --allow-root --suppress-tags initial-upload-closes-no-bugs "${made[@]}"

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

# The README's first program.
first_program() { awk '/^```cpp$/ { inside = 1; next } /^```$/ { if (inside) exit } inside' README.md; }

echo "a host of the packages' content"
for package in "${made[@]}"; do
  dpkg-deb -x "$package" "$scratch/unpacked"
done
first_program >"$scratch/host.cpp"
pc=$(dirname "$(find "$scratch/unpacked" -name QRTVirtualMemMgmt.pc)")
mapfile -t flags < <(PKG_CONFIG_PATH=$pc pkg-config --cflags --libs QRTVirtualMemMgmt | xargs -n1)
c++ -std=c++17 "$scratch/host.cpp" "${flags[@]}" -o "$scratch/host"
said=$(LD_LIBRARY_PATH=$(dirname "$pc") "$scratch/host")
[[ $said == "hello from the store" ]] || { echo "the host said '$said'" >&2; exit 1; }
echo "$said"

[[ $chroot == yes ]] || exit 0

if ((EUID != 0)); then
  echo "SKIPPED: the empty system, which takes root to make" >&2
  exit 77
fi
echo "an empty system"
system=$scratch/system
needs=$(dpkg-deb -f build/package/packages/libqrtvirtualmemmgmt0.1_*.deb Depends |
  sed -E 's/ *\([^)]*\)//g; s/, */,/g')
debootstrap --variant=minbase --include="g++,pkg-config,$needs" bookworm "$system" >"$scratch/debootstrap.log" ||
  { tail -20 "$scratch/debootstrap.log"; exit 1; }
cp build/package/packages/*.deb "$scratch/host.cpp" "$system/root/"
# Word for word the README's line for pkg-config.
compile=$(grep -m1 -E '^c\+\+ .*pkg-config.*QRTVirtualMemMgmt' README.md)
cat >"$system/root/try.sh" <<TRY
set -e
cd /root
dpkg -i ./*.deb
$compile
said=\$(./a.out)
echo "\$said"
[ "\$said" = "hello from the store" ]
apt-get -q -y purge libqrtvirtualmemmgmt-dev 'libqrtvirtualmemmgmt0*'
left=\$(find / -xdev -iname '*qrtvirtual*' -not -path '/proc/*' -not -path '/root/*')
if [ -n "\$left" ]; then echo "left behind: \$left"; exit 1; fi
TRY
chroot "$system" sh /root/try.sh
echo "installed, compiled, run and removed in an empty system"
