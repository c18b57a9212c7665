#!/bin/sh
# Fails, saying what, when a symbol of the map has no text in the API reference, or a sentence of the
# header's comments is not there word for word.
# Usage: doxygen_check.sh HEADER MAP XML-FOLDER
set -eu
export LC_ALL=C
header=$1 map=$2 xml=$3
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
status=0

sed -n 's/^    \([A-Za-z_0-9]*\);$/\1/p' "$map" | sort >"$scratch/mapped"
test -s "$scratch/mapped" || { echo "no symbol found in $map" >&2; exit 1; }
awk '
  /<memberdef kind="(function|variable)"/ { name = "" }
  /^ *<name>/ { name = $0; gsub(/^ *<name>|<\/name>/, "", name) }
  /<briefdescription>/ { getline; if (/<para>./) print name }
' "$xml"/group__*.xml | sort >"$scratch/described"
missing=$(comm -23 "$scratch/mapped" "$scratch/described")
[ -z "$missing" ] || { printf 'not in the API reference, or without text:\n%s\n' "$missing" >&2; status=1; }

# Only letters and digits are compared. The comments between the opening one and the first section
# are not part of the reference.
awk '
  function letters(text) { gsub(/[^A-Za-z0-9]/, "", text); return tolower(text) }
  function check_sentences(text,    count, sentences, i) {
    count = split(text, sentences, /[.:;]( |$)/)
    for (i = 1; i <= count; i++)
      if (!index(reference, letters(sentences[i]))) {
        print "not in the API reference word for word: " sentences[i]
        lost = 1
      }
  }
  FILENAME ~ /\.xml$/ {
    gsub(/<[^>]*>|&[a-z]+;/, "")
    reference = reference letters($0)
    next
  }
  FNR > 1 && !sections && !/^\/\* -------/ && !inside { next }
  /^\/\* -------/ { sections = 1 }
  !inside && (start = index($0, "/*")) { inside = 1; text = ""; $0 = substr($0, start + 2) }
  inside {
    end = index($0, "*/")
    line = end ? substr($0, 1, end - 1) : $0
    sub(/^ *\* ?/, "", line)
    if (line ~ /^[ -]*$/) { check_sentences(text); text = "" }
    else text = text line " "
    if (end) { check_sentences(text); inside = 0 }
  }
  END { exit lost }
' "$xml"/*.xml "$header" >&2 || status=1
exit $status
