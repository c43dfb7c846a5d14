#!/usr/bin/env bash
# Builds the fuzzers and runs each for a while; fails when one finds something and keeps the input.
#   scripts/fuzz.sh [seconds for each [fuzzer...]]     without names all of them, 20 seconds each
# An input is tried again with: build/fuzz/fuzz/<fuzzer> <file>
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$root"
# shellcheck source=scripts/lib/packages.sh
source scripts/lib/packages.sh

seconds=${1:-20}
fuzzers=("${@:2}")
if ((${#fuzzers[@]} == 0)); then
  fuzzers=(fuzz_model fuzz_handles fuzz_gzip fuzz_xml fuzz_path)
fi

qrt_install_packages "${QRT_BUILD_PACKAGES[@]}" "${QRT_CI_PACKAGES[@]}"
cmake --preset fuzz
cmake --build --preset fuzz --target "${fuzzers[@]}"

fuzz/corpus.sh build/fuzz/corpus
mkdir -p build/fuzz/found
status=0
for fuzzer in "${fuzzers[@]}"; do
  log=build/fuzz/$fuzzer.log
  # What a short run learns goes to a copy: the next one begins with the same inputs again, unless
  # they are kept on purpose.
  learned=build/fuzz/learned/$fuzzer
  rm -rf "$learned"
  mkdir -p "$learned"
  if "build/fuzz/fuzz/$fuzzer" -max_total_time="$seconds" -seed=1 -max_len=8192 -timeout=60 \
    -rss_limit_mb=2048 -artifact_prefix=build/fuzz/found/ -print_final_stats=1 \
    "$learned" "build/fuzz/corpus/$fuzzer" >"$log" 2>&1; then
    awk -v name="$fuzzer" '/^stat::number_of_executed_units/ { print name ": " $2 " executions" }' \
      "$log"
  else
    status=1
    tail -n 40 "$log"
    echo "$fuzzer FOUND something; the input is in build/fuzz/found, the rest of the log in $log"
  fi
done
exit "$status"
