"""Finds where the library's code can be mutated, and writes the code with all mutants in it.

Every mutant is an alternative that is taken when its number is chosen at run time (Mutant.h), so that
one build serves them all. The mutations are generic:

    negate      a condition, an operand of && or ||, or a truth value returned, is the opposite
    boundary    < becomes <= and so on
    off by one  an integer literal is one more
    remove      a statement that is an expression, or a bare return, is not there
    swap        two such statements that follow each other change places
"""

import re
from dataclasses import dataclass, field

from clang.cindex import CursorKind, Index, TranslationUnit, TypeKind

MACRO_CALL = re.compile(rb"[A-Z][A-Z0-9_]+\(")
BOUNDARY = {"<": "<=", "<=": "<", ">": ">=", ">=": ">"}

# What is evaluated by the compiler, or is no code.
NO_CODE = {CursorKind.STATIC_ASSERT, CursorKind.ENUM_CONSTANT_DECL, CursorKind.CASE_STMT,
           CursorKind.TEMPLATE_TYPE_PARAMETER, CursorKind.TEMPLATE_NON_TYPE_PARAMETER,
           CursorKind.CONCEPT_DECL, CursorKind.FIELD_DECL}
FUNCTIONS = {CursorKind.FUNCTION_DECL, CursorKind.CXX_METHOD, CursorKind.CONSTRUCTOR,
             CursorKind.DESTRUCTOR, CursorKind.CONVERSION_FUNCTION, CursorKind.FUNCTION_TEMPLATE}
CONDITIONAL = {CursorKind.IF_STMT, CursorKind.WHILE_STMT, CursorKind.CONDITIONAL_OPERATOR}


@dataclass
class Mutant:
    kind: str
    begin: int
    end: int
    parts: list = field(default_factory=list)  # [begin, end) of what is taken over into the new text
    new: str = ""                              # of a boundary: the other operator
    function: str = ""                         # the name of the one that it is in
    id: int = -1


class Source:
    """A file and the mutants in it."""

    def __init__(self, path):
        self.path = path
        self.text = path.read_bytes()
        self.mutants = {}   # (kind, begin, end) -> Mutant
        self.function = ""  # in which mutants are being added

    def add(self, kind, begin, end, parts=None, new=""):
        if 0 <= begin < end <= len(self.text):
            self.mutants.setdefault((kind, begin, end),
                                    Mutant(kind, begin, end, parts or [(begin, end)], new,
                                           self.function))

    def line(self, mutant):
        return self.text.count(b"\n", 0, mutant.begin) + 1

    def excerpt(self, mutant):
        return " ".join(self.text[mutant.begin:mutant.end].decode().split())[:90]

    def mutated(self, mutants):
        """The text with `mutants` of this file in it."""
        return self._render(0, len(self.text), sorted(mutants, key=lambda m: (m.begin, -m.end)))

    def _render(self, begin, end, mutants):
        text, at = b"", begin
        while mutants:
            outer, inner, rest = mutants[0], [], []
            for mutant in mutants[1:]:
                (inner if mutant.end <= outer.end else rest).append(mutant)
            text += self.text[at:outer.begin] + self._alternative(outer, inner)
            at = outer.end
            mutants = rest
        return text + self.text[at:end]

    def _alternative(self, mutant, inner):
        def part(n):
            begin, end = mutant.parts[n]
            return self._render(begin, end,
                                [m for m in inner if begin <= m.begin and m.end <= end])

        chosen = b"VELO_MUTANT( %d )" % mutant.id
        if mutant.kind == "negate":
            return b"( %s != static_cast< bool >( %s ) )" % (chosen, part(0))
        if mutant.kind == "off by one":
            return b"( %s + %s )" % (part(0), chosen)
        if mutant.kind == "remove":
            return b"if ( !%s ) { %s }" % (chosen, part(0))
        if mutant.kind == "boundary":
            left, right = part(0), part(1)
            old = self.text[mutant.parts[0][1]:mutant.parts[1][0]]
            return b"( %s ? %s %s %s : %s %s %s )" % (chosen, left, mutant.new.encode(), right,
                                                      left, old, right)
        first, second = part(0), part(1)
        return b"if ( %s ) { %s %s } else { %s %s }" % (chosen, second, first, first, second)


