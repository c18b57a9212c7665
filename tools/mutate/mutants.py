"""The list of mutants: every small break of the library's sources, each in one place."""

import re
from dataclasses import dataclass

from clang.cindex import CursorKind, Index, TokenKind, TypeKind

FOLDERS = ("mibtree", "config", "comps", "log", "util")

# Constants that stand for each other, by the beginning of their names.
FAMILIES = (
    "QMIBTREE_RC_", "QMIBTREE_TYPE_", "QMIBTREE_UID_", "QMIBTREE_NODE_", "QMIBTREE_ATTR_",
    "QMIBTREE_WRITE_", "QMIBTREE_PHASE_", "QDBG_FEAT_", "QDBG_LVL_",
)

# What stands in for an operator, and the kind of the break.
OPERATORS = {
    b"<": ("relation", b"<="), b"<=": ("relation", b"<"),
    b">": ("relation", b">="), b">=": ("relation", b">"),
    b"==": ("relation", b"!="), b"!=": ("relation", b"=="),
    b"+": ("arithmetic", b"-"), b"-": ("arithmetic", b"+"),
    b"*": ("arithmetic", b"/"), b"/": ("arithmetic", b"*"), b"%": ("arithmetic", b"*"),
    b"<<": ("arithmetic", b">>"), b">>": ("arithmetic", b"<<"),
    b"+=": ("arithmetic", b"-="), b"-=": ("arithmetic", b"+="), b"*=": ("arithmetic", b"+="),
    b"&&": ("logic", b"||"), b"||": ("logic", b"&&"),
    b"&": ("bits", b"|"), b"&=": ("bits", b"|="), b"|=": ("bits", b"^="), b"^": ("bits", b"|"),
}
UNARY = {
    b"++": ("arithmetic", b"--"), b"--": ("arithmetic", b"++"),
    b"!": ("logic", b""), b"~": ("bits", b""),
}

STATEMENTS = (CursorKind.COMPOUND_STMT, CursorKind.IF_STMT, CursorKind.FOR_STMT,
              CursorKind.WHILE_STMT, CursorKind.CXX_FOR_RANGE_STMT)
FUNCTIONS = (CursorKind.FUNCTION_DECL, CursorKind.FUNCTION_TEMPLATE, CursorKind.CXX_METHOD,
             CursorKind.CONSTRUCTOR, CursorKind.DESTRUCTOR, CursorKind.CONVERSION_FUNCTION)
ASSIGNMENTS = (CursorKind.BINARY_OPERATOR, CursorKind.COMPOUND_ASSIGNMENT_OPERATOR,
               CursorKind.UNARY_OPERATOR)
TAGGED = ("qmalloc", "qstrdup", "make_zeroed")
JUMPS = (CursorKind.RETURN_STMT, CursorKind.BREAK_STMT, CursorKind.CONTINUE_STMT)

INTEGER = re.compile(rb"(0[xX][0-9A-Fa-f]+|[0-9]+)([uUlL]*)")
# What the breaks of its operator negate already.
PLAIN_COMPARISON = re.compile(
    rb"(?:(?!&&|\|\||[?,:<>] ).)+ [=!]= (?:(?!&&|\|\||[?:] ).)+|![\w.>-]+", re.DOTALL)
CONSTANT = re.compile(rb"-?\d+|true|false|[A-Z][A-Z0-9_]+")
UPPER_CASE = re.compile(r"[A-Z][A-Z0-9_]+")


@dataclass(frozen=True)
class Mutant:
    """`text` takes the place of the bytes from `begin` to `end` of a file."""

    file: str
    begin: int
    end: int
    kind: str
    text: bytes
    line: int
    function: str
    old: str  # the lines it changes, as one
    new: str

    @property
    def identity(self):
        """What it is known by, wherever its lines move."""
        return self.file, self.function, self.kind, self.old, self.new

    def apply(self, source):
        return source[:self.begin] + self.text + source[self.end:]


