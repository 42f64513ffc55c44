#!/usr/bin/env bash
# Wall time and peak resident size of invscan and its helpers over hostile inputs:
# bundle dumps, registry listings, bundle tables, configuration files and reports
# of the worst shapes each reader accepts, and past their caps. The goal: each run
# stays within 8 times its input plus 16 MiB over the program's own peak, besides
# 1 KiB for each table row it makes ($rows, set for the shapes of large hosts), and
# each input past a cap is refused with its exit status. Exits 1 when a goal is
# missed.
# Usage: bench/hostile_inputs.sh [BUILD_DIR]   (inputs are made in a temporary folder)
set -euo pipefail
build="${1:-build-release}"
bin="$build/bin"
[ -x "$bin/invscan" ] || { echo "no $bin/invscan: build first" >&2; exit 2; }
tmp="$(mktemp -d)"
trap 'rm -rf "$tmp"' EXIT
failed=0
rows=0

peak() { # peak KiB of a command, its exit status in $tmp/status
  local rc=0
  /usr/bin/time -f '%M' -o "$tmp/peak" "$@" >/dev/null 2>"$tmp/err" || rc=$?
  echo "$rc" > "$tmp/status"
  tail -n 1 "$tmp/peak"
}

# measure LABEL BASE_KIB INPUT_FILE WANT_STATUS(-1 any) COMMAND...
measure() {
  local label="$1" base="$2" input="$3" want="$4"; shift 4
  local s e kib size allowed status
  s=$(date +%s%N)
  kib=$(peak "$@")
  e=$(date +%s%N)
  status=$(cat "$tmp/status")
  size=$(( $(stat -c %s "$input") / 1024 ))
  [ "$input" = /dev/zero ] && size=$(( 64 << 10 )) # what is read of it before the cap
  allowed=$(( base + 8 * size + 16 * 1024 + rows ))
  printf '%-40s %9.1f ms  %8s KiB in  peak %+8s KiB' "$label" "$(( (e - s) / 1000 ))e-3" \
    "$size" "$(( kib - base ))"
  if [ "$kib" -gt "$allowed" ]; then printf '  OVER %s KiB\n' "$allowed"; failed=1
  elif [ "$want" -ge 0 ] && [ "$status" -ne "$want" ]; then
    printf '  exit %s, wanted %s: %s\n' "$status" "$want" "$(head -c 200 "$tmp/err")"; failed=1
  else echo; fi
}

# bundle NAME FILE: a bundle holding FILE (helpers/sysprof, helpers/iokit, sysctl.txt)
# made from python's standard output.
bundle() {
  mkdir -p "$tmp/$1/helpers"; echo 'invscan-bundle 1' > "$tmp/$1/bundle.txt"
  python3 -c "$3" > "$tmp/$1/$2"
}

big=$(( 16 << 20 ))
base=$(peak "$bin/invscan" -g 20)
hbase=$(peak "$bin/sysprof" --from /dev/null)

dump() { # NAME LABEL PYTHON-EXPR(S of the dump) GROUP STATUS
  bundle "$1" helpers/sysprof "import sys; sys.stdout.write('1.0 0\n' + $3)"
  measure "$2" "$base" "$tmp/$1/helpers/sysprof" "$5" "$bin/invscan" --replay "$tmp/$1" -g "$4"
  rm -rf "${tmp:?}/$1"
}
dump tiny "dump: tiny values" "'a:s=b\n' * ($big // 6)" 1 -1
dump sibs "dump: many siblings" "'(n\n)\n' * ($big // 5)" 1 -1
dump dense "dump: 20-byte values" "'abcdefgh:s=12345678\n' * ($big // 20)" 1 -1
dump huge "dump: one huge line" "'v:s=' + 'x' * $big + '\n'" 1 -1
dump deep "dump: deep nesting" "'(d\n' * 12288 + ')\n' * 8192" 1 -1
dump cap "dump: 63 MB of tiny values (refused)" "'a:s=b\n' * ((63 << 20) // 6)" 1 3

