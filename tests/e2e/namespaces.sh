#!/usr/bin/env bash
# Builds test hosts in a network namespace (a down interface without addresses, a
# bridge with a veth member, a bond, a VLAN, a tun, secondary and labelled IPv4
# addresses, global, unique-local and deprecated IPv6 addresses) and in a mount
# namespace (tmpfs, ext4 on a loop device, overlay), runs invscan inside them and
# compares every row with `ip -j addr` and `df -T`. Traffic stays inside the
# namespace. Exits 77 (skipped) where namespaces cannot be made.
# Usage: namespaces.sh INVSCAN VALIDATE_JSON GLPI_SCHEMA
set -euo pipefail
invscan="$1" validate="$2" schema="$3"
skip() { echo "SKIP: $*"; exit 77; }
[ "$(id -u)" = 0 ] || skip "needs root"
command -v ip >/dev/null || skip "no iproute2"
ns="invscan-test-$$"
tmp="$(mktemp -d)"
cleanup() {
  ip netns del "$ns" 2>/dev/null || true
  rm -rf "$tmp"
}
trap cleanup EXIT
ip netns add "$ns" 2>/dev/null || skip "cannot make a network namespace"
in_ns() { ip netns exec "$ns" "$@"; }

# down, no address: a dummy, or an ifb or a veth pair where the kernel has no dummy
in_ns ip link add spare0 type dummy 2>/dev/null || in_ns ip link add spare0 type ifb 2>/dev/null ||
  in_ns ip link add spare0 type veth peer name spare1
in_ns ip link add br0 type bridge
in_ns ip link add veth0 type veth peer name veth1
in_ns ip link set veth0 master br0
in_ns ip link add bond0 type bond 2>/dev/null || echo "note: no bonding module"
if in_ns ip link show bond0 >/dev/null 2>&1; then
  in_ns ip link add slave0 type dummy 2>/dev/null && in_ns ip link set slave0 master bond0
  in_ns ip addr add 10.30.0.1/24 dev bond0
  in_ns ip link set bond0 up
fi
vlan=veth1.100
in_ns ip link add link veth1 name $vlan type vlan id 100 2>/dev/null || {
  echo "note: no 8021q module, VLAN left out"; vlan=""; }
in_ns ip tuntap add tun0 mode tun 2>/dev/null || echo "note: no tun device"
in_ns ip addr add 10.20.0.1/24 dev br0
in_ns ip addr add 10.20.0.11/24 dev br0 # secondary
in_ns ip addr add 10.20.0.10/24 dev br0 label br0:1
in_ns ip addr add 10.20.0.2/24 dev veth1
[ -z "$vlan" ] || in_ns ip addr add 10.40.0.1/24 dev $vlan
in_ns ip addr add 2001:db8:20::1/64 dev veth1 nodad
in_ns ip addr add fd12:3456:789a::1/64 dev veth1 nodad
in_ns ip addr add 2001:db8:21::1/64 dev veth1 nodad preferred_lft 0 # deprecated
for l in lo br0 veth0 veth1 $vlan; do in_ns ip link set "$l" up; done
# a temporary (privacy) address, made by the kernel from a managed one
in_ns sysctl -qw net.ipv6.conf.veth1.use_tempaddr=2 2>/dev/null || true
in_ns ip addr add 2001:db8:22::1/64 dev veth1 nodad mngtmpaddr valid_lft 3600 preferred_lft 3600
for _ in 1 2 3 4 5 6 7 8 9 10; do
  in_ns ip -6 addr show dev veth1 | grep -q temporary && break
  sleep 0.2
done
in_ns ip -6 addr show dev veth1 | grep -q temporary || echo "note: no temporary address made"

in_ns ip -j addr > "$tmp/ip.json"
in_ns "$invscan" -g 7 -g 6 -g 51 --format json > "$tmp/scan.json" 2>"$tmp/err"
in_ns "$invscan" -g 7 -g 6 -g 51 --format glpi > "$tmp/glpi.json" 2>>"$tmp/err"
python3 "$validate" "$schema" "$tmp/glpi.json"