class Lister:
    """Collects the mutants of one file."""

    def __init__(self, file, source, families, siblings):
        self.file = file
        self.source = source
        self.families = families
        self.siblings = siblings
        self.functions = []  # name and range of each
        self.found = {}

    def add(self, kind, begin, end, text):
        if self.source[begin:end] == text:
            return
        first = self.source.rfind(b"\n", 0, begin) + 1
        last = self.source.find(b"\n", end)
        old = self.source[first:last]
        new = self.source[first:begin] + text + self.source[end:last]
        line = self.source.count(b"\n", 0, begin) + 1
        self.found.setdefault((begin, end, text), Mutant(
            self.file, begin, end, kind, text, line, self.function_at(begin), one_line(old),
            one_line(new)))

    def function_at(self, offset):
        names = [name for name, begin, end in self.functions if begin <= offset < end]
        return names[-1] if names else "-"

    def text_of(self, cursor):
        return self.source[cursor.extent.start.offset:cursor.extent.end.offset]

    def replace(self, kind, cursor, text):
        self.add(kind, cursor.extent.start.offset, cursor.extent.end.offset, text)

    # --- the tree of the file's syntax ---

    def visit(self, cursor, parents=()):
        if cursor.kind == CursorKind.STATIC_ASSERT:
            return
        if cursor.kind in FUNCTIONS:
            extent = cursor.extent
            self.functions.append((cursor.spelling, extent.start.offset, extent.end.offset))
        rule = RULES.get(cursor.kind)
        if rule:
            rule(self, cursor, parents)
        for child in cursor.get_children():
            self.visit(child, parents + (cursor,))

    def operator(self, cursor, _parents):
        left, right = cursor.get_children()
        begin, end = left.extent.end.offset, right.extent.start.offset
        word = self.source[begin:end].strip()
        at = begin + self.source[begin:end].find(word)
        if word in OPERATORS:
            kind, text = OPERATORS[word]
            self.add(kind, at, at + len(word), text)
        if word in (b"|", b"&&", b"||"):  # one side alone
            kind = "bits" if word == b"|" else "logic"
            for side in (left, right):
                self.replace(kind, cursor, self.text_of(side))

    def unary(self, cursor, _parents):
        text = self.text_of(cursor)
        for word, (kind, other) in UNARY.items():
            if text.startswith(word):
                begin = cursor.extent.start.offset
                self.add(kind, begin, begin + len(word), other)
            elif len(word) == 2 and text.endswith(word):
                end = cursor.extent.end.offset
                self.add(kind, end - len(word), end, other)

    def negate(self, begin, end):
        text = self.source[begin:end].strip()
        if text and not PLAIN_COMPARISON.fullmatch(text):
            begin += self.source[begin:end].find(text)
            self.add("condition", begin, begin + len(text), b"!(" + text + b")")

    def choice(self, cursor, _parents):
        condition = next(cursor.get_children())
        self.negate(condition.extent.start.offset, condition.extent.end.offset)

    def branch(self, cursor, _parents):
        parts = self.parenthesis(cursor)
        begin, end = parts[1] if cursor.kind == CursorKind.FOR_STMT else parts[-1]
        self.negate(begin, end)
        for child in cursor.get_children():
            if child.extent.start.offset > parts[-1][1]:
                self.statement(child)

    def range_loop(self, cursor, _parents):
        self.statement(list(cursor.get_children())[-1])

    def parenthesis(self, cursor):
        """The parts between the semicolons of the first parenthesis of a statement, as ranges."""
        parts, depth, begin = [], 0, 0
        for token in cursor.get_tokens():
            if token.spelling in ("(", "[", "{"):
                depth += 1
                if depth == 1:
                    begin = token.extent.end.offset
            elif depth == 1 and token.spelling in (";", ")"):
                parts.append((begin, token.extent.start.offset))
                begin = token.extent.end.offset
                if token.spelling == ")":
                    return parts
            elif token.spelling in (")", "]", "}"):
                depth -= 1
        raise ValueError(f"{self.file}: no parenthesis at {cursor.extent.start.line}")

    def block(self, cursor, parents):
        children = list(cursor.get_children())
        in_function = bool(parents) and parents[-1].kind in FUNCTIONS + (CursorKind.LAMBDA_EXPR,)
        for child in children:
            if not (in_function and child.kind == CursorKind.RETURN_STMT and child == children[-1]):
                self.statement(child)

    def statement(self, cursor):
        if cursor.kind in ASSIGNMENTS:
            self.replace("assignment", cursor, b"")
        elif cursor.kind in JUMPS:
            self.jump(cursor)
        elif cursor.kind.is_expression():
            self.replace("call", cursor, b"")

    def jump(self, cursor):
        value = list(cursor.get_children())
        if value and value[0].type.kind == TypeKind.VOID:  # return stop(load);
            begin = cursor.extent.start.offset
            self.add("jump", begin, begin + len(b"return "), b"")
        else:
            self.replace("jump", cursor, b"")

    def returned(self, cursor, _parents):
        for value in cursor.get_children():
            if CONSTANT.fullmatch(self.text_of(value)):  # has breaks of its own
                continue
            for text in other_values(value.type.get_canonical().kind):
                self.replace("return", value, text)

    # --- constants ---

    def integer(self, cursor, parents):
        match = INTEGER.fullmatch(self.text_of(cursor))
        if not match:  # a macro's name
            return
        digits, suffix = match.groups()
        shape = "0x%X" if digits[:2].lower() == b"0x" else "%d"
        number = int(digits, 0) if digits.strip(b"0") else 0
        array = parents[-1].kind in (CursorKind.VAR_DECL, CursorKind.FIELD_DECL) \
            and parents[-1].type.kind == TypeKind.CONSTANTARRAY
        for other in (number - 1,) if array else (number + 1, number - 1):  # more room is no break
            if other >= 0:
                self.replace("constant", cursor, (shape % other).encode() + suffix)

    def character(self, cursor, _parents):
        text = self.text_of(cursor)
        other = b"'\\1'" if text == b"'\\0'" else None
        if re.fullmatch(rb"'[^\\]'", text):
            other = b"'" + bytes([text[1] + 1]) + b"'"
        if other:
            self.replace("constant", cursor, other)

    def truth(self, cursor, _parents):
        other = {b"true": b"false", b"false": b"true"}.get(self.text_of(cursor))
        if other:
            self.replace("constant", cursor, other)

    def text(self, cursor, parents):
        """A text without its last character; not the tags of allocations, which nobody reads."""
        tag = any(p.kind == CursorKind.CALL_EXPR and p.spelling in TAGGED
                  for p in parents[-3:])
        match = re.fullmatch(rb'("(?:.*[^\\])??)(\\.|[^\\])"', self.text_of(cursor), re.DOTALL)
        if match and not tag:
            self.replace("text", cursor, match.group(1) + b'"')

    def names(self, tokens):
        """Named constants: another of the family, or one less."""
        for token in tokens:
            name, begin = token.spelling, token.extent.start.offset
            line = self.source[self.source.rfind(b"\n", 0, begin) + 1:begin]
            if token.kind == TokenKind.IDENTIFIER and UPPER_CASE.fullmatch(name) \
                    and not line.startswith(b"#"):
                other = self.families.get(name, f"({name} - 1)")
                self.add("constant", begin, begin + len(name), other.encode())

    def sibling(self, cursor, _parents):
        target = cursor.referenced
        other = self.siblings.get(target.get_usr()) if target else None
        if other and self.text_of(cursor).endswith(target.spelling.encode()):
            end = cursor.extent.end.offset
            self.add("constant", end - len(target.spelling), end, other.encode())


