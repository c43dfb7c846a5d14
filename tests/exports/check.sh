#!/usr/bin/env bash
# Compares what a shared library or DLL shows to its hosts with the list of exported classes: every
# symbol must belong to a class of the list, and every class of the list must show something.
#   tests/exports/check.sh <library> <class list> <nm> <objdump>
set -euo pipefail

library=$1
list=$2
nm=$3
objdump=$4

symbols() {
  if [[ $library == *.dll ]]; then
    # Beside the classes g++ exports the type information of standard errors that they catch.
    "$objdump" -p "$library" |
      awk '/Name Pointer\] Table/ { inside = 1; next } !/\[/ { inside = 0 } inside { print $NF }' |
      grep -v '^_ZT[IS]St'
  else
    # A is the version itself. Clang also exports the weak instances of standard templates that the library makes; every
    # library has those.
    "$nm" -D --defined-only "$library" |
      awk '$2 != "A" && !($2 ~ /[WVu]/ && $3 ~ /^_ZZ?N?K?St/) { print $NF }' | sed 's/@.*//'
  fi | c++filt
}

# "vtable for A" becomes A, "A::f(B const&)" stays, "operator<<(std::ostream&, A const&)" becomes A.
owners() {
  sed -E -e 's/^(vtable|VTT|typeinfo|typeinfo name|guard variable) for //' \
    -e 's/^(non-virtual|virtual|covariant return) thunk to //' \
    -e 's/^operator[^:]*\(.*, ([A-Za-z0-9_:]+)( const)?&?\)$/\1/'
}

symbols | owners | awk -v list="$list" '
  BEGIN {
    while ((getline line < list) > 0) {
      if (line !~ /^(#|$)/) { wanted[line] = 0 }
    }
  }
  {
    ++count
    name = $0
    sub(/[(\[].*/, "", name)  # without parameters and the ABI tag
    known = 0
    for (class in wanted) {
      if (name == class || index(name, class "::") == 1) { ++wanted[class]; known = 1 }
    }
    if (!known) { print "exported, but of no class of the list: " $0; failed = 1 }
  }
  END {
    for (class in wanted) {
      ++classes
      if (wanted[class] == 0) { print "not exported: " class; failed = 1 }
    }
    if (count == 0) { print "the library exports nothing"; failed = 1 }
    print count + 0 " symbols of " classes + 0 " classes"
    exit failed
  }'
