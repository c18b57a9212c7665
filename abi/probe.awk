# Reads the preprocessed public header (cc -E -dD) and writes a C program for the compiler to turn into
# assembler: one ".ascii" line for each function, type, constant, record and field, with the numbers
# filled in by the compiler. What it cannot read it refuses, so that nothing is left out.
# Usage: awk -f probe.awk PREPROCESSED

function fail(words) {
  print "qmibtree.h: cannot be read for the ABI record: " words >"/dev/stderr"
  exit 1
}

function trimmed(words) {
  gsub(/[ \t]+/, " ", words)
  gsub(/ \*/, "*", words)
  sub(/^ /, "", words)
  sub(/ $/, "", words)
  return words
}

# The length of the "(...)" that `words` begin with.
function balanced(words,    i, depth, c) {
  for (i = 1; i <= length(words); i++) {
    c = substr(words, i, 1)
    depth += (c == "(") - (c == ")")
    if (depth == 0) return i
  }
  fail(words)
}

function without_attributes(words,    open) {
  gsub(/__extension__/, "", words)
  while (match(words, /__attribute__ *\(/)) {
    open = substr(words, RSTART + RLENGTH - 1)
    words = substr(words, 1, RSTART - 1) substr(open, balanced(open) + 1)
  }
  return words
}

# Declarations are recorded without the names of parameters: those are free to change.

# "const char* name", "char path[8]", "void (*start)(T* arg)": sets `name`; the type alone.
function unnamed(words,    type, own, array) {
  if (match(words, /\(\*[A-Za-z_0-9]+\)/)) {
    own = substr(words, RSTART + 2, RLENGTH - 3)
    type = substr(words, 1, RSTART + 1) ")"
    type = type parameters(substr(words, RSTART + RLENGTH))
    name = own
    return type
  }
  if (match(words, /\[.*$/)) {
    array = substr(words, RSTART)
    words = trimmed(substr(words, 1, RSTART - 1))
  }
  if (!match(words, /[ *][A-Za-z_0-9]+$/)) fail(words)
  name = substr(words, RSTART + 1)
  return trimmed(substr(words, 1, RSTART)) array
}

# "(T* a, void (*b)(void), ...)": the types alone.
function parameters(list,    i, c, depth, one, all) {
  if (balanced(list) != length(list)) fail(list)
  for (i = 2; i <= length(list); i++) {
    c = substr(list, i, 1)
    if (depth == 0 && (c == "," || c == ")")) {
      one = trimmed(one)
      if (one ~ /[ *][A-Za-z_0-9]+$|\(\*|\[/) one = unnamed(one)
      all = all (all == "" ? "" : ", ") one
      one = ""
    } else {
      depth += (c == "(") - (c == ")")
      one = one c
    }
  }
  return "(" all ")"
}

# `text` with %0, %1... where the numbers go.
function emit(text, numbers) { printf "  EMIT(\"%s\"%s);\n", text, numbers }
function number(expression) { return ", \"i\"((long long)(" expression "))" }

function record(words) {
  if (words !~ /^struct [A-Za-z_0-9]+$/) fail(words " {")
  owner = substr(words, 8)
  emit("%0 " owner " all: %1 bytes, aligned to %2",
       number("8 * sizeof(void*)") number("sizeof(" owner ")") number("__alignof__(" owner ")"))
}

function field(words,    type, place) {
  if (words ~ /:/ || (words ~ /,/ && words !~ /\(/)) fail(words)
  type = unnamed(words)
  place = number("8 * sizeof(void*)") number("offsetof(" owner ", " name ")")
  if (type ~ /\[\]$/) emit("%0 " owner " at %1: " name ", " type, place)
  else emit("%0 " owner " at %1: " name ", %2 bytes, " type,
            place number("sizeof(((" owner "*)0)->" name ")"))
}

function declaration(words,    type, function_name) {
  if (words ~ /^typedef struct [A-Za-z_0-9]+ [A-Za-z_0-9]+$/) return
  sub(/^extern /, "", words)
  if (sub(/^typedef /, "", words)) {
    type = unnamed(words)
    emit("type " name ": " type)
  } else if (match(words, /[A-Za-z_0-9]+\(/)) {
    function_name = substr(words, RSTART, RLENGTH - 1)
    type = trimmed(substr(words, 1, RSTART - 1))
    emit("function " function_name ": " type " " parameters(substr(words, RSTART + RLENGTH - 1)))
  } else {
    type = unnamed(words)
    emit("data " name ": " type)
  }
}

# One statement's words and the mark behind them: ";", "{" or "}".
function statement(words, mark) {
  if (closed && (words != "" || mark != ";")) fail("} " words)
  if (mark == "{") {
    if (depth == 0) record(words)
    else if (words != "union" && words != "struct") fail(words " {")
    depth++
  } else if (mark == "}") {
    if (words != "") fail(words)
    depth--
  } else if (!closed) {
    if (depth) field(words)
    else declaration(words)
  }
  closed = mark == "}"
}

BEGIN {
  print "#include \"qmibtree.h\""
  print "#define EMIT(text, ...) __asm__ volatile(\".ascii \\\"abi: \" text \"\\\"\" ::__VA_ARGS__)"
  print "void probe(void) {"
}

/^# [0-9]+ "/ { ours = $3 == "\"qmibtree.h\"" }
!ours { next }
# A macro without a value, or an attribute, is no constant.
/^#define [A-Za-z_0-9]+ / && NF > 2 && $3 !~ /^__/ {
  emit("constant " $2 ": %0", number($2 " | 0")) # "| 0": only an integer will do
}
/^#/ { next }
{ text = text " " $0 }

END {
  text = without_attributes(text)
  while (match(text, /[;{}]/)) {
    words = trimmed(substr(text, 1, RSTART - 1))
    mark = substr(text, RSTART, 1)
    text = substr(text, RSTART + 1)
    statement(words, mark)
  }
  if (trimmed(text) != "") fail(text)
  print "}"
}