# sanitised copies: SHAPE LABEL FILE PYTHON-EXPR STATUS (6, the copy's failure, when refused)
sanitised() {
  bundle "$1" "$3" "import sys; sys.stdout.write($4)"
  measure "$2" "$base" "$tmp/$1/$3" "$5" "$bin/invscan" --replay "$tmp/$1" \
    --record "$tmp/$1.out" --sanitize-key k -g "Scan Info"
  rm -rf "${tmp:?}/$1" "${tmp:?}/$1.out"
}
sanitised stiny "sanitise: 4 MiB of 'x' lines" notes.txt "'x\n' * (2 << 20)" 0
sanitised sdump "sanitise: 4 MiB of tiny dump lines" helpers/sysprof "'1.0 0\n' + 'x:d=1\nk:s=v\n' * ((4 << 20) // 12)" 0
sanitised sser "sanitise: 4 MiB of serials (refused)" helpers/sysprof "'1.0 0\n' + ''.join('serial_number:s=S%014dZ\nx:d=1\n' % i for i in range((4 << 20) // 38))" 6
sanitised suuid "sanitise: 4 MiB of UUIDs (refused)" notes.txt "''.join('%08x-0000-4000-8000-%012x\n' % (i, i) for i in range((4 << 20) // 37))" 6
sanitised shome "sanitise: 4 MiB of home folders (refused)" notes.txt "''.join('/Users/u%d/\n' % i for i in range((4 << 20) // 12))" 6

bundle wide helpers/iokit "import sys; sys.stdout.write('1.0 0\n(IOKit\n(Root\nIOKitBuildVersion:s=wide\n' + '(n\n)\n' * 80000 + ')\n)\n')"
measure "registry: 80,000 children" "$base" "$tmp/wide/helpers/iokit" 3 "$bin/invscan" --replay "$tmp/wide" -g 24
rm -rf "${tmp:?}/wide"

table() { # NAME LABEL PYTHON-EXPR STATUS
  bundle "$1" sysctl.txt "import sys; sys.stdout.write($3)"
  measure "$2" "$base" "$tmp/$1/sysctl.txt" "$4" "$bin/invscan" --replay "$tmp/$1" -g 44
  rm -rf "${tmp:?}/$1"
}
table tabs "table: tabs" "'\t' * (256 << 10)" -1
table recs "table: tiny records" "'k\tv\n' * (64 << 10)" -1
table field "table: one huge field" "'hw.model\ts\t' + 'x' * ((256 << 10) - 12) + '\n'" -1
table over "table: 63 MB of tabs (refused)" "'\t' * (63 << 20)" 0

# Every table of a bundle at its cap, of distinct tiny records, replayed over all groups.
for name in sysctl.txt host.txt uname.txt locale.txt timezone.txt hosts.txt commands.txt \
  mounts.txt; do
  bundle cap "$name" "import sys; sys.stdout.write(''.join('%d\tv\n' % i for i in range(1 << 20))[:(256 << 10) - 1])"
  measure "table at its cap: $name" "$base" "$tmp/cap/$name" -1 "$bin/invscan" --replay "$tmp/cap"
  rm -rf "${tmp:?}/cap"
done

# mounts NAME LABEL PYTHON-EXPR(S of the table) GROUP-ARGS STATUS: a mount table
# replayed and printed.
mounts() {
  bundle "$1" mounts.txt "import sys; sys.stdout.write($3)"
  # shellcheck disable=SC2086
  measure "$2" "$base" "$tmp/$1/mounts.txt" "$5" "$bin/invscan" --replay "$tmp/$1" $4
  rm -rf "${tmp:?}/$1"
}
row="'hfs\t/dev/d\t/v\t4096\t4096\t10\t5\t5\t0\t0\t0\n'"
rows=23800 # one a record
mounts mmin "mounts: 255 KiB of empty records" "('\t' * 10 + '\n') * ((255 << 10) // 11)" "" 0
mounts mminp "mounts: the same, -g Partition" "('\t' * 10 + '\n') * ((255 << 10) // 11)" "-g Partition" 0
rows=0
mounts mbusy "mounts: 4096 records, -g Partition" "$row * 4096" "-g Partition" 0
mounts mbusya "mounts: 4096 records, all groups" "$row * 4096" "" 0
# A host at the kernel's limit of 100,000 mounts, in the shape a recording of one has.
rows=100000
mounts m100k "mounts: 100,000 records" "''.join('tmpfs\tnone\t/run/containers/%d/rootfs\t4096\t4096\t256\t256\t256\t0\t0\t0\n' % i for i in range(100000))" "-g Partition" 0
rows=0
mounts mlong "mounts: 255 KiB of long names" "('hfs\t' + 'f' * 1023 + '\t' + 'o' * 1023 + '\t1\t1\t1\t1\t1\t0\t0\t0\n') * ((255 << 10) // 2072)" "-g Partition" 0

