#!/usr/bin/env bash
# Runs the steps of the vcpkg port and of the Conan recipe with stand-ins for the two tools, which Debian
# does not have: what they would build must build, and nothing of what they take may be missing.
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
root=$(cd "$here/../.." && pwd)
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

echo "vcpkg's port"
cmake -DPORT="$root/packaging/vcpkg" -DTO="$scratch" -P "$here/vcpkg.cmake"

echo "Conan's recipe"
PYTHONPATH=$here/conan PYTHONDONTWRITEBYTECODE=1 python3 - "$root/packaging/conan" "$scratch/sources" <<'PYTHON'
import importlib.util, sys
spec = importlib.util.spec_from_file_location("conanfile", sys.argv[1] + "/conanfile.py")
module = importlib.util.module_from_spec(spec)
spec.loader.exec_module(module)
recipe = module.QRTVirtualMemMgmtConan()
recipe.recipe_folder, recipe.export_sources_folder = sys.argv[1], sys.argv[2]
recipe.set_version()
recipe.export_sources()
print(recipe.version)
PYTHON
# The exported sources alone are enough to be configured and compiled.
cmake -S "$scratch/sources" -B "$scratch/conan" -G Ninja -DCMAKE_BUILD_TYPE=Debug \
  -DQRT_BUILD_TESTS=OFF -DQRT_BUILD_EXAMPLES=OFF >/dev/null
cmake --build "$scratch/conan" -- -n >/dev/null
