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
if [ ! -f "$WINEPREFIX/ready" ]; then
  # Making the directory takes ten seconds. One process does it, the others wait.
  flock "$WINEPREFIX" sh -c '[ -f "$2/ready" ] || { "$1" wineboot -i && : >"$2/ready"; }' \
    wineboot "$wine" "$WINEPREFIX" >/dev/null 2>&1
fi
for server in "$(dirname "$wine")/wineserver64" "$(dirname "$wine")/wineserver"; do
  if [ -x "$server" ]; then
    "$server" -p60 2>/dev/null || true # it runs already
    break
  fi
done
exec "$wine" "$@"
