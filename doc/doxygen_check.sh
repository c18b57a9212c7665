#!/bin/sh
# Fails, naming them, when symbols of the map are missing from the API reference or have no text there.
# Usage: doxygen_check.sh MAP XML-FOLDER
set -eu
export LC_ALL=C
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
sed -n 's/^    \([A-Za-z_0-9]*\);$/\1/p' "$1" | sort >"$scratch/mapped"
test -s "$scratch/mapped" || { echo "no symbol found in $1" >&2; exit 1; }
awk '
  /<memberdef kind="(function|variable)"/ { name = "" }
  /^ *<name>/ { name = $0; gsub(/^ *<name>|<\/name>/, "", name) }
  /<briefdescription>/ { getline; if (/<para>./) print name }
' "$2"/group__*.xml | sort >"$scratch/described"
missing=$(comm -23 "$scratch/mapped" "$scratch/described")
[ -z "$missing" ] || { printf 'not in the API reference, or without text:\n%s\n' "$missing" >&2; exit 1; }