python3 - "$tmp/ip.json" "$tmp/scan.json" "$tmp/glpi.json" <<'EOF'
import json, sys
ip = json.load(open(sys.argv[1]))
scan = json.load(open(sys.argv[2]))
glpi = json.load(open(sys.argv[3]))
def rows(gid):
    for t in scan["tables"]:
        if t["id"] == gid:
            return [{a["name"]: a["value"] for a in r} for r in t["rows"]]
    return []
bad = []
def want(cond, what):
    if not cond: bad.append(what)
links = [l for l in ip if l["ifname"] != "lo"]
adapters = {r["Model"].split("-", 1)[1]: r for r in rows(7)}
want(set(adapters) == {l["ifname"] for l in links},
     "adapters %s, ip lists %s" % (sorted(adapters), sorted(l["ifname"] for l in links)))
for l in links:
    a = adapters.get(l["ifname"])
    if not a: continue
    if l.get("link_type") == "ether":
        want(a["Permanent Address"].lower() == l["address"], "mac of " + l["ifname"])
    virtual = l["ifname"] != "eth0"
    want((a["Physical Type"] == "virtual") == virtual, "physical type of " + l["ifname"])
v4 = sorted((x["local"], x["prefixlen"]) for l in links for x in l["addr_info"] if x["family"] == "inet")
def plen(mask): return sum(bin(int(p)).count("1") for p in mask.split("."))
got4 = sorted((r["Address"], plen(r["Subnet"])) for r in rows(6))
want(got4 == v4, "IPv4 rows %s, ip lists %s" % (got4, v4))
v6 = sorted((x["local"], str(x["prefixlen"]), l["ifname"],
             "global" if x["scope"] == "global" else x["scope"])
            for l in links for x in l["addr_info"] if x["family"] == "inet6")
got6 = sorted((r["Address"], r["Subnet"], r["Adapter Name"], r["Scope"]) for r in rows(51))
want(got6 == v6, "IPv6 rows %s, ip lists %s" % (got6, v6))
temporary = [x["local"] for l in links for x in l["addr_info"] if x.get("temporary")]
want(all(t in [r["Address"] for r in rows(51)] for t in temporary), "temporary addresses")
nets = glpi["content"].get("networks", [])
gv4 = sorted((n["description"], n["ipaddress"]) for n in nets if "ipaddress" in n)
iv4 = sorted((l["ifname"], x["local"]) for l in links for x in l["addr_info"] if x["family"] == "inet")
want(gv4 == iv4, "GLPI IPv4 %s, ip lists %s" % (gv4, iv4))
gv6 = sorted((n["description"], n["ipaddress6"]) for n in nets if "ipaddress6" in n)
iv6 = sorted((l["ifname"], x["local"]) for l in links for x in l["addr_info"] if x["family"] == "inet6")
want(gv6 == iv6, "GLPI IPv6 %s, ip lists %s" % (gv6, iv6))
want({n["description"] for n in nets} == {l["ifname"] for l in links}, "GLPI interfaces")
want(not [n for n in nets if n["description"] == "veth0" and "ipaddress" in n],
     "the bridge member veth0 has an address")
for b in bad: print("FAIL:", b)
print("network: %d adapters, %d IPv4, %d IPv6 (%d temporary), %d GLPI entries" %
      (len(adapters), len(got4), len(got6), len(temporary), len(nets)))
sys.exit(1 if bad else 0)
EOF

