#!/usr/bin/env python3
"""Builds the replay bundles of real Macs in tests/data/bundles from saved outputs.

Each bundle holds only what its sources hold: helper outputs converted with
`sysprof --from` / `iokit --from`, sysctl values from `sysctl` listings, uname, the
mount table (mount + df) and `ifconfig -a` output. A missing source leaves its part
out, and replay then answers as the live call fails.

usage: make_bundles.py CORPUS_DIR BUILD_DIR OUT_DIR
"""
import os
import re
import subprocess
import sys

# name, note, {part: source relative to the corpus's macos folder}
MACHINES = [
    ("macmini3-1-10.6.8", "Macmini3,1, Core 2 Duo P7550, Mac OS X 10.6.8 (glpi-agent)",
     {"sysprof": "glpi-agent/system_profiler/10.6-macmini", "sysctl": "glpi-agent/sysctl/10.6-macmini"}),
    ("macbookair10-1-m1-11.2.3", "MacBookAir10,1, Apple M1, macOS 11.2.3 (glpi-agent)",
     {"sysprof": "glpi-agent/system_profiler/11.0-apple-M1", "sysctl": "glpi-agent/sysctl/11.0-apple-M1"}),
    ("imac7-1-10.6.4", "iMac7,1, Core 2 Duo, Mac OS X 10.6.4 (glpi-agent)",
     {"sysprof": "glpi-agent/system_profiler/10.6-intel"}),
    ("powermac11-2-10.5.8", "PowerMac11,2, PowerPC G5, Mac OS X 10.5.8 (glpi-agent)",
     {"sysprof": "glpi-agent/system_profiler/10.5-powerpc"}),
    ("macbookpro-2011-10.7.5", "MacBook Pro 2011, Mac OS X 10.7.5, mini detail level (chef/ohai)",
     {"sysprof": "ohai/system_profiler_mini_10.7.5.xml"}),
    ("macbookpro11-1-10.12", "MacBookPro11,1, Core i7, macOS 10.12 beta (chef/ohai)",
     {"sysprof": "ohai/SPHardwareDataType.xml"}),
    ("macbook2-1-registry", "MacBook2,1, I/O registry listing (glpi-agent)",
     {"iokit": "glpi-agent/ioreg/IOPlatformExpertDevice"}),
    ("kbrazil-mac-10.14.6", "Core i5-8279U, macOS 10.14.6 (kellyjonbrazil/jc)",
     {"sysctl": "jc/osx-10.14.6/sysctl-a.out", "uname": "jc/osx-10.14.6/uname-a.out",
      "mount": "jc/osx-10.14.6/mount.out", "df": "jc/osx-10.14.6/df.out",
      "ifconfig": "jc/osx-10.14.6/ifconfig.out"}),
]

# Darwin sysctls that are 64-bit quantities.
QUADS = {"hw.memsize", "hw.pagesize", "hw.cpufrequency", "hw.cpufrequency_min", "hw.cpufrequency_max",
         "hw.busfrequency", "hw.busfrequency_min", "hw.busfrequency_max", "hw.tbfrequency",
         "hw.l1icachesize", "hw.l1dcachesize", "hw.l2cachesize", "hw.l3cachesize", "hw.cachelinesize"}
# The numeric names the groups use, and their names.
MIBS = {"hw.ncpu": "6.3", "hw.physmem": "6.5", "hw.pagesize": "6.7", "hw.busfrequency": "6.14",
        "hw.cpufrequency": "6.15", "hw.l2cachesize": "6.20", "hw.l3cachesize": "6.22", "hw.memsize": "6.24"}


def escape(s):
    out = []
    for ch in s:
        o = ord(ch)
        if ch == "\\":
            out.append("\\\\")
        elif ch == "\t":
            out.append("\\t")
        elif ch == "\n":
            out.append("\\n")
        elif ch == "\r":
            out.append("\\r")
        elif o < 0x20 or o == 0x7F:
            out.append("\\x%02x" % o)
        else:
            out.append(ch)
    return "".join(out)


def safe_name(key):
    out = []
    for i, b in enumerate(key.encode()):
        c = chr(b)
        if c.isascii() and (c.isalnum() or c in "_-" or (c == "." and i > 0)):
            out.append(c)
        else:
            out.append("%%%02X" % b)
    return "".join(out) or "%"


def swap_bytes(text):
    # "total = 1024.00M  used = 0.00M  free = 1024.00M  (encrypted)"
    vals = dict(re.findall(r"(total|used|free) = ([\d.]+)M", text))
    if len(vals) < 3:
        return None
    mb = lambda k: int(float(vals[k]) * 1024 * 1024)
    b = mb("total").to_bytes(8, "little") + mb("free").to_bytes(8, "little") + mb("used").to_bytes(8, "little")
    b += (4096).to_bytes(4, "little") + (1 if "encrypted" in text else 0).to_bytes(4, "little")
    return b.hex()


