#!/bin/sh
# What the shared object shows to the outside: the exported names agree in the list of exports, the public
# header and the object itself, all under one version; it needs nothing but libc; its name is stable. And what
# runs in signal handlers calls nothing that may not.
# Usage: check_library.sh <library> <list of exports> <public header> <folder of objects> [sanitized]
. "$(dirname "$0")/support/work.sh"
library=$1 exports=$2 header=$3 objects=$4

grep -v '^#' "$exports" | sort > "$work/exports"
grep '^\(extern \)\?ZEBU2_API' "$header" | grep -o 'ZEBU2_[A-Za-z_]*[([]' | tr -d '([' | sort > "$work/header"
nm -D --defined-only "$library" | sed 's/.* //' | sort > "$work/defined"
{ echo ZEBULib2; sed 's/$/@@ZEBULib2/' "$work/exports"; } | sort > "$work/expected"

diff -u "$work/exports" "$work/header"
diff -u "$work/expected" "$work/defined"
readelf -dW "$library" > "$work/dynamic"
grep -q 'SONAME.*\[libZEBULib2\.so\.2\]' "$work/dynamic"
grep -q 'FLAGS.*BIND_NOW' "$work/dynamic"
if [ -z "${5:-}" ]; then
    [ "$(sed -n 's/.*NEEDED.*\[\(.*\)\]/\1/p' "$work/dynamic")" = libc.so.6 ]
    nm -u "$objects/output/PMsgSig.cpp.o" "$objects/output/ltostr.cpp.o" > "$work/calls"
    grep -q ' U ' "$work/calls"
    if grep -E ' _*(mem|str)|malloc|tls_get_addr' "$work/calls"; then exit 1; fi
fi