# A captured host rebuilt: a server's `ip addr` (GLPI agent's resources, see
# tests/data/linux/SOURCES.md) made again in a namespace of its own, interface by
# interface with its hardware addresses and addresses (veths whose peers wait in a
# third namespace; an interface the kernel cannot make here is left out with a
# note), then compared with what invscan reports.
capture="$(dirname "$0")/../data/linux/server-el8-macvlan/ip_addr"
cns="invscan-capture-$$" pns="invscan-peers-$$"
ip netns add "$cns"
ip netns add "$pns"
trap 'ip netns del "$cns" 2>/dev/null; ip netns del "$pns" 2>/dev/null; cleanup' EXIT
python3 - "$capture" "$pns" > "$tmp/build.sh" <<'PY'
import re, sys
links, cur = [], None
for line in open(sys.argv[1]):
    m = re.match(r"\d+: ([^:@]+)(?:@(\S+))?: <([^>]*)>", line)
    if m:
        cur = {"name": m.group(1), "parent": m.group(2), "flags": m.group(3).split(","),
               "addrs": []}
        links.append(cur)
        continue
    f = line.split()
    if f and f[0] == "link/ether":
        cur["mac"] = f[1]
    if f and f[0] in ("inet", "inet6"):
        label = f[-1] if f[0] == "inet" and f[-1].startswith(cur["name"] + ":") else ""
        cur["addrs"].append((f[1], label))
for l in links:
    n = l["name"]
    if n == "lo":
        continue
    if l["parent"]:
        kind, make = "macvlan", "ip link add %s link %s type macvlan mode bridge" % (n, l["parent"])
    elif n.startswith("docker"):
        kind, make = "bridge", "ip link add %s type bridge" % n
    else:
        kind, make = "veth", "ip link add %s type veth peer name p-%s netns %s" % (n, n, sys.argv[2])
    print("if %s 2>/dev/null; then" % make)
    print("  ip link set %s addrgenmode none 2>/dev/null || true" % n)
    if "mac" in l:
        print("  ip link set %s address %s" % (n, l["mac"]))
    for a, label in l["addrs"]:
        print("  ip addr add %s dev %s%s%s" % (a, n, " nodad" if ":" in a else "",
                                                " label " + label if label else ""))
    if "UP" in l["flags"]:
        print("  ip link set %s up" % n)
    print("else echo 'note: %s left out (no %s here)'; fi" % (n, kind))
PY
ip netns exec "$cns" sh -e "$tmp/build.sh"
ip netns exec "$cns" ip -j addr > "$tmp/cap-ip.json"
ip netns exec "$cns" "$invscan" -n -g 7 -g 6 -g 51 --format json > "$tmp/cap-scan.json"
python3 - "$capture" "$tmp/cap-ip.json" "$tmp/cap-scan.json" <<'PY'
import json, sys
captured = open(sys.argv[1]).read()
made = [l for l in json.load(open(sys.argv[2])) if l["ifname"] != "lo"]
scan = json.load(open(sys.argv[3]))
def rows(gid):
    for t in scan["tables"]:
        if t["id"] == gid:
            return [{a["name"]: a["value"] for a in r} for r in t["rows"] or []]
    return []
bad = []
adapters = {r["Model"].split("-", 1)[1]: r for r in rows(7)}
for l in made:
    a = adapters.get(l["ifname"])
    if l["address"] not in captured:
        bad.append("%s has not the captured MAC" % l["ifname"])
    if not a or a["Permanent Address"].lower() != l["address"]:
        bad.append("the adapter of " + l["ifname"])
if set(adapters) != {l["ifname"] for l in made}:
    bad.append("adapters %s" % sorted(adapters))
def plen(mask): return sum(bin(int(p)).count("1") for p in mask.split("."))
want4 = sorted((x["local"], x["prefixlen"]) for l in made for x in l["addr_info"]
               if x["family"] == "inet")
got4 = sorted((r["Address"], plen(r["Subnet"])) for r in rows(6))
if got4 != want4 or any(a not in captured for a, _ in got4):
    bad.append("IPv4 %s, captured %s" % (got4, want4))
want6 = sorted((x["local"], str(x["prefixlen"]), l["ifname"]) for l in made
               for x in l["addr_info"] if x["family"] == "inet6")
got6 = sorted((r["Address"], r["Subnet"], r["Adapter Name"]) for r in rows(51))
if got6 != want6:
    bad.append("IPv6 %s, captured %s" % (got6, want6))
