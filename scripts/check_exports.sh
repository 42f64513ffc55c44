#!/usr/bin/env bash
# Every symbol the shared library exports belongs to the public headers: its class,
# namespace or function name is declared in include/invscan. Usage: check_exports.sh LIB
set -euo pipefail
cd "$(dirname "$0")/.."
lib="${1:-build/libinvscan.so}"
missing=0
while read -r name; do
  if ! grep -qw -- "$name" include/invscan/*.h; then
    echo "exported but not public: $name"
    missing=1
  fi
done < <(nm -D --defined-only "$lib" | awk '{print $3}' | c++filt -p |
         sed -E 's/^(typeinfo name for|typeinfo for|vtable for|VTT for|guard variable for) //' |
         sed -E 's/\[abi:cxx11\]//g; s/^(unsigned |const )?[A-Za-z_:*&]+[*&]? ([A-Za-z_]+(::|<|$))/\2/' |
         sed -E 's/[<:( ].*//' |
         grep -Ev '^(std|__.*|_init|_fini|_edata|_end|operator.*)?$' | sort -u)
exit $missing
