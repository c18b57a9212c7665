#!/bin/sh
# What the shared library needs, exports and leaves undefined, against the header and the symbol map.
# Usage: symbols.sh LIBRARY HEADER MAP
set -eu
export LC_ALL=C
library=$1 header=$2 map=$3
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
status=0

# expect_same WHAT EXPECTED ACTUAL: files of one name a line.
expect_same() {
  if ! diff "$2" "$3" >"$scratch/diff"; then
    printf '%s: expected (<) and found (>) differ:\n' "$1" >&2
    cat "$scratch/diff" >&2
    status=1
  fi
}

# A function's name stands before its parenthesis, data's at the end.
"${CC:-cc}" -E -P "$header" | tr '\n' ' ' | tr ';' '\n' | grep 'visibility("default")' |
  sed 's/__attribute__((visibility("default")))//; s/(.*//; s/ *$//; s/.*[ *]//' |
  sort >"$scratch/declared"
sed -n 's/^    \([A-Za-z_0-9]*\);$/\1/p' "$map" | sort >"$scratch/mapped"
"${NM:-nm}" -D --defined-only "$library" | awk '$2 != "A" { sub(/@.*/, "", $3); print $3 }' | sort >"$scratch/exported"
test -s "$scratch/declared" || { echo "no declaration found in $header" >&2; exit 1; }
expect_same 'symbol map, by the header' "$scratch/declared" "$scratch/mapped"
expect_same 'exported symbols, by the map' "$scratch/mapped" "$scratch/exported"

# The loader is a part of the C library: on Arm and MIPS it holds the word that guards stack frames.
readelf -dW "$library" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' | sed 's/\.so.*//; /^ld\(-.*\)*$/d' |
  sort >"$scratch/needed"
printf 'libc\nlibexpat\n' >"$scratch/needed_expected"
expect_same 'NEEDED entries' "$scratch/needed_expected" "$scratch/needed"

# Not from libc (versioned) and not expat's: only the host's callback, and it strong. A C library
# without versions cannot be told apart: then only that the callback is there, strong, is looked at.
if ! readelf -VW "$library" | grep -q GLIBC; then
  "${NM:-nm}" -D --undefined-only "$library" | grep -q '^ *U mibtree_changed_callback2$' || status=1
else
  "${NM:-nm}" -D --undefined-only "$library" | awk '$2 !~ /@GLIBC/ && $2 !~ /^XML_/ { print $1, $2 }' | sort >"$scratch/undefined"
  echo 'U mibtree_changed_callback2' >"$scratch/undefined_expected"
  expect_same 'undefined symbols' "$scratch/undefined_expected" "$scratch/undefined"
fi

readelf -dW "$library" | sed -n 's/.*(\(INIT\|FINI\|INIT_ARRAY\|FINI_ARRAY\|PREINIT_ARRAY\)).*/\1/p' >"$scratch/started"
: >"$scratch/started_expected"
expect_same 'code run at load or unload' "$scratch/started_expected" "$scratch/started"

readelf -dW "$library" | sed -n 's/.*(SONAME).*\[\(.*\)\]/\1/p' >"$scratch/soname"
echo libqmibtree.so.1 >"$scratch/soname_expected"
expect_same 'soname' "$scratch/soname_expected" "$scratch/soname"
exit $status
