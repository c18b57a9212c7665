#!/bin/sh
# The header and the symbol map, as a C compiler sees them, against the record of the ABI; for a 64-bit
# compiler the record's 64-bit layouts count, for a 32-bit one the others. 77 when there is no such compiler.
# Usage: abi.sh SOURCE COMPILER
set -eu
source=$1 compiler=$2
command -v "$compiler" >/dev/null || { echo "skipped: $compiler is not installed"; exit 77; }
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

"$source/abi/dump" "$compiler" >"$scratch/found"
bits=$(sed -n 's/^\([36][24]\) .*/\1/p' "$scratch/found" | sort -u)
[ -n "$bits" ] || { echo "no record found in the public header" >&2; exit 1; }
sed "/^#/d; /^$((96 - bits)) /d" "$source/abi/qmibtree.abi" >"$scratch/recorded"
diff "$scratch/recorded" "$scratch/found" >"$scratch/diff" || {
  echo "the ABI is not as recorded: recorded (<) and found (>) with $compiler differ:"
  cat "$scratch/diff"
  echo "A host compiled before may not work with it. If that is meant, renew the record: abi/update"
  exit 1
} >&2
