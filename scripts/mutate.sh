#!/usr/bin/env bash
# Changes the library in one small way at a time and tells which changes no test notices.
#   scripts/mutate.sh [--module NAME] [--sample N] [--seed N] [--timeout S] [file or folder...]
# Works on a copy below build/mutation, with the priority of what can wait; --help tells the rest.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
# shellcheck source=scripts/lib/packages.sh
source "$root/scripts/lib/packages.sh"

qrt_install_packages "${QRT_BUILD_PACKAGES[@]}" python3
export PYTHONDONTWRITEBYTECODE=1
exec nice -n 10 /usr/bin/python3 "$root/tests/mutation/mutate.py" "$@"