RULES = {
    CursorKind.BINARY_OPERATOR: Lister.operator,
    CursorKind.COMPOUND_ASSIGNMENT_OPERATOR: Lister.operator,
    CursorKind.UNARY_OPERATOR: Lister.unary,
    CursorKind.CONDITIONAL_OPERATOR: Lister.choice,
    CursorKind.IF_STMT: Lister.branch,
    CursorKind.WHILE_STMT: Lister.branch,
    CursorKind.FOR_STMT: Lister.branch,
    CursorKind.CXX_FOR_RANGE_STMT: Lister.range_loop,
    CursorKind.COMPOUND_STMT: Lister.block,
    CursorKind.RETURN_STMT: Lister.returned,
    CursorKind.INTEGER_LITERAL: Lister.integer,
    CursorKind.CHARACTER_LITERAL: Lister.character,
    CursorKind.CXX_BOOL_LITERAL_EXPR: Lister.truth,
    CursorKind.STRING_LITERAL: Lister.text,
    CursorKind.DECL_REF_EXPR: Lister.sibling,
}


def one_line(text):
    """The lines without their comments, as one."""
    return " ".join(re.sub(r"(^|\s)//.*", "", text.decode(), flags=re.MULTILINE).split())


def other_values(kind):
    """What a function may return instead, by the type's kind."""
    if kind == TypeKind.BOOL:
        return b"false", b"true"
    if kind in (TypeKind.INT, TypeKind.UINT, TypeKind.LONG, TypeKind.ULONG, TypeKind.UCHAR):
        return (b"0",)
    return (b"nullptr",) if kind == TypeKind.POINTER else ()


