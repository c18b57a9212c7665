# Doxygen's view of the public header, whose comments are plain:
#  - The opening comment is the main page; what follows up to the first section is left out.
#  - A framed heading begins a group, and "/* --- words --- */" a part of it.
#  - A comment on lines of its own is the text of every declaration that follows without an empty
#    line or another comment between; before constants it is the heading of that part.
#  - A comment behind a declaration is its text.
# Usage: awk -f doxygen.awk HEADER

BEGIN {
  while ((getline line < ARGV[1]) > 0) {
    if (line ~ /^(QMIBTREE_API|extern) /) sub(/[(;].*/, "", line)
    else if (line ~ /^typedef .*\(\*/) sub(/\)\(.*/, "", line)
    else if (!sub(/^#define /, "", line)) continue
    else sub(/[ (].*/, "", line)
    sub(/.*[ *]/, "", line)
    declared[line] = 1
  }
  close(ARGV[1])
}

# Prose, kept from being taken for doxygen's commands, with links from the names that are declared.
function plain(text,    out, word) {
  gsub(/[\\@&#<>%]/, "\\\\&", text)
  while (match(text, /[A-Za-z_0-9]+/)) {
    word = substr(text, RSTART, RLENGTH)
    out = out substr(text, 1, RSTART - 1) (word in declared ? "#" : "") word
    text = substr(text, RSTART + RLENGTH)
  }
  return out text
}

# A line of a comment. What stands in quotes, which may close in a later line, doxygen takes as it is.
function prose(text,    out, at, mark) {
  while (at = match(text, quote ? quote : "[`\"]")) {
    mark = substr(text, at, 1)
    out = out (quote ? substr(text, 1, at - 1) : plain(substr(text, 1, at - 1))) mark
    quote = quote ? "" : mark
    text = substr(text, at + 1)
  }
  return out (quote ? text : plain(text))
}

# A line of a comment. Indented by three behind an empty line it begins an example.
function convert(text,    out) {
  if (example ? text ~ /^ ?[^ ]/ : gap && text ~ /^   /) {
    example = !example
    out = example ? "@code\n" : "@endcode\n"
  }
  gap = text == ""
  return out (example ? text : prose(text))
}

# The comment that begins with the text given; reads on to its end.
function comment(text,    out) {
  example = gap = 0
  quote = ""
  sub(/^ *\/\*/, "", text)
  while (text !~ /\*\/$/) {
    out = out convert(text) "\n"
    getline text
    if (text !~ /^ *\*\/$/) sub(/^ *\*?/, "", text)
  }
  sub(/ *\*\/$/, "", text)
  out = out convert(text)
  return example ? out "\n@endcode" : out
}

# The first line, or sentence, of what `above` holds; `above` keeps the rest.
function take_up_to(end,    taken) {
  match(above, end)
  taken = substr(above, 1, RSTART - 1)
  above = substr(above, RSTART + RLENGTH)
  gsub(/\n ?/, " ", taken)
  sub(/^ /, "", taken)
  return taken
}

function end_part() {
  if (part != "") print "/** @} */"
  part = ""
}
function begin_part(kind, heading, text) {
  end_part()
  printf "/** @name %s\n%s */ /** @{ */\n", heading, text
  part = kind
}

NR == 1 {
  above = comment($0)
  heading = take_up_to("\n\n")
  printf "/** @file\n * %s */\n/** @mainpage qmibtree\n * %s\n\n%s */\n", heading, heading, above
  above = ""
  next
}

/^\/\* -------/ {
  above = comment($0)
  take_up_to("\n")
  heading = take_up_to("\n")
  sub(/ -+$/, "", above)
  id = tolower(heading)
  sub(/:.*/, "", id)
  gsub(/[^a-z0-9]+/, "_", id)
  end_part()
  if (section) print "/** @} */"
  printf "/** @defgroup %s %s\n%s@{ */\n", id, heading, above
  above = ""
  section = 1
  next
}

!section { next }

/^#if / {
  end_part()
  print "/** @} */"
  exit
}

/^\/\* --- .* --- \*\/$/ {
  begin_part("words", toupper(substr($0, 8, 1)) substr($0, 9, length($0) - 15), "")
  next
}

/^ *\/\*/ {
  field = /^ /
  above = comment($0)
  next
}

/^$/ {
  above = ""
  if (part == "constants") end_part()
}

above != "" && /^#define [A-Z_0-9]+ / {
  heading = take_up_to("[.:]( |\n|$)")
  gsub(/#/, "", heading)  # no links in headings
  begin_part("constants", heading, above)
  above = ""
}

above != "" && (field ? /^ / : /^[A-Za-z#]/) {
  printf "/**%s */\n", above
  if (field) above = ""
}

{
  behind = index($0, "/*")
  if (behind) $0 = substr($0, 1, behind - 1) "/**<" comment(substr($0, behind)) " */"
  print
}
