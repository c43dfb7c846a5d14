#!/usr/bin/env bash
# Runs the tests and tells which lines and branches of the library they reach.
#   scripts/coverage.sh [ctest options]
# Prints a table by folder; build/coverage/report has a page for each source and the lines that no test
# reaches (missing.txt). docs/testing.md tells what the figures are and which lines cannot be reached.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$root"
# shellcheck source=scripts/lib/packages.sh
source scripts/lib/packages.sh

readonly build=build/coverage
readonly report=$build/report

qrt_install_packages "${QRT_BUILD_PACKAGES[@]}" "${QRT_COVERAGE_PACKAGES[@]}"
cmake --preset coverage
cmake --build --preset coverage
find "$build" -name '*.gcda' -delete # counts of an earlier run
ctest --preset coverage -j "$(nproc)" "$@"

rm -rf "$report"
mkdir -p "$report"
# Branches are those that the code has: not those of exceptions that pass through, nor those of
# assertions, whose other side ends the process.
# gcc counts some branches of what was compiled together negative: those lines count as not reached.
gcovr --root . --gcov-ignore-parse-errors --object-directory "$build" --filter 'src/' --filter 'platform/' --filter 'include/' --exclude 'build/' \
  --exclude-throw-branches --exclude-unreachable-branches \
  --exclude-branches-by-pattern '.*\b(LIBTCMALLOC_ASSERT|QRT_ASSERT(_NAMED)?)\(.*' \
  --txt "$report/missing.txt" --csv "$report/files.csv" --html-details "$report/index.html" 2>"$report/gcovr.log" ||
  { cat "$report/gcovr.log"; exit 1; }

echo
awk -F, 'NR > 1 {
           folder = $1
           sub("/[^/]*$", "", folder)
           folders[folder] = 1
           for (name in want) delete want[name]
           want[folder]; want["all"]
           for (name in want) {
             lines[name] += $2; reached[name] += $3
             branches[name] += $5; taken[name] += $6
           }
         }
         function row(name) {
           return sprintf("| %s | %d | %.1f %% | %d | %.1f %% |\n", name, lines[name],
             lines[name] ? 100 * reached[name] / lines[name] : 100, branches[name],
             branches[name] ? 100 * taken[name] / branches[name] : 100)
         }
         END {
           print "| folder | lines | reached | branches | taken |"
           print "| --- | --- | --- | --- | --- |"
           for (name in folders) printf "%s", row(name) | "sort"
           close("sort")
           printf "%s", row("all")
         }' "$report/files.csv"
echo
echo "$report/index.html, $report/missing.txt; commit $(git rev-parse --short HEAD)"
