#!/bin/sh
# Runs a Windows program in Wine, in a Wine directory of its own. The server stays for a minute
# between programs: many short tests that each start and end it get in each other's way.
#   cmake/toolchains/wine.sh <wine program> <program> [argument...]
set -eu

wine=$1
shift
export WINEDEBUG="${WINEDEBUG:--all}"
export WINEPREFIX="${QRT_WINEPREFIX:-$HOME/.cache/qrt-wine}"
mkdir -p "$WINEPREFIX"
(
  # One process makes the directory, which takes ten seconds, or starts the server; the others wait.
  # Neither may hold the program's output or the lock open.
  flock 9
  if "$(dirname "$wine")/wineserver64" -p60 9>&-; then
    "$wine" wineboot 9>&-
  fi
) 9>"$WINEPREFIX/lock" </dev/null >/dev/null 2>&1
exec "$wine" "$@"
