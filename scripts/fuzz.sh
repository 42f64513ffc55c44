#!/usr/bin/env bash
# Builds the libFuzzer targets with clang and runs each for SECONDS (default 120).
# Usage: fuzz.sh [SECONDS] [target...]   New inputs go to build-fuzz/corpus/<target>.
#        fuzz.sh seeds                   every target once over its seed corpus (CI)
set -euo pipefail
cd "$(dirname "$0")/.."
seconds="${1:-120}"; shift || true
bash scripts/deps.sh base fuzz
CC=clang CXX=clang++ cmake -S . -B build-fuzz -G Ninja -DINVSCAN_FUZZ=ON -DINVSCAN_TESTS=OFF -DINVSCAN_WERROR=ON >/dev/null
cmake --build build-fuzz -j "$(nproc 2>/dev/null || echo 2)"
targets=("$@")
if [ "${#targets[@]}" -eq 0 ]; then
  for f in fuzz/*.cpp; do targets+=("$(basename "$f" .cpp)"); done
fi
if [ "$seconds" = seeds ]; then
  for t in "${targets[@]}"; do
    [ -d "fuzz/corpus/$t" ] || continue
    "build-fuzz/fuzz/fuzz_$t" -runs=0 "fuzz/corpus/$t" >/dev/null 2>&1 ||
      { echo "fuzz_$t failed on its seeds" >&2; "build-fuzz/fuzz/fuzz_$t" -runs=0 "fuzz/corpus/$t" 2>&1 | tail -n 30; exit 1; }
    echo "fuzz_$t: seeds pass"
  done
  exit 0
fi
for t in "${targets[@]}"; do
  mkdir -p "build-fuzz/corpus/$t"
  seeds=(); [ -d "fuzz/corpus/$t" ] && seeds=("fuzz/corpus/$t")
  echo "== fuzz_$t for ${seconds}s"
  "build-fuzz/fuzz/fuzz_$t" -max_total_time="$seconds" -rss_limit_mb=2048 \
    -artifact_prefix="build-fuzz/" "build-fuzz/corpus/$t" "${seeds[@]}" 2>&1 | tail -n 3
done