class Finder:
    """Walks translation units and adds what it finds to the sources that it is given."""

    def __init__(self, sources):
        self._sources = {str(source.path): source for source in sources}
        self._index = Index.create()

    def search(self, path, arguments):
        unit = self._index.parse(str(path), arguments,
                                 options=TranslationUnit.PARSE_DETAILED_PROCESSING_RECORD)
        errors = [d for d in unit.diagnostics if d.severity >= 3]
        if errors:
            raise RuntimeError(f"{path}: {errors[0]}")
        for cursor in unit.cursor.get_children():
            self._walk(cursor, None)

    def _walk(self, cursor, function):
        source = self._sources.get(str(cursor.location.file))
        if source is None and function is None:
            return
        if cursor.kind in NO_CODE and function is None or cursor.kind == CursorKind.STATIC_ASSERT:
            return
        if cursor.kind == CursorKind.VAR_DECL and source and b"constexpr" in \
                source.text[cursor.extent.start.offset:cursor.location.offset]:
            return
        if cursor.kind in FUNCTIONS:
            if self._isConstexpr(cursor, source):
                return
            function = cursor
        if source and function:
            source.function = function.spelling
            self._look(cursor, source)
        for child in cursor.get_children():
            if child.kind not in (CursorKind.CASE_STMT,):
                self._walk(child, function)
            else:  # the label is the compiler's, what follows it is code
                for part in list(child.get_children())[1:]:
                    self._walk(part, function)

    @staticmethod
    def _isConstexpr(cursor, source):
        if source is None:
            return True
        begin = cursor.extent.start.offset
        head = source.text[begin:begin + 400].split(b"(")[0]
        before = source.text[max(0, begin - 60):begin].rsplit(b"\n", 2)
        return b"constexpr" in head or b"consteval" in head or b"= default" in \
            source.text[begin:cursor.extent.end.offset + 12] or b"constexpr" in before[-1]

    def _look(self, cursor, source):
        kind, children = cursor.kind, list(cursor.get_children())
        if kind in CONDITIONAL and children and children[0].kind.is_expression() and \
                not self._isIfConstexpr(cursor, source):
            if not any(c.kind == CursorKind.VAR_DECL for c in children):
                self._negate(children[0], source)
        elif kind == CursorKind.FOR_STMT and len(children) == 4:
            self._negate(children[1], source)
        elif kind == CursorKind.RETURN_STMT and children and \
                children[0].type.get_canonical().kind == TypeKind.BOOL:
            self._negate(children[0], source)
        elif kind == CursorKind.BINARY_OPERATOR and len(children) == 2:
            self._operator(cursor, children, source)
        elif kind == CursorKind.INTEGER_LITERAL:
            begin, end = self._range(cursor, source)
            if re.fullmatch(rb"[0-9']+[uUlL]*", source.text[begin:end]):
                source.add("off by one", begin, end)
        elif kind == CursorKind.COMPOUND_STMT:
            self._statements(children, source)

    @staticmethod
    def _isIfConstexpr(cursor, source):
        begin = cursor.extent.start.offset
        return source.text[begin:begin + 14].replace(b" ", b"").startswith(b"ifconstexpr")

    def _negate(self, cursor, source):
        begin, end = self._range(cursor, source)
        if not MACRO_CALL.match(source.text[begin:]):  # what is inside a macro is not ours
            source.add("negate", begin, end)

    def _operator(self, cursor, children, source):
        (begin, left), (right, end) = (self._range(child, source) for child in children)
        operator = source.text[left:right].decode(errors="replace").strip()
        if operator in BOUNDARY:
            source.add("boundary", begin, end, [(begin, left), (right, end)], BOUNDARY[operator])
        elif operator in ("&&", "||"):
            for child in children:
                self._negate(child, source)

    def _statements(self, children, source):
        previous = None
        for child in children:
            statement = self._statement(child, source)
            if statement:
                source.add("remove", *statement)
                if previous and not source.text[previous[1]:statement[0]].strip():
                    source.add("swap", previous[0], statement[1], [previous, statement])
                    previous = None  # pairs do not overlap
                    continue
            previous = statement

    def _statement(self, cursor, source):
        """[begin, end) with its semicolon, if it can be left out."""
        bare = cursor.kind == CursorKind.RETURN_STMT and not list(cursor.get_children())
        if not (cursor.kind.is_expression() or bare):
            return None
        begin, end = self._range(cursor, source)
        rest = re.match(rb"\s*;", source.text[end:])
        if not rest or source.text[begin:end].startswith(b"static_cast< void >"):
            return None
        return begin, end + rest.end()

    @staticmethod
    def _range(cursor, source):
        """What it covers; of a macro's call all of that."""
        begin, end = cursor.extent.start.offset, cursor.extent.end.offset
        macro = MACRO_CALL.match(source.text[begin:])
        if macro:
            depth, at = 0, begin + macro.end() - 1
            while at < len(source.text):
                depth += {40: 1, 41: -1}.get(source.text[at], 0)
                at += 1
                if depth == 0:
                    break
            end = max(end, at)
        return begin, end