for b in bad:
    print("FAIL: captured host:", b)
print("captured host: %d of 6 interfaces made, %d IPv4, %d IPv6 addresses" %
      (len(made), len(got4), len(got6)))
sys.exit(1 if bad else 0)
PY

# Mounts: a private mount namespace with tmpfs, ext4 on a loop device and overlay.
command -v unshare >/dev/null || skip "no unshare"
unshare -m true 2>/dev/null || skip "cannot make a mount namespace"
cat > "$tmp/mounts.sh" <<EOF
set -e
mount --make-rprivate /
mkdir -p "$tmp/m/t" "$tmp/m/lower" "$tmp/m/upper" "$tmp/m/work" "$tmp/m/over" "$tmp/m/ext"
mount -t tmpfs -o size=8m invscan-tmp "$tmp/m/t"
mkdir -p "$tmp/m/t/l" "$tmp/m/t/u" "$tmp/m/t/w"
mount -t overlay overlay -o lowerdir=$tmp/m/t/l,upperdir=$tmp/m/t/u,workdir=$tmp/m/t/w "$tmp/m/over"
if command -v mkfs.ext4 >/dev/null && truncate -s 16M "$tmp/ext.img" &&
   mkfs.ext4 -q -F "$tmp/ext.img" && mount -o loop "$tmp/ext.img" "$tmp/m/ext" 2>/dev/null; then :
else echo "note: no loop device, ext4 left out"; fi
df -T > "$tmp/df.txt"
"$invscan" -g 27 --format glpi > "$tmp/drives.json"
"$invscan" -g 27 > "$tmp/view.txt"
"$invscan" -g 27 --format ocs > "$tmp/ocs.xml"
EOF
unshare -m sh "$tmp/mounts.sh"
python3 "$validate" "$schema" "$tmp/drives.json"
python3 - "$tmp/df.txt" "$tmp/drives.json" "$tmp/m" "$tmp/view.txt" "$tmp/ocs.xml" <<'EOF'
import json, sys
import xml.etree.ElementTree as ET
lines = open(sys.argv[1]).read().splitlines()[1:]
df = {}
for l in lines:
    f = l.split()
    if len(f) >= 7: df[" ".join(f[6:])] = f[1]
drives = {d["type"]: d.get("filesystem") for d in json.load(open(sys.argv[2]))["content"].get("drives", [])}
bad = [m for m in df if drives.get(m) != df[m]]
for m in bad: print("FAIL: %s is %s in df -T, %s in GLPI" % (m, df[m], drives.get(m)))
mine = {m: t for m, t in df.items() if m.startswith(sys.argv[3])}
print("mounts: %d in df -T, %d drives; ours: %s" % (len(df), len(drives), mine))
# The readable view: each mount's FS Type line starts with the type df gives it.
view = {}
for block in open(sys.argv[4]).read().split("\n\n"):
    f = dict((k.strip(), v.strip()) for k, v in
             (l.split(": ", 1) for l in block.splitlines() if ": " in l and l.startswith("  ")))
    if "FS Mount Point" in f: view[f["FS Mount Point"]] = f.get("FS Type", "").split(" ")[0]
for m, t in mine.items():
    if view.get(m) != t:
        print("FAIL: %s is %s in df -T, %s in the view" % (m, t, view.get(m))); bad.append(m)
ocs = {d.findtext("TYPE"): d.findtext("FILESYSTEM")
       for d in ET.parse(sys.argv[5]).getroot().iter("DRIVES")}
for m, t in mine.items():
    if ocs.get(m) != t:
        print("FAIL: %s is %s in df -T, %s in the OCS inventory" % (m, t, ocs.get(m))); bad.append(m)
want = {"tmpfs", "overlay"}
if not want <= set(mine.values()): print("FAIL: test mounts missing"); bad.append(1)
sys.exit(1 if bad else 0)
EOF
