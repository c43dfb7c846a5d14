#!/usr/bin/env bash
# Every test that the page of promises names is one that ctest knows. For builds that have all tests.
#   tests/promises/check.sh <page> <ctest> <build directory>
set -euo pipefail

page=$1
ctest=$2
build=$3
known=$(mktemp)
trap 'rm -f "$known"' EXIT

# A test is known as program.[instance/]suite.test[/parameter]; the page has `suite.test`.
"$ctest" --test-dir "$build" -N |
  sed -nE 's|^ *Test +#[0-9]+: [^.]+\.([^/ ]+/)?([A-Za-z0-9_]+\.[A-Za-z0-9_]+)(/.*)?$|\2|p' >"$known"

# shellcheck disable=SC2016  # the backticks are the page's
grep -oE '`[A-Za-z0-9]+\.[A-Za-z0-9_]+`' "$page" | tr -d '`' | sort -u | awk -v known="$known" '
  BEGIN { while ((getline name < known) > 0) { tests[name] = 1 } }
  { ++count }
  !($0 in tests) { print "no such test: " $0; failed = 1 }
  END {
    print count + 0 " tests named"
    exit failed || count == 0
  }'