# A Linux host of many interfaces (names with blanks and tabs among them) and
# thousands of addresses, replayed over the network groups. The helper's dump has the
# shape the Linux gatherer writes (as recorded from a network namespace of 10,000
# interfaces).
netbundle() { # NAME LABEL SERVICES ADDRESSES
  local d="$tmp/$1"
  mkdir -p "$d/helpers" "$d/commands"; echo 'invscan-bundle 1' > "$d/bundle.txt"
  printf 'sysname\tLinux\n' > "$d/uname.txt"
  python3 - "$d" "$3" "$4" <<'PY'
import sys
d, n, addrs = sys.argv[1], int(sys.argv[2]), int(sys.argv[3])
name = lambda i: ("if %d" % i) if i % 3 == 0 else ("if\t%d" % i) if i % 3 == 1 else "eth%d" % i
per = addrs // n
def lst(pad, key, values):
    return "%s(%s\n%s   size:i=%d\n%s%s)\n" % (pad, key, pad, len(values), "".join(
        "%s   %s:s=%s\n" % (pad, key, v) for v in values), pad)
with open(d + "/helpers/sysprof", "w") as f:
    f.write("1.0 0\n(SystemProfiler\n   (SPNetworkDataType\n")
    for i in range(n):
        v4 = ["10.%d.%d.1" % (i // 256, i % 256)]
        v6 = ["2001:db8:%x::%x" % (i, k) for k in range(per)]
        p = " " * 9
        f.write("      (s%d\n%stype:s=Ethernet\n%shardware:s=Ethernet\n%sinterface:s=%s\n"
                "%sphysical:s=no\n%soperstate:s=up\n%sip_assigned:s=yes\n"
                "%sspnetwork_service_order:i=%d\n" % (i, p, p, p, name(i), p, p, p, p, i))
        f.write(lst(p, "ip_address", v4))
        f.write("%s(IPv4\n%s   ConfigMethod:s=Manual\n%s   InterfaceName:s=%s\n" % (p, p, p, name(i)))
        f.write(lst(p + "   ", "Addresses", v4) + lst(p + "   ", "SubnetMasks", ["255.255.255.0"]))
        f.write("%s)\n%s(IPv6\n%s   ConfigMethod:s=Automatic\n%s   InterfaceName:s=%s\n" % (p, p, p, p, name(i)))
        f.write(lst(p + "   ", "Addresses", v6) + lst(p + "   ", "PrefixLength", ["64"] * per))
        f.write("%s)\n%s(Ethernet\n%s   MAC Address:s=02:00:00:00:%02x:%02x\n"
                "%s   MediaSubType:s=autoselect\n%s)\n      )\n"
                % (p, p, p, i // 256 % 256, i % 256, p, p))
    f.write("   )\n)\n")
text = []
for i in range(n):
    text.append("%s: flags=8863<UP> mtu 1500\n" % name(i))
    for k in range(per):
        text.append("\tinet6 2001:db8:%x::%x prefixlen 64\n" % (i, k))
t = "".join(text)
for c in ("ifconfig -a 2>/dev/null", "/sbin/ifconfig -a 2>/dev/null"):
    fn = c.replace("/", "%2F").replace(" ", "%20").replace(">", "%3E")
    open(d + "/commands/" + fn, "w").write(t)
with open(d + "/commands.txt", "w") as f:
    for c in ("ifconfig -a 2>/dev/null", "/sbin/ifconfig -a 2>/dev/null"):
        fn = c.replace("/", "%2F").replace(" ", "%20").replace(">", "%3E")
        f.write("%s\t0\tcommands/%s\n" % (c, fn))
PY
  # Both are read: the input counted is the two together.
  cat "$d/helpers/sysprof" "$d/commands/ifconfig%20-a%202%3E%2Fdev%2Fnull" > "$tmp/$1.input"
  local format
  for format in text json; do
    measure "$2, $format" "$base" "$tmp/$1.input" 0 \
      "$bin/invscan" --replay "$d" -g 7 -g 6 -g 51 -n --format $format
  done
  rm -rf "${d:?}" "$tmp/$1.input"
}
rows=120000 # addresses, interfaces, IPv4 addresses
netbundle net10k "network: 10,000 interfaces, 100,000 addresses" 10000 100000
rows=104000
netbundle net2k "network: 2,000 interfaces, 100,000 addresses" 2000 100000
rows=0

# diff LABEL PYTHON-EXPR STATUS: the scan made by PYTHON-EXPR against a small one.
echo '{"format":1,"tables":[]}' > "$tmp/small.json"
diffscan() {
  python3 -c "import sys; sys.stdout.write($2)" > "$tmp/scan.json"
  measure "$1" "$base" "$tmp/scan.json" "$3" "$bin/invscan" diff "$tmp/scan.json" "$tmp/small.json"
}
diffscan "diff: 100,000-deep nesting (refused)" "'[' * 100000 + ']' * 100000" 2
diffscan "diff: deep value in a scan (refused)" "'{\"format\":1,\"tables\":[{\"id\":27,\"rows\":[[{\"id\":4,\"value\":' + '[' * 100000 + ']' * 100000 + '}]]}]}'" 2
diffscan "diff: 60 MiB of [1,1,...] (refused)" "'[' + '1,' * ((60 << 20) // 2 - 1) + '1]'" 2
diffscan "diff: 60 MiB of {\"a\":1,...} (refused)" "'{' + ','.join('\"%x\":1' % i for i in range((60 << 20) // 10)) + '}'" 2
diffscan "diff: 20 MiB of strings of 16" "'[' + ','.join(['\"0123456789abcdef\"'] * ((20 << 20) // 19)) + ']'" -1
# A real scan's shape, as invscan prints it, against itself: its input is both reads.
python3 -c "import json, sys; json.dump({'format': 1, 'tables': [{'id': 27, 'rows': [[{'id': 4, 'name': 'Device Name', 'type': 'ZEL_STRING', 'value': '/dev/disk%d' % i}] for i in range(150000)]}]}, sys.stdout, indent=2)" > "$tmp/scan.json"
truncate -s "$(( 2 * $(stat -c %s "$tmp/scan.json") ))" "$tmp/both"
measure "diff: a 25 MB scan with itself" "$base" "$tmp/both" 0 "$bin/invscan" diff "$tmp/scan.json" "$tmp/scan.json"
rm -f "$tmp/both"
rm -f "$tmp/scan.json"

config() { # LABEL PYTHON-EXPR STATUS
  python3 -c "import sys; sys.stdout.write($2)" > "$tmp/cfg.xml"
  measure "$1" "$base" "$tmp/cfg.xml" "$3" "$bin/invscan" --config "$tmp/cfg.xml" -g 20
}
config "config: empty elements" "'<Hardware>' + '<a/>' * ((256 << 10) // 4 - 6) + '</Hardware>'" -1
config "config: attributes" "'<Hardware ' + 'a=\"\" ' * (32 << 10) + '/>'" -1
config "config: 15 MB of empty elements" "'<Hardware>' + '<a/>' * ((15 << 20) // 4) + '</Hardware>'" 8

report() { # LABEL HELPER PYTHON-EXPR
  python3 -c "import sys; sys.stdout.write($3)" > "$tmp/report"
  measure "$1" "$hbase" "$tmp/report" -1 "$bin/$2" --from "$tmp/report"
}
plist="'<?xml version=\"1.0\"?><plist version=\"1.0\"><array><dict><key>_items</key><array>' + %s + '</array></dict></array></plist>'"
# shellcheck disable=SC2059
report "plist: tiny tags" sysprof "$(printf "$plist" "'<true/>' * ($big // 7)")"
# shellcheck disable=SC2059
report "plist: dictionaries" sysprof "$(printf "$plist" "('<dict><key>' + 'k' * 84 + '</key><integer>1</integer></dict>') * ($big // 128)")"
report "profiler text: tiny lines" sysprof "'Hardware:\n\n    Hardware Overview:\n\n' + '      a: b\n' * ($big // 11)"
report "registry text: tiny entries" iokit "'  | +-o n  <class IOService, id 0x1, retain 1>\n' * ($big // 48)"
measure "sysprof --from /dev/zero (refused)" "$hbase" /dev/zero 1 "$bin/sysprof" --from /dev/zero
mkfifo "$tmp/fifo"
measure "sysprof --from a FIFO (refused)" "$hbase" "$tmp/fifo" 1 timeout 10 "$bin/sysprof" --from "$tmp/fifo"
python3 -c "import sys; sys.stdout.write('x' * ((64 << 20) + 1))" > "$tmp/report"
measure "sysprof --from 64 MiB + 1 (refused)" "$hbase" "$tmp/report" 1 "$bin/sysprof" --from "$tmp/report"
mkdir "$tmp/notabundle"
measure "iokit --replay of a folder (refused)" "$hbase" "$tmp/report" 2 "$bin/iokit" --replay "$tmp/notabundle"

[ "$failed" -eq 0 ] && echo "every input within its bound" || echo "some inputs missed their goal" >&2
exit "$failed"
