#!/usr/bin/env bash
# Installs the Debian packages a build needs. Usage: deps.sh [base|test|m32|fuzz|check|package]...
set -euo pipefail

need=()
arch="$(dpkg --print-architecture)"
installed() {  # a name without an architecture means the machine's own
  case "$1" in *:*) q="$1" ;; *) q="$1:$arch" ;; esac
  [ "$(dpkg-query -W -f='${Status}' "$q" 2>/dev/null)" = "install ok installed" ] ||
    [ "$(dpkg-query -W -f='${Status}' "$1" 2>/dev/null)" = "install ok installed" ]
}
want() { for p in "$@"; do installed "$p" || need+=("$p"); done; }

for kind in "${@:-base}"; do
  case "$kind" in
    base) want cmake ninja-build g++ pkg-config libpugixml-dev nlohmann-json3-dev libcli11-dev \
               libcurl4-openssl-dev zlib1g-dev ;;
    test) want cmake ninja-build g++ pkg-config libpugixml-dev nlohmann-json3-dev libcli11-dev \
               libcurl4-openssl-dev zlib1g-dev openssl libgtest-dev libbenchmark-dev clang locales \
               python3-jsonschema time ;;
    m32)
      dpkg --print-foreign-architectures | grep -qx i386 || { dpkg --add-architecture i386; need+=(update); }
      want gcc-multilib g++-multilib libpugixml-dev:i386 libgtest-dev:i386 ;;
    fuzz) want clang libclang-rt-14-dev ;;
    check) want git clang-format python3 python3-yaml ;;
    package) want dpkg-dev fakeroot lintian ;;
    *) echo "deps.sh: unknown kind '$kind'" >&2; exit 2 ;;
  esac
done

if [ "${#need[@]}" -gt 0 ]; then
  export DEBIAN_FRONTEND=noninteractive
  # A mirror in the middle of a sync can fail one index; the rest is still usable.
  apt-get update -qq || apt-get update -qq || true
  pkgs=()
  for p in "${need[@]}"; do [ "$p" = update ] || pkgs+=("$p"); done
  [ "${#pkgs[@]}" -eq 0 ] || apt-get install -y -qq --no-install-recommends "${pkgs[@]}" >/dev/null
fi

# A locale with a decimal comma, for the test that printing ignores the locale.
if [[ " $* " == *" test "* ]] && ! locale -a 2>/dev/null | grep -qi '^de_DE.utf-\?8$'; then
  sed -i 's/^# *de_DE.UTF-8 UTF-8/de_DE.UTF-8 UTF-8/' /etc/locale.gen 2>/dev/null || true
  grep -q '^de_DE.UTF-8 UTF-8' /etc/locale.gen 2>/dev/null || echo 'de_DE.UTF-8 UTF-8' >> /etc/locale.gen
  locale-gen >/dev/null 2>&1 || true
fi
