#!/usr/bin/env bash
# Builds the Debian packages libinvscan<soversion>, libinvscan-dev and invscan into
# build-deb/, then runs lintian over them. Usage: package.sh   (Debian, as root)
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh base package

version="$(sed -n 's/^project(invscan VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)"
so="${version%%.*}"
debversion="$version-1"
arch="$(dpkg --print-architecture)"
ma="$(dpkg-architecture -qDEB_HOST_MULTIARCH)"
out="$PWD/build-deb"
maintainer="invscan developers <invscan@example.org>"
lib="libinvscan$so"

# Debian's hardening flags.
CFLAGS="$(dpkg-buildflags --get CFLAGS) $(dpkg-buildflags --get CPPFLAGS)"
CXXFLAGS="$(dpkg-buildflags --get CXXFLAGS) $(dpkg-buildflags --get CPPFLAGS)"
LDFLAGS="$(dpkg-buildflags --get LDFLAGS)"
export CFLAGS CXXFLAGS LDFLAGS
cmake -S . -B "$out/build" -G Ninja -DCMAKE_BUILD_TYPE=None -DCMAKE_INSTALL_PREFIX=/usr \
  -DCMAKE_INSTALL_LIBDIR="lib/$ma" -DCMAKE_INSTALL_LIBEXECDIR=libexec -DINVSCAN_TESTS=OFF \
  -DINVSCAN_WERROR=ON -DINVSCAN_STATIC_HELPERS=OFF >/dev/null
