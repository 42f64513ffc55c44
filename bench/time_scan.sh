#!/usr/bin/env bash
# Whole-process timing of invscan: wall time and peak resident size of a scan over
# all groups, of each group alone, of a replayed Mac bundle, and (when lshw is
# installed) of `lshw -json` in the same run, for comparison.
# Usage: bench/time_scan.sh [path/to/invscan] [runs]   (hyperfine gives the wall
# times when present; otherwise the best of the runs is taken from date)
set -euo pipefail
bin="${1:-build-release/bin/invscan}"
runs="${2:-20}"
here="$(cd "$(dirname "$0")/.." && pwd)"
[ -x "$bin" ] || { echo "no invscan at $bin (build it first: bash scripts/scan.sh --version)" >&2; exit 2; }

peak_kib() {
  /usr/bin/time -f '%M' -o /tmp/invscan-peak.txt "$@" >/dev/null 2>/dev/null || true
  tail -n 1 /tmp/invscan-peak.txt
}

wall_ms() {
  if command -v hyperfine >/dev/null; then
    hyperfine -N -w 3 -r "$runs" --export-json /tmp/invscan-time.json "$*" >/dev/null 2>&1
    python3 -c 'import json;r=json.load(open("/tmp/invscan-time.json"))["results"][0];print("%.2f %.2f" % (r["mean"]*1e3, r["min"]*1e3))'
  else
    local best=""
    for _ in $(seq "$runs"); do
      local s e; s=$(date +%s%N); "$@" >/dev/null 2>&1 || true; e=$(date +%s%N)
      local t=$(( (e - s) / 1000 )); { [ -z "$best" ] || [ "$t" -lt "$best" ]; } && best=$t
    done
    awk -v b="$best" 'BEGIN{printf "%.2f %.2f\n", b/1000, b/1000}'
  fi
}

measure() {
  local label="$1"; shift
  read -r mean best < <(wall_ms "$@")
  printf '%-34s mean %8s ms  best %8s ms  peak %6s KiB\n' "$label" "$mean" "$best" "$(peak_kib "$@")"
}

measure "invscan, all groups" "$bin"
measure "invscan --replay (Mac, all groups)" "$bin" --replay "$here/tests/data/bundles/macmini3-1-10.6.8"
"$bin" --list-groups | grep -v 'not available' | while read -r id name; do
  measure "  $name" "$bin" --group "$id"
done
if command -v lshw >/dev/null; then
  measure "lshw -json" lshw -json
fi
