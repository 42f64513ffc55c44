#!/usr/bin/env bash
# Stands up a real OCS Inventory NG server on loopback, runs the tests that send to it
# and read its database back, and takes it down. Needs root (packages, a database);
# exits 77 (skipped) without it or when the packages cannot be had.
# Usage: ocs_test.sh INVSCAN_TESTS_BINARY
set -uo pipefail
here="$(cd "$(dirname "$0")" && pwd)"
tests="$1"
if [ "$(id -u)" -ne 0 ]; then
  echo "SKIP: the OCS server test needs root (packages and a private MariaDB)"
  exit 77
fi
export OCS_STATE="${OCS_STATE:-$(mktemp -d /tmp/invscan-ocs-XXXXXX)}"
trap 'bash "$here/ocs.sh" down' EXIT
start=$(date +%s%N)
if ! timeout 600 bash "$here/ocs.sh" up </dev/null; then
  if ! dpkg-query -W -f='${Status}' ocsinventory-server 2>/dev/null | grep -q 'ok installed'; then
    echo "SKIP: the OCS Inventory server's packages could not be installed"
    exit 77
  fi
  echo "FAIL: the OCS server did not come up"
  exit 1
fi
echo "server up in $(( ($(date +%s%N) - start) / 1000000 )) ms"
export INVSCAN_OCS_URL="$(bash "$here/ocs.sh" url)"
export INVSCAN_OCS_SQL="bash $here/ocs.sh sql"
export NO_PROXY=127.0.0.1
timeout 300 "$tests" --gtest_filter='OcsServer.*'