cmake --build "$out/build" -j "$(nproc 2>/dev/null || echo 2)"
rm -rf "$out/stage" "$out/debian" "$out"/*.deb
DESTDIR="$out/stage" cmake --install "$out/build" --strip >/dev/null

# Split the installation into the three packages, in debian/<package> as dpkg-shlibdeps
# expects.
pkgdir() { echo "$out/debian/$1"; }
move() { # move PACKAGE PATH...: paths below the staging root
  local p="$1"; shift
  for f in "$@"; do
    mkdir -p "$(pkgdir "$p")/$(dirname "$f")"
    mv "$out/stage/$f" "$(pkgdir "$p")/$f"
  done
}
move "$lib" "usr/lib/$ma/libinvscan.so.$so" "usr/lib/$ma/libinvscan.so.$version"
move libinvscan-dev usr/include "usr/lib/$ma/libinvscan.so" "usr/lib/$ma/cmake" "usr/lib/$ma/pkgconfig"
move invscan usr/bin usr/libexec usr/share/man
# Where KorHWConfig.xml goes and the sanitise key is kept.
install -d -m 0755 "$(pkgdir invscan)/etc/invscan"
gzip -9n "$(pkgdir invscan)/usr/share/man/man1/invscan.1"
left="$(cd "$out/stage" && find . -type f -o -type l)"
[ -z "$left" ] || { echo "package.sh: files in no package:"; echo "$left"; exit 1; }

now="$(date -R)"
for p in "$lib" libinvscan-dev invscan; do
  doc="$(pkgdir "$p")/usr/share/doc/$p"
  mkdir -p "$doc"
  cat > "$doc/copyright" <<EOF
Format: https://www.debian.org/doc/packaging-manuals/copyright-format/1.0/
Upstream-Name: invscan
Source: https://example.org/invscan

Files: *
Copyright: 2026 invscan developers
License: MIT
 Permission is hereby granted, free of charge, to any person obtaining a copy of
 this software and associated documentation files (the "Software"), to deal in
 the Software without restriction, including without limitation the rights to
 use, copy, modify, merge, publish, distribute, sublicense, and/or sell copies of
 the Software, and to permit persons to whom the Software is furnished to do so,
 subject to the following conditions:
 .
 The above copyright notice and this permission notice shall be included in all
 copies or substantial portions of the Software.
 .
 THE SOFTWARE IS PROVIDED "AS IS", WITHOUT WARRANTY OF ANY KIND, EXPRESS OR
 IMPLIED, INCLUDING BUT NOT LIMITED TO THE WARRANTIES OF MERCHANTABILITY, FITNESS
 FOR A PARTICULAR PURPOSE AND NONINFRINGEMENT. IN NO EVENT SHALL THE AUTHORS OR
 COPYRIGHT HOLDERS BE LIABLE FOR ANY CLAIM, DAMAGES OR OTHER LIABILITY, WHETHER
 IN AN ACTION OF CONTRACT, TORT OR OTHERWISE, ARISING FROM, OUT OF OR IN
 CONNECTION WITH THE SOFTWARE OR THE USE OR OTHER DEALINGS IN THE SOFTWARE.
EOF
  printf 'invscan (%s) unstable; urgency=medium\n\n  * Packaged from the source tree.\n\n -- %s  %s\n' \
    "$debversion" "$maintainer" "$now" | gzip -9n > "$doc/changelog.Debian.gz"
done

mkdir -p "$out/debian"
cat > "$out/debian/control" <<EOF
Source: invscan
Maintainer: $maintainer

Package: $lib
Architecture: any

Package: libinvscan-dev
Architecture: any

Package: invscan
Architecture: any
EOF
mkdir -p "$(pkgdir "$lib")/DEBIAN"
echo "libinvscan $so $lib (>= $version)" > "$(pkgdir "$lib")/DEBIAN/shlibs"
echo "activate-noawait ldconfig" > "$(pkgdir "$lib")/DEBIAN/triggers"
depends() { # the shared-library dependencies of the ELF files of a package
  local files; files="$(find "$(pkgdir "$1")" -type f -perm -u+x -o -type f -name '*.so.*' | sort)"
  # shellcheck disable=SC2086
  (cd "$out" && dpkg-shlibdeps -O -x"$1" $(printf -- '-e%s ' $files) 2>/dev/null) |
    sed -n 's/^shlibs:Depends=//p'
}

control() { # control PACKAGE SECTION DEPENDS MULTIARCH SUMMARY DESCRIPTION
  local dir; dir="$(pkgdir "$1")"
  mkdir -p "$dir/DEBIAN"
  (cd "$dir" && find . -path ./DEBIAN -prune -o -type f -printf '%P\0' | sort -z |
    xargs -0 -r md5sum) > "$dir/DEBIAN/md5sums"
  {
    echo "Package: $1"
    echo "Source: invscan"
    echo "Version: $debversion"
    echo "Architecture: $arch"
    echo "Maintainer: $maintainer"
    echo "Installed-Size: $(du -sk --exclude=DEBIAN "$dir" | cut -f1)"
    [ -z "$3" ] || echo "Depends: $3"
    [ -z "$4" ] || echo "Multi-Arch: $4"
    echo "Section: $2"
    echo "Priority: optional"
    echo "Homepage: https://example.org/invscan"
    echo "Description: $5"
    echo "$6" | fold -s -w 78 | sed 's/ *$//; s/^/ /'
  } > "$dir/DEBIAN/control"
}

control "$lib" libs "$(depends "$lib")" same \
  "hardware and software inventory scanner (library)" \
  "libinvscan gives an inventory agent thirteen groups of typed tables: SMBIOS, processors, memory, storage, network adapters and addresses, partitions, operating system and regional settings. This package holds the shared library."
control libinvscan-dev libdevel "$lib (= $debversion)" same \
  "hardware and software inventory scanner (development files)" \
  "libinvscan gives an inventory agent thirteen groups of typed tables. This package holds the headers (include <invscan/invscan.h>), the CMake package (find_package(invscan)), the pkg-config file and the JSON Schema of the scanner's output."
control invscan admin "$(depends invscan)" "" \
  "hardware and software inventory scanner" \
  "invscan scans this machine, or a host recorded in a bundle, and prints its inventory as text, as JSON with a published schema, or as a GLPI native inventory; it compares two scans and sanitises what it shares."

for p in "$lib" libinvscan-dev invscan; do
  dpkg-deb --root-owner-group -Zxz --build "$(pkgdir "$p")" "$out/${p}_${debversion}_${arch}.deb" >/dev/null
done
ls -l "$out"/*.deb
# Errors fail the build; warnings are shown.
lintian --fail-on error --tag-display-limit 0 "$out"/*.deb