def sysctl_lines(text):
    lines = []
    for line in text.splitlines():
        m = re.match(r"^([a-z][a-z0-9_.]*): ?(.*)$", line)
        if not m:
            continue
        name, value = m.group(1), m.group(2)
        entries = []
        if name == "vm.swapusage":
            hexval = swap_bytes(value)
            if hexval:
                entries = [("x", hexval)]
                lines.append("2.5\tx\t%s" % hexval)
        elif re.fullmatch(r"-?\d+", value):
            v = int(value)
            t = "q" if name in QUADS or not (-2**31 <= v < 2**31) else "i"
            entries = [(t, value)]
        else:
            entries = [("s", value)]
        for t, v in entries:
            lines.append("%s\t%s\t%s" % (escape(name), t, escape(v)))
            if name in MIBS:
                lines.append("%s\t%s\t%s" % (MIBS[name], t, escape(v)))
    return lines


def mount_lines(mount_text, df_text):
    sizes = {}
    for line in df_text.splitlines()[1:]:
        m = re.match(r"^(.*?)\s+(\d+)\s+(\d+)\s+(\d+)\s+\d+%\s+\d+\s+\d+\s+\d+%\s+(/.*)$", line)
        if m:
            sizes[m.group(5)] = (int(m.group(2)), int(m.group(2)) - int(m.group(3)), int(m.group(4)))
    out = ["# type\tfrom\ton\tbsize\tiosize\tblocks\tbfree\tbavail\tfiles\tffree\tflags"]
    for line in mount_text.splitlines():
        m = re.match(r"^(.*) on (.*) \(([^,)]+)", line)
        if not m:
            continue
        blocks, bfree, bavail = sizes.get(m.group(2), (0, 0, 0))
        fields = [m.group(3), m.group(1), m.group(2), "512", "4096", str(blocks), str(bfree), str(bavail), "0", "0", "0"]
        out.append("\t".join(escape(f) for f in fields))
    return out


def main():
    corpus, build, out_dir = sys.argv[1:4]
    base = os.path.join(corpus, "macos")
    for name, note, parts in MACHINES:
        d = os.path.join(out_dir, name)
        os.makedirs(d, exist_ok=True)
        sources = "".join("# %s: %s\n" % (k, v) for k, v in sorted(parts.items()))
        with open(os.path.join(d, "bundle.txt"), "w") as f:
            f.write("invscan-bundle 1\n# %s\n# made from saved outputs, not recorded live:\n%s" % (note, sources))
        read = lambda k: open(os.path.join(base, parts[k]), encoding="utf-8", errors="surrogateescape").read()
        for helper in ("sysprof", "iokit"):
            if helper in parts:
                os.makedirs(os.path.join(d, "helpers"), exist_ok=True)
                res = subprocess.run([os.path.join(build, "bin", helper), "--from", os.path.join(base, parts[helper])],
                                     check=True, capture_output=True)
                open(os.path.join(d, "helpers", helper), "wb").write(res.stdout)
        if "sysctl" in parts:
            open(os.path.join(d, "sysctl.txt"), "w").write("\n".join(sysctl_lines(read("sysctl"))) + "\n")
        if "uname" in parts:
            w = read("uname").split()
            # Darwin host release "Darwin Kernel Version ...: date; root:xnu... " machine
            version = read("uname").strip().split(" ", 3)[3].rsplit(" ", 1)[0]
            open(os.path.join(d, "uname.txt"), "w").write(
                "sysname\t%s\nnodename\t%s\nrelease\t%s\nversion\t%s\nmachine\t%s\n" % (w[0], w[1], w[2], escape(version), w[-1]))
        if "mount" in parts:
            open(os.path.join(d, "mounts.txt"), "w").write("\n".join(mount_lines(read("mount"), read("df") if "df" in parts else "")) + "\n")
        if "ifconfig" in parts:
            os.makedirs(os.path.join(d, "commands"), exist_ok=True)
            index = []
            for cmd in ("ifconfig -a 2>/dev/null", "/sbin/ifconfig -a 2>/dev/null"):
                open(os.path.join(d, "commands", safe_name(cmd)), "w").write(read("ifconfig"))
                index.append("%s\t0\tcommands/%s" % (escape(cmd), safe_name(cmd)))
            open(os.path.join(d, "commands.txt"), "w").write("\n".join(index) + "\n")


if __name__ == "__main__":
    main()
