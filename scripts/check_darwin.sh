#!/usr/bin/env bash
# Compiles what a Mac build compiles (every source but the Linux-only ones, with
# __APPLE__ defined) against the Darwin declarations in tools/darwin-sdk, with gcc
# and clang, for 64-bit and 32-bit Intel, warnings as errors. No objects are made.
# Usage: scripts/check_darwin.sh
set -euo pipefail
cd "$(dirname "$0")/.."
mapfile -t sources < <(git ls-files 'src/*.cpp' | grep -v '_linux\.cpp$')
flags=(-fsyntax-only -std=c++17 -Wall -Wextra -Werror -D__APPLE__ -D__MACH__
       -DINVSCAN_BUILDING -DINVSCAN_VERSION='"0"' -DINVSCAN_LIBEXEC='"libexec"' -DINVSCAN_LIBDIR='"lib"'
       -DINVSCAN_BUILD_DATE='"00/00/00"' -DINVSCAN_BUILD_TIME='"00:00:00"'
       -I tools/darwin-sdk -I include -I src)
failed=0
for cxx in g++ clang++; do
  command -v "$cxx" >/dev/null || { echo "no $cxx: skipped"; continue; }
  for bits in 64 32; do
    # A 32-bit check needs the 32-bit C library headers (scripts/deps.sh test m32).
    if [ "$bits" = 32 ] && ! echo 'int main(){}' | "$cxx" -m32 -x c++ -fsyntax-only - 2>/dev/null; then
      echo "$cxx -m32: no 32-bit headers, skipped"; continue
    fi
    n=0
    for f in "${sources[@]}"; do
      if ! "$cxx" "-m$bits" "${flags[@]}" "$f"; then failed=1; echo "FAILED: $cxx -m$bits $f"; fi
      n=$((n + 1))
    done
    echo "$cxx -m$bits: $n sources checked as a Mac build compiles them"
  done
done
exit "$failed"
