#!/usr/bin/env bash
# Makes the inputs that the fuzzers begin with: the same ones each time, in <directory>/<fuzzer>.
#   fuzz/corpus.sh <directory>
set -euo pipefail

into=${1:?a directory}
mkdir -p "$into"/fuzz_{model,handles,gzip,xml,path}

# noise <seed> <bytes>
noise() { perl -e 'srand shift; print chr int rand 256 for 1 .. shift' "$1" "$2"; }

for seed in 1 2 3 4 5 6 7 8; do
  noise "$seed" 3000 >"$into/fuzz_model/$seed"
  noise "$seed" 400 >"$into/fuzz_handles/$seed"
done

# Two bytes for sizes, then members of a gzip stream.
{ printf '\020\020'; printf 'words and words and words' | gzip -n9; } >"$into/fuzz_gzip/short"
{ printf '\001\001'; noise 1 300 | gzip -n1; printf '' | gzip -n; } >"$into/fuzz_gzip/members"
{ printf '\377\377'; seq 2000 | gzip -n9; printf 'no gzip'; } >"$into/fuzz_gzip/tail"

printf '<a/>' >"$into/fuzz_xml/empty"
printf '<?xml version="1.0" encoding="UTF-8"?><!DOCTYPE r [<!ENTITY e "<b>x</b>"><!ATTLIST r k CDATA "v">
]><r a="1" b=\x272&lt;\x27>t&amp;&#x41;<![CDATA[<c>]]><!-- n --><?p d?>&e;</r>' >"$into/fuzz_xml/all"
printf '<r>\n  <a>\n    <b/>\n  </a>\n</r>\n' >"$into/fuzz_xml/indented"

number=0
while read -r path; do
  number=$((number + 1))
  printf '%s' "$path" >"$into/fuzz_path/$number"
done <<'PATHS'
/r
//a[@i='2']/b[1]
/r/*[3]/text()
//text()
/*/p:a/text()
//b[@i][2]
PATHS
