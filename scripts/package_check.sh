#!/usr/bin/env bash
# Builds the packages, installs them on this machine, scans from PATH, checks the
# output against the installed schema, then removes them and checks nothing is left.
# Usage: package_check.sh   (Debian, as root; CI runs it)
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/package.sh
pkgs=(invscan libinvscan-dev "libinvscan$(sed -n 's/^project(invscan VERSION \([0-9]*\).*/\1/p' CMakeLists.txt)")
for p in "${pkgs[@]}"; do
  if dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    echo "package_check.sh: $p is already installed; not touching it" >&2; exit 1
  fi
done
export DEBIAN_FRONTEND=noninteractive
apt-get install -y -qq ./build-deb/*.deb >/dev/null
trap 'apt-get purge -y -qq "${pkgs[@]}" >/dev/null 2>&1 || true' EXIT
out="$(mktemp)"
(cd / && env -u KOR_HOMEDIR invscan --format json) > "$out"
python3 tests/validate_json.py /usr/include/invscan/invscan-output.schema.json "$out"
grep -q '"name": "Storage"' "$out"
rm -f "$out"
man -w invscan >/dev/null 2>&1 || [ -f /usr/share/man/man1/invscan.1.gz ]
apt-get purge -y -qq "${pkgs[@]}" >/dev/null
trap - EXIT
for f in /usr/bin/invscan /usr/libexec/invscan /usr/include/invscan; do
  [ ! -e "$f" ] || { echo "package_check.sh: $f left after removal" >&2; exit 1; }
done
echo "packages installed, scanned from PATH, validated and removed cleanly"
