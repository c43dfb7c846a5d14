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

# Once in over a thousand starts, on a busy machine, Wine ended before the program began. Then there is
# a status, but not a word from the program, and it is run once more; every test program begins with a
# line of output, so a failure of its own is never taken for that.
output=$(mktemp)
trap 'rm -f "$output"' EXIT
status=0
"$wine" "$@" >"$output" 2>&1 || status=$?
if [ "$status" -ne 0 ] && [ ! -s "$output" ]; then
  echo "Wine ended with status $status before the program began; running it once more" >&2
  status=0
  "$wine" "$@" >"$output" 2>&1 || status=$?
fi
cat "$output"
exit "$status"
