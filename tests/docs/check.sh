#!/usr/bin/env bash
# Compiles and runs what the documentation shows. Of every page given
#   - a block of C++ with a main is a program; the next block of text, if it comes before the next block of
#     C++, is what it prints, where ... stands for anything;
#   - any other block of C++ is compiled as C++20, as the body of a function that has a QRTVirtualMemoryMgr
#     `store`: behind every header of the library, whatever the page declares in comments
#     <!-- given: ... -->, and the classes that the block begins with, up to the first empty line behind them. What has
#     ... in it is a sketch and is not compiled.
#   tests/docs/check.sh <compiler> <library> <include folder>[:<include folder>...] <page>...
set -euo pipefail

compiler=$1
library=$(realpath "$2")
IFS=: read -ra folders <<<"$3"
shift 3
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
flags=(-Wall -Wextra -Werror "${folders[@]/#/-I}")

# Writes each block of a page to <folder>/<line>.cpp and <line>.txt, the latter named like the program.
split() {
  awk -v folder="$2" '
    /^<!-- given: / { given = $0; sub(/^<!-- given: /, "", given); sub(/ *-->$/, "", given)
                      print given >> (folder "/given") }
    inside && /^```$/ { inside = 0; close(file); next }
    inside { print > file; next }
    /^```cpp$/ { inside = 1; name = NR; file = folder "/" name ".cpp"; next }
    /^```text$/ { if (name) { inside = 1; file = folder "/" name ".txt"; name = 0 } }
    ' "$1"
}

everything() {
  local header
  printf '#include <%s>\n' algorithm cstring iostream iterator memory ranges string string_view utility vector
  for header in "${folders[0]}"/*.h; do printf '#include "%s"\n' "$(basename "$header")"; done
}

programs=0
fragments=0
failed=0
for page in "$@"; do
  folder=$scratch/$(basename "$(dirname "$page")").$(basename "$page" .md)
  mkdir -p "$folder"
  split "$page" "$folder"
  for source in "$folder"/*.cpp; do
    [[ -e $source ]] || continue
    line=$(basename "$source" .cpp)
    if ! grep -q 'int main(' "$source"; then
      if grep -q '\.\.\.' "$source"; then continue; fi
      fragments=$((fragments + 1))
      {
        everything
        if [[ -f $folder/given ]]; then cat "$folder/given"; fi
        awk 'NR == 1 { outside = /^(class|struct|template)/; if (!outside) print begin }
             outside && /^$/ && last !~ /^ / { outside = 0; print begin }
             { print; last = $0 }
             END { print outside ? "" : "}}" }' begin="void fragment([[maybe_unused]] QRTVirtualMemoryMgr& store) {{" "$source"
      } >"$folder/fragment.cpp"
      if ! "$compiler" -std=c++20 "${flags[@]}" -Wno-unused -fsyntax-only "$folder/fragment.cpp"; then
        echo "$page:$line: this does not compile"
        failed=1
      fi
      continue
    fi
    programs=$((programs + 1))
    if ! "$compiler" -std=c++17 "${flags[@]}" "$source" "$library" "-Wl,-rpath,$(dirname "$library")" \
      -o "$folder/$line.out"; then
      echo "$page:$line: this does not compile"
      failed=1
      continue
    fi
    (cd "$folder" && "./$line.out" >"$line.said") || { echo "$page:$line: ends with $?"; failed=1; }
    if [[ -f $folder/$line.txt ]]; then
      # A pattern of the shell: every character as it stands, but for the dots.
      expected=$(sed -e 's/[][*?\\]/\\&/g' -e 's/\.\.\./*/g' "$folder/$line.txt")
      # shellcheck disable=SC2053
      if [[ $(cat "$folder/$line.said") != $expected ]]; then
        echo "$page:$line: prints something else than the page says:"
        diff "$folder/$line.txt" "$folder/$line.said" || true
        failed=1
      fi
    fi
  done
done
echo "$programs programs, $fragments fragments"
((programs > 0 && failed == 0))
