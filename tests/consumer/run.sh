#!/usr/bin/env bash
# Installs a build, checks what it installed, builds the consumer three ways (the
# CMake package, pkg-config, a subdirectory) and runs it, then moves the installation
# to another prefix and scans from there.
# Usage: run.sh SOURCE_DIR BUILD_DIR
set -euo pipefail
src="$1"; build="$2"
work="$(mktemp -d /tmp/invscan-consumer-XXXXXX)"
trap 'rm -rf "$work"' EXIT
prefix="$work/prefix"

cmake --install "$build" --prefix "$prefix" >/dev/null
pc="$(find "$prefix" -name invscan.pc | head -n 1)"
libdir="$(dirname "$(dirname "$pc")")"
# The installed headers are the public ones and nothing else; no helper on PATH.
diff <(cd "$src/include/invscan" && ls *.h) <(cd "$prefix/include/invscan" && ls *.h) ||
  { echo "installed headers differ from the public ones"; exit 1; }
for h in sysprof iokit; do
  [ ! -e "$prefix/bin/$h" ] || { echo "bin/$h installed on PATH"; exit 1; }
  [ -x "$prefix/libexec/invscan/bin/$h" ] || { echo "libexec/invscan/bin/$h missing"; exit 1; }
done
grep -q -- "-I\${includedir}$" "$pc" ||
  { echo "invscan.pc adds more than the include folder"; exit 1; }

echo "== find_package"
cmake -S "$src/tests/consumer" -B "$work/c-package" -DCMAKE_PREFIX_PATH="$prefix" \
  -DCMAKE_BUILD_RPATH="$libdir" >/dev/null
cmake --build "$work/c-package" >/dev/null
"$work/c-package/consumer"

echo "== pkg-config"
export PKG_CONFIG_PATH="$(dirname "$pc")"
# shellcheck disable=SC2046
c++ -std=c++17 -o "$work/c-pc" "$src/tests/consumer/main.cpp" $(pkg-config --cflags --libs invscan) \
  -Wl,-rpath,"$(pkg-config --variable=libdir invscan)"
"$work/c-pc"

echo "== add_subdirectory"
cmake -S "$src/tests/consumer" -B "$work/c-sub" -G Ninja -DINVSCAN_SOURCE="$src" >/dev/null
# The consumer's build has none of invscan's tests.
! grep -q "invscan_tests" "$work/c-sub/build.ninja" || { echo "tests built inside a consumer"; exit 1; }
cmake --build "$work/c-sub" --target consumer >/dev/null
"$work/c-sub/consumer"

echo "== moved installation"
mv "$prefix" "$work/moved"
out="$(env -u KOR_HOMEDIR "$work/moved/bin/invscan" -g Storage -g "Scan Info" --format json)"
echo "$out" | grep -q '"name": "Storage",' || { echo "no Storage table from the moved installation"; exit 1; }
echo "$out" | grep -q '"status": "ok"' || { echo "nothing scanned from the moved installation"; exit 1; }
echo "consumer builds and relocated scan pass"
