#!/bin/sh
# Every oddity's row names the test that keeps it: each such test is there.
# Usage: oddities.sh SOURCE
set -eu
rows=$(sed -n 's/^| .*| `\([A-Za-z0-9]*\.[A-Za-z0-9]*\)` |$/\1/p' "$1/doc/oddities.md")
[ -n "$rows" ] || { echo "oddities.sh: no row found" >&2; exit 1; }
all=$(grep -c '^| ' "$1/doc/oddities.md")
heads=$(grep -c '^| what it does' "$1/doc/oddities.md")
status=0
if [ "$(printf '%s\n' "$rows" | wc -l)" != $((all - heads)) ]; then
  echo "a row of doc/oddities.md names no test in its last column" >&2
  status=1
fi
for row in $rows; do
  grep -qE "^TEST(_[FP])?\(${row%.*}, ${row#*.}\)" "$1"/tests/*/*_test.cc ||
    { echo "doc/oddities.md names a test that is not there: $row" >&2; status=1; }
done
exit $status
