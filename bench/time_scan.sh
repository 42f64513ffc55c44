#!/usr/bin/env bash
# Whole-process timing of invscan: wall time and peak memory of a scan over all
# groups and of each group alone. Usage: bench/time_scan.sh [path/to/invscan] [runs]
set -euo pipefail
bin="${1:-build-release/bin/invscan}"
runs="${2:-5}"
[ -x "$bin" ] || { echo "no invscan at $bin (build it first: bash scripts/scan.sh --version)" >&2; exit 2; }

measure() {
  local label="$1"; shift
  local best="" peak=0
  for _ in $(seq "$runs"); do
    local out
    out=$( { /usr/bin/time -f '%e %M' "$@" >/dev/null 2>/dev/null; } 2>&1 | tail -n 1)
    local secs="${out% *}" kb="${out#* }"
    if [ -z "$best" ] || awk -v a="$secs" -v b="$best" 'BEGIN{exit !(a<b)}'; then best="$secs"; fi
    [ "$kb" -gt "$peak" ] && peak="$kb"
  done
  printf '%-22s best %6ss  peak %7s KiB\n' "$label" "$best" "$peak"
}

measure "all groups" "$bin"
"$bin" --list-groups | grep -v 'not available' | while read -r id name; do
  measure "$name" "$bin" --group "$id"
done
