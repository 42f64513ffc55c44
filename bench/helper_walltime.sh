#!/bin/sh
# Whole-process wall time of the helper programs, as the library pays it per scan.
# usage: bench/helper_walltime.sh BUILD_DIR [RUNS]
# Prints, per helper and mode, the fastest, median and slowest of RUNS runs in ms.
set -eu
build=${1:?usage: $0 BUILD_DIR [RUNS]}
runs=${2:-20}
here=$(cd "$(dirname "$0")/.." && pwd)
bundle="$here/tests/data/bundles/macbookpro-2011-10.7.5"
mini="$here/tests/data/macos/system_profiler_mini_10.7.5.xml"

measure() {
    label=$1; shift
    times=""
    i=0
    while [ "$i" -lt "$runs" ]; do
        start=$(date +%s%N)
        "$@" > /dev/null
        end=$(date +%s%N)
        times="$times $(( (end - start) / 1000 ))"
        i=$((i + 1))
    done
    echo "$times" | tr ' ' '\n' | grep . | sort -n | awk -v l="$label" '
        { t[NR] = $1 }
        END { printf "%-34s min %8.2f ms  median %8.2f ms  max %8.2f ms  (%d runs)\n",
              l, t[1] / 1000, t[int((NR + 1) / 2)] / 1000, t[NR] / 1000, NR }'
}

measure "sysprof (live)" "$build/bin/sysprof"
measure "iokit (live)" "$build/bin/iokit"
measure "sysprof --replay (1.9 MB dump)" "$build/bin/sysprof" --replay "$bundle"
measure "sysprof --from (3.1 MB plist)" "$build/bin/sysprof" --from "$mini"
