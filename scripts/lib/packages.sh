# shellcheck shell=bash
# Debian packages the project needs and the function that installs what is missing.
# Sourced by the scripts beside this folder and by .ci/run.

# To build the library, the examples, the tests and the benchmarks.
# shellcheck disable=SC2034  # used by the scripts that source this file
QRT_BUILD_PACKAGES=(
  g++ cmake ninja-build
  libxxhash-dev   # content hashes of the paging engine
  libisal-dev     # gzip on x86-64, several times faster than zlib
  libssl-dev      # libcrypto, which encrypts paging files on request
  zlib1g-dev      # gzip everywhere else, the check value that names a node class, and an example
  libutfcpp-dev   # conversion between UTF-8 and UTF-16
  libcli11-dev    # command lines of the example programs
  libexpat1-dev   # parses the documents of the XML example
  libpugixml-dev  # its peer, which keeps them in memory
  libgtest-dev libgmock-dev
  libbenchmark-dev
  libicu-dev      # peer of the string conversions in their benchmark
  valgrind        # tests show that it sees into the allocators
)

# What the demo works on: some 170 MB of XML in 2,000 files.
# shellcheck disable=SC2034
QRT_DEMO_PACKAGES=(unicode-cldr-core)

# For 32-bit x86 Linux. Other libraries are headers only, or are built from packaged sources.
# shellcheck disable=SC2034
QRT_I386_PACKAGES=(
  g++-multilib
  lib32z1-dev     # zlib
  googletest      # sources
)

# For Windows.
# shellcheck disable=SC2034
QRT_WINDOWS_PACKAGES=(
  g++-mingw-w64-x86-64-posix g++-mingw-w64-i686-posix
  libz-mingw-w64-dev
  googletest      # sources
  wine64          # runs the 64-bit tests
)

# Peers of the store, and what draws the plots, for scripts/bench.sh.
# shellcheck disable=SC2034
QRT_BENCH_PACKAGES=(
  liblmdb-dev libdb-dev libsqlite3-dev librocksdb-dev  # stores with a budget
  libstxxl-dev
  libboost-dev libmimalloc2.0 libjemalloc2             # mapped files, allocators
  python3 python3-matplotlib
)

# What tells which lines tests reach, for scripts/coverage.sh.
# shellcheck disable=SC2034
QRT_COVERAGE_PACKAGES=(gcovr)

# What continuous integration uses on top.
# shellcheck disable=SC2034
QRT_CI_PACKAGES=(
  clang clang-format clang-tidy cppcheck
  libclang-rt-dev # sanitizers and libFuzzer
  llvm            # llvm-ar and llvm-ranlib, for interprocedural optimisation with clang
  git pkg-config shellcheck
)

# For scripts/docs.sh.
# shellcheck disable=SC2034
QRT_DOCS_PACKAGES=(
  git
  doxygen doxygen-awesome-css  # the reference
  mkdocs mkdocs-material       # the pages
  linkchecker
)

# For scripts/package.sh.
# shellcheck disable=SC2034
QRT_PACKAGE_PACKAGES=(
  dpkg-dev file    # what a library depends on, and its symbols' versions
  lintian          # what Debian asks of a package
  debootstrap      # an empty system to try them in
)

# Installs those of the packages given that are missing; does nothing when all are there.
qrt_install_packages() {
  local package status missing=()
  if ! command -v dpkg-query >/dev/null; then
    echo "This is not a Debian system. Make sure these or their like are installed: $*" >&2
    return 0
  fi
  for package in "$@"; do
    status=$(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null || true)
    if [[ $status != installed ]]; then
      missing+=("$package")
    fi
  done
  if ((${#missing[@]} == 0)); then
    return 0
  fi

  local as_root=()
  if ((EUID != 0)); then
    if ! command -v sudo >/dev/null; then
      echo "Missing packages: ${missing[*]}" >&2
      echo "Neither root nor sudo is at hand. As root, run:" >&2
      echo "  apt-get update && apt-get install ${missing[*]}" >&2
      return 1
    fi
    as_root=(sudo)
  fi
  echo "Installing ${missing[*]}"
  "${as_root[@]}" apt-get -q -o DPkg::Lock::Timeout=120 update &&
    "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
      apt-get -q -y -o DPkg::Lock::Timeout=120 install --no-install-recommends "${missing[@]}"
}
