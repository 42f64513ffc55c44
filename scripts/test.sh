#!/usr/bin/env bash
# Builds invscan and runs every test. Usage: test.sh [normal|sanitize|m32]
# Installs what the build needs first (Debian, as root).
set -euo pipefail
cd "$(dirname "$0")/.."
mode="${1:-normal}"
jobs="$(nproc 2>/dev/null || echo 2)"

case "$mode" in
  normal)
    bash scripts/deps.sh test
    cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DINVSCAN_BENCH=ON -DINVSCAN_WERROR=ON ;;
  sanitize)
    bash scripts/deps.sh test
    cmake -S . -B build-asan -G Ninja -DCMAKE_BUILD_TYPE=Debug -DINVSCAN_SANITIZE=ON -DINVSCAN_WERROR=ON ;;
  m32)
    bash scripts/deps.sh test m32
    cmake -S . -B build-m32 -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DINVSCAN_WERROR=ON \
      -DCMAKE_C_FLAGS=-m32 -DCMAKE_CXX_FLAGS=-m32 \
      -DCMAKE_LIBRARY_PATH=/usr/lib/i386-linux-gnu -DCMAKE_IGNORE_PATH=/usr/lib/x86_64-linux-gnu ;;
  *) echo "usage: $0 [normal|sanitize|m32]" >&2; exit 2 ;;
esac

dir=build; [ "$mode" = sanitize ] && dir=build-asan; [ "$mode" = m32 ] && dir=build-m32
cmake --build "$dir" -j "$jobs"
export ASAN_OPTIONS="${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=1}"
export LSAN_OPTIONS="${LSAN_OPTIONS:-suppressions=$PWD/scripts/lsan.supp:print_suppressions=0}"
export UBSAN_OPTIONS="${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}"
ctest --test-dir "$dir" --output-on-failure -j "$jobs"
