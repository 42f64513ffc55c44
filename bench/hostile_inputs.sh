#!/usr/bin/env bash
# Wall time and peak resident size of invscan and its helpers over hostile inputs
# at full size: a registry root with 80,000 children, a 63 MB bundle table of tabs,
# a 63 MB helper output of one-line values, a 15 MB configuration file of empty
# elements, a report read from /dev/zero, and the worst shapes the readers accept.
# Usage: bench/hostile_inputs.sh [BUILD_DIR]   (inputs are made in a temporary folder)
set -euo pipefail
build="${1:-build-release}"
bin="$build/bin"
[ -x "$bin/invscan" ] || { echo "no $bin/invscan: build first" >&2; exit 2; }
tmp="$(mktemp -d)"
trap 'rm -rf "$tmp"' EXIT

measure() {
  local label="$1"; shift
  local s e
  s=$(date +%s%N)
  /usr/bin/time -f '%M' -o "$tmp/peak" "$@" >/dev/null 2>&1 || true
  e=$(date +%s%N)
  printf '%-40s %9.1f ms  peak %8s KiB\n' "$label" "$(( (e - s) / 1000 ))e-3" "$(tail -n 1 "$tmp/peak")"
}

bundle() { mkdir -p "$tmp/$1/helpers"; echo 'invscan-bundle 1' > "$tmp/$1/bundle.txt"; }

bundle wide
python3 - "$tmp" <<'PY'
import sys
t = sys.argv[1]
open(t + '/wide/helpers/iokit', 'w').write('1.0 0\n(IOKit\n(Root\nIOKitBuildVersion:s=wide\n' +
                                           ''.join('(n%d\n)\n' % i for i in range(80000)) + ')\n)\n')
PY
bundle tabs; python3 -c "open('$tmp/tabs/sysctl.txt','w').write('\t' * (63 << 20))"
bundle vals; python3 -c "open('$tmp/vals/helpers/sysprof','w').write('1.0 0\n(SystemProfiler\n' + 'a:s=b\n' * ((63 << 20) // 6) + ')\n')"
bundle dense; python3 -c "open('$tmp/dense/helpers/sysprof','w').write('1.0 0\n(SystemProfiler\n' + 'abcdefghi:s=12345678\n' * ((60 << 20) // 21) + ')\n')"
python3 -c "open('$tmp/cfg.xml','w').write('<Hardware>' + '<a/>' * ((15 << 20) // 4) + '</Hardware>')"
python3 -c "
k = 'k' * 84
open('$tmp/dict.xml','w').write('<?xml version=\"1.0\"?><plist version=\"1.0\"><array><dict><key>_items</key><array>' +
    ('<dict><key>%s</key><integer>1</integer></dict>' % k) * ((60 << 20) // 128) + '</array></dict></array></plist>')"

measure "80,000 registry children (-g 24)" "$bin/invscan" --replay "$tmp/wide" -g 24
measure "63 MB sysctl.txt of tabs (-g 44)" "$bin/invscan" --replay "$tmp/tabs" -g 44
measure "63 MB helper output, tiny values (-g 1)" "$bin/invscan" --replay "$tmp/vals" -g 1
measure "60 MB helper output, 21-byte values" "$bin/invscan" --replay "$tmp/dense" -g 1
measure "15 MB configuration of empty elements" "$bin/invscan" --config "$tmp/cfg.xml" -g 20
measure "sysprof --from /dev/zero" "$bin/sysprof" --from /dev/zero
measure "sysprof --from 60 MB plist of dicts" "$bin/sysprof" --from "$tmp/dict.xml"
measure "invscan -g 20 (for scale)" "$bin/invscan" -g 20