def rings(sets):
    """The name that follows each in its set, around."""
    following = {}
    for names in sets:
        if len(names) > 1:
            following.update(zip(names, names[1:] + names[:1]))
    return following


def read_families(header):
    names = [n for n in re.findall(r"^#define (\w+) +\w", header, re.MULTILINE)
             if not n.endswith("_MAX")]
    return rings([n for n in names if n.startswith(family)] for family in FAMILIES)


def constants(cursor, is_ours):
    """The constants and enumerators outside functions."""
    for child in cursor.get_children():
        if child.location.file is None or not is_ours(child.location.file.name):
            continue
        if child.kind == CursorKind.ENUM_CONSTANT_DECL or \
                child.kind == CursorKind.VAR_DECL and child.type.is_const_qualified():
            yield child
        elif child.kind in (CursorKind.NAMESPACE, CursorKind.ENUM_DECL):
            yield from constants(child, is_ours)


def find_siblings(unit, is_ours):
    """For each constant, by its id, the name of the next one of its type and file."""
    sets = {}
    for cursor in constants(unit.cursor, is_ours):
        key = cursor.location.file.name, cursor.type.spelling
        sets.setdefault(key, []).append(cursor)
    found = {}
    for cursors in sets.values():
        following = rings([[c.spelling for c in cursors]])
        found.update((c.get_usr(), following[c.spelling]) for c in cursors if following)
    return found


def list_file(unit, path, file, families, siblings):
    source = path.read_bytes()
    lister = Lister(file, source, families, siblings)
    for cursor in unit.cursor.get_children():
        if cursor.location.file and cursor.location.file.name == str(path):
            lister.visit(cursor)
    lister.names(unit.get_tokens(extent=unit.get_extent(str(path), (0, len(source)))))
    return lister.found.values()


def list_mutants(root):
    """Every mutant, in the order of files and places, and the sources that include each header."""
    families = read_families((root / "include/qmibtree.h").read_text())
    flags = ["-std=c++20", "-D_GNU_SOURCE", f"-I{root}", f"-I{root}/include"]
    found, users = {}, {}
    for source in sources(root, "*.cc"):
        unit = Index.create().parse(str(root / source), args=flags)
        if unit.diagnostics:
            raise ValueError("\n".join(d.format() for d in unit.diagnostics))
        included = {i.include.name for i in unit.get_includes()}
        files = [source] + [f for f in sources(root, "*.hh") if str(root / f) in included]
        siblings = find_siblings(unit, lambda name: any(name == str(root / f) for f in files))
        for file in files:
            users.setdefault(file, []).append(source)
            if file not in found:
                found[file] = list_file(unit, root / file, file, families, siblings)
    mutants = [m for file in found for m in found[file]]
    return sorted(mutants, key=lambda m: (m.file, m.begin, m.end, m.text)), users


def sources(root, pattern):
    return sorted(str(p.relative_to(root)) for f in FOLDERS for p in (root / f).glob(pattern))
