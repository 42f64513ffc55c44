#!/usr/bin/env bash
# Checks that need no build: nothing breaks on a case-insensitive file system, the
# sources follow the clang-format style, the generated model table is in step with
# its CSV, and the CI workflow is valid YAML. Usage: check_layout.sh
set -euo pipefail
cd "$(dirname "$0")/.."
fail=0

# Two tracked paths that differ only in case are one file on a Mac.
dups="$(git ls-files | tr '[:upper:]' '[:lower:]' | sort | uniq -d)"
if [ -n "$dups" ]; then
  echo "paths that differ only in case:"; echo "$dups"; fail=1
fi

# A header, by the name it is included with (its path below include/ or src/), that
# differs only in case from a standard C, C++ or POSIX header would be found in its
# place by an include of the standard one.
standard="assert.h complex.h ctype.h errno.h fenv.h float.h inttypes.h iso646.h limits.h
locale.h math.h setjmp.h signal.h stdalign.h stdarg.h stdatomic.h stdbool.h stddef.h
stdint.h stdio.h stdlib.h stdnoreturn.h string.h tgmath.h threads.h time.h uchar.h
wchar.h wctype.h aio.h arpa/inet.h cpio.h dirent.h dlfcn.h fcntl.h fmtmsg.h fnmatch.h
ftw.h glob.h grp.h iconv.h langinfo.h libgen.h monetary.h mqueue.h ndbm.h net/if.h
netdb.h netinet/in.h netinet/tcp.h nl_types.h poll.h pthread.h pwd.h regex.h sched.h
search.h semaphore.h spawn.h strings.h stropts.h syslog.h tar.h termios.h trace.h
ulimit.h unistd.h utime.h utmpx.h wordexp.h sys/ipc.h sys/mman.h sys/msg.h
sys/resource.h sys/select.h sys/sem.h sys/shm.h sys/socket.h sys/stat.h sys/statvfs.h
sys/time.h sys/times.h sys/types.h sys/uio.h sys/un.h sys/utsname.h sys/wait.h
algorithm any array atomic bitset cassert cctype cerrno cfloat chrono cinttypes climits
clocale cmath complex condition_variable cstddef cstdint cstdio cstdlib cstring ctime
cwchar deque exception filesystem fstream functional future iomanip ios iosfwd iostream
istream iterator limits list locale map memory mutex new numeric optional ostream queue
random ratio regex set sstream stack stdexcept streambuf string string_view thread tuple
type_traits typeinfo unordered_map unordered_set utility valarray variant vector"
while read -r path; do
  name="${path#include/}"; name="${name#src/}"
  lower="$(printf '%s' "$name" | tr '[:upper:]' '[:lower:]')"
  for s in $standard; do
    if [ "$lower" = "$s" ]; then echo "$path is included as $name, which is also <$s>"; fail=1; fi
  done
done < <(git ls-files 'include/*' 'src/*' | grep -E '\.(h|hpp)$|/[^.]+$' || true)

# Formatting of the C++ sources changed since BASE (every one when BASE is unset).
base="${INVSCAN_FORMAT_BASE:-}"
if [ -n "$base" ]; then files="$(git diff --name-only --diff-filter=ACMR "$base" -- '*.cpp' '*.h')"
else files="$(git ls-files '*.cpp' '*.h')"; fi
for f in $files; do
  if ! clang-format --dry-run -Werror "$f" >/dev/null 2>&1; then
    echo "$f is not formatted (clang-format -i $f)"; fail=1
  fi
done

# The processor model table against the CSV it is generated from.
python3 tools/gen_intel_table.py --check || { echo "the model table is stale"; fail=1; }

# The workflow that builds on macOS and Linux runners: valid YAML with jobs.
for w in .github/workflows/*.yml; do
  [ -e "$w" ] || continue
  python3 -c 'import sys, yaml; d = yaml.safe_load(open(sys.argv[1])); assert d.get("jobs"), "no jobs"' "$w" \
    || { echo "$w is not a valid workflow"; fail=1; }
done

[ "$fail" = 0 ] && echo "layout, format, model table and workflow checks passed"
exit "$fail"
