"""Where a fault can be planted: the places of the sources that one kind of fault or another can change.

The sources are read by libclang. Only what runs is looked at: bodies of functions, initialisers of members and of
local variables. What has to be a constant (template arguments, array bounds, labels, `if constexpr`) is left out as far
as the syntax tree shows it; the compiler finds the rest when the faults are planted.
"""

import bisect
import collections
import concurrent.futures
import pathlib
import re


from clang.cindex import CursorKind, Index, TranslationUnit

# How a fault is written: a value in place of another, an expression that is left out, or a condition that is negated.
VALUE, DELETION, NEGATION = "value", "deletion", "negation"

# A place and what stands there with the fault. `start` and `end` are offsets in the file; `text` replaces what is
# between them. `constant` says that the function may also run in the compiler. Two places with one line, kind and
# change differ in `start` alone.
Site = collections.namedtuple("Site", "file start end line kind form text constant source change")

KINDS = ("comparison", "operator", "assignment", "constant", "order", "deletion", "negation", "swap")

COMPARISONS = {"<": ("<=", ">="), "<=": ("<", ">"), ">": (">=", "<="), ">=": (">", "<"), "==": ("!=",), "!=": ("==",)}
OPERATORS = {"+": ("-",), "-": ("+",), "*": ("/",), "/": ("*",), "%": ("*",), "&": ("|",), "|": ("&",), "^": ("|",),
             "<<": (">>",), ">>": ("<<",), "&&": ("||",), "||": ("&&",)}
ASSIGNMENTS = {"+=": "-=", "-=": "+=", "*=": "/=", "/=": "*=", "%=": "*=", "&=": "|=", "|=": "&=", "^=": "|=",
               "<<=": ">>=", ">>=": "<<=", "++": "--", "--": "++"}

FUNCTIONS = (CursorKind.FUNCTION_DECL, CursorKind.CXX_METHOD, CursorKind.CONSTRUCTOR, CursorKind.DESTRUCTOR,
             CursorKind.CONVERSION_FUNCTION, CursorKind.FUNCTION_TEMPLATE)
LITERALS = (CursorKind.INTEGER_LITERAL, CursorKind.CHARACTER_LITERAL, CursorKind.CXX_BOOL_LITERAL_EXPR)
MACROS = (CursorKind.MACRO_INSTANTIATION, CursorKind.MACRO_DEFINITION)
LOOPS = (CursorKind.FOR_STMT, CursorKind.CXX_FOR_RANGE_STMT, CursorKind.WHILE_STMT)

COMMENT_OR_STRING = re.compile(r'//[^\n]*|/\*.*?\*/|"(?:\\.|[^"\\\n])*"|\'(?:\\.|[^\'\\\n])*\'', re.DOTALL)
PAIRS = {")": "(", "]": "[", "}": "{"}


def plain(text):
    """The code in one line, without its comments."""
    def keep(found):
        return found[0] if found[0][0] in "\"'" else " "
    return " ".join(COMMENT_OR_STRING.sub(keep, text).split())


def is_balanced(text):
    open_ones = []
    for char in COMMENT_OR_STRING.sub(" ", text):
        if char in "([{":
            open_ones.append(char)
        elif char in PAIRS and (not open_ones or open_ones.pop() != PAIRS[char]):
            return False
    return not open_ones


class Source:
    """A file as it is read, and where macros are used in it."""

    def __init__(self, root, name):
        # Offsets of libclang count bytes.
        self.name = name
        self.bytes = (root / name).read_bytes()
        self.lines = [0] + [i + 1 for i, byte in enumerate(self.bytes) if byte == 10]
        self.macros = []
        self.sites = []
        self.seen = set()

    def text(self, start, end):
        return self.bytes[start:end].decode(errors="replace")

    def line_of(self, offset):
        return bisect.bisect_right(self.lines, offset)

    def whole_line(self, number):
        return self.bytes.split(b"\n")[number - 1].decode().strip()

    def before(self, offset):
        """The last character of the code before."""
        return self.text(max(0, offset - 200), offset).rstrip()[-1:]

    def behind(self, offset):
        return self.text(offset, offset + 200).lstrip()[:1]

    def is_in_macro(self, start, end):
        return any(first <= start and end <= last for first, last in self.macros)


def span(cursor):
    return cursor.extent.start.offset, cursor.extent.end.offset


class Finder:
    """Walks what a file holds of one translation unit."""

    def __init__(self, source):
        self.source = source

    def add(self, kind, form, area, text, constant, position=None, change=None):
        start, end = area
        source = self.source
        original = source.text(start, end)
        if source.is_in_macro(start, end) or not is_balanced(original) or "#" in original:
            return
        key = (start, end, kind, text)
        if key in source.seen:
            return
        source.seen.add(key)
        line = source.line_of(position if position is not None else start)
        change = change or f"{plain(original)} -> {plain(text)}"
        source.sites.append(Site(source.name, start, end, line, kind, form, plain(text), constant,
                                 source.whole_line(line), change))

    # What holds functions.

    def declarations(self, cursor):
        for child in cursor.get_children():
            self.declaration(child)

    def declaration(self, cursor):
        if cursor.kind in FUNCTIONS:
            self.function(cursor)
        elif cursor.kind == CursorKind.FIELD_DECL:
            self.initialiser(cursor, False)
        elif cursor.kind in (CursorKind.NAMESPACE, CursorKind.CLASS_DECL, CursorKind.STRUCT_DECL,
                             CursorKind.CLASS_TEMPLATE, CursorKind.UNION_DECL, CursorKind.LINKAGE_SPEC,
                             CursorKind.CLASS_TEMPLATE_PARTIAL_SPECIALIZATION, CursorKind.UNEXPOSED_DECL):
            self.declarations(cursor)

    def function(self, cursor):
        children = list(cursor.get_children())
        bodies = [child for child in children if child.kind in (CursorKind.COMPOUND_STMT, CursorKind.CXX_TRY_STMT)]
        if not bodies:
            return
        head = self.source.text(cursor.extent.start.offset, bodies[-1].extent.start.offset)
        if "consteval" in head:
            return
        constant = re.search(r"\bconstexpr\b", head) is not None
        for before, child in zip(children, children[1:]):
            if before.kind == CursorKind.MEMBER_REF and child.kind.is_expression():
                self.code(child, constant)
        for body in bodies:
            self.code(body, constant)

    def initialiser(self, cursor, constant):
        """Of a variable or member; what stands before its name, or in brackets, belongs to its type."""
        head = self.source.text(cursor.extent.start.offset, cursor.location.offset)
        if re.search(r"\b(constexpr|constinit)\b", head):
            return
        for child in cursor.get_children():
            start = child.extent.start.offset
            if child.kind.is_expression() and start > cursor.location.offset \
                    and self.source.before(start) not in ("[", ":"):
                self.code(child, constant)

    # What runs.

    def code(self, cursor, constant):
        kind = cursor.kind
        children = list(cursor.get_children())
        if kind in (CursorKind.STATIC_ASSERT, CursorKind.CXX_UNARY_EXPR, CursorKind.TYPE_ALIAS_DECL,
                    CursorKind.USING_DECLARATION, CursorKind.TYPEDEF_DECL, CursorKind.ENUM_DECL):
            return
        if kind.is_expression() and re.match(r"(noexcept|requires|typeid)\b", self.source.text(*span(cursor))[:9]):
            return
        if kind == CursorKind.VAR_DECL:
            self.initialiser(cursor, constant)
            return
        if kind in (CursorKind.CLASS_DECL, CursorKind.STRUCT_DECL):
            self.declarations(cursor)
            return
        if kind == CursorKind.DECL_REF_EXPR or kind == CursorKind.MEMBER_REF_EXPR:
            # What stands behind the name is an argument of a template.
            self.constant(cursor, constant)
            children = [child for child in children if child.extent.start.offset < cursor.location.offset]
        elif kind == CursorKind.CASE_STMT:
            children = children[1:]
        elif kind == CursorKind.IF_STMT and re.match(r"if\s+constexpr", self.source.text(*span(cursor))[:40]):
            children = children[1:]
        else:
            self.here(cursor, children, constant)
        for child in children:
            self.code(child, constant)

    def here(self, cursor, children, constant):
        kind = cursor.kind
        if kind in LITERALS:
            self.literal(cursor, constant)
        elif kind in (CursorKind.BINARY_OPERATOR, CursorKind.COMPOUND_ASSIGNMENT_OPERATOR):
            self.binary(cursor, children, constant)
        elif kind == CursorKind.UNARY_OPERATOR:
            self.unary(cursor, children, constant)
        elif kind == CursorKind.CALL_EXPR:
            self.call(cursor, children, constant)
        elif kind == CursorKind.CONDITIONAL_OPERATOR:
            self.condition(children[0], constant)
        self.statements(cursor, children, constant)

    def statements(self, cursor, children, constant):
        kind = cursor.kind
        if kind == CursorKind.COMPOUND_STMT:
            bodies = children
        elif kind == CursorKind.IF_STMT:
            conditions = [child for child in children if self.source.behind(child.extent.end.offset) == ")"]
            bodies = [child for child in children if child not in conditions]
            if conditions:
                self.condition(conditions[0], constant)
        elif kind in LOOPS:
            bodies = children[-1:]
            self.loop(cursor, children[:-1], constant)
        elif kind == CursorKind.DO_STMT:
            bodies = children[:1]
            self.condition(children[-1], constant)
        elif kind in (CursorKind.CASE_STMT, CursorKind.DEFAULT_STMT, CursorKind.LABEL_STMT):
            bodies = children[-1:]
        else:
            return
        for body in bodies:
            self.deletion(body, constant)

    def loop(self, cursor, head, constant):
        if cursor.kind == CursorKind.WHILE_STMT and head:
            self.condition(head[-1], constant)
        if cursor.kind != CursorKind.FOR_STMT:
            return
        for child in head:
            start, end = span(child)
            if self.source.before(start) == ";" and self.source.behind(end) == ";":
                self.condition(child, constant)

    def condition(self, cursor, constant):
        area = span(cursor)
        # A variable that the condition declares has its type before it.
        if not cursor.kind.is_expression() or self.source.before(area[0]).isalnum() \
                or self.source.before(area[0]) in ("*", "&") or self.operator_of(cursor) in (*COMPARISONS, "!"):
            return
        text = self.source.text(*area)
        self.add("negation", NEGATION, area, text, constant, change=f"{plain(text)} -> !({plain(text)})")

    def deletion(self, cursor, constant):
        area = span(cursor)
        text = plain(self.source.text(*area))
        if not cursor.kind.is_expression() or self.source.behind(area[1]) != ";" \
                or text.startswith("static_cast<void>"):
            return
        self.add("deletion", DELETION, area, text, constant, change=f"{text} -> nothing")

    # Expressions.

    def between(self, children):
        """The code between the first and the last operand, and where."""
        first, last = children[0].extent.end.offset, children[-1].extent.start.offset
        return plain(self.source.text(first, last)), first

    def operator_of(self, cursor):
        while cursor.kind in (CursorKind.UNEXPOSED_EXPR, CursorKind.PAREN_EXPR):
            children = list(cursor.get_children())
            if len(children) != 1:
                return ""
            cursor = children[0]
        children = list(cursor.get_children())
        if cursor.kind == CursorKind.UNARY_OPERATOR and children:
            return plain(self.source.text(cursor.extent.start.offset, children[0].extent.start.offset))
        if len(children) >= 2 and cursor.kind in (CursorKind.BINARY_OPERATOR, CursorKind.CALL_EXPR):
            return self.between(sorted(children, key=span))[0]
        return ""

    def binary(self, cursor, children, constant):
        if len(children) < 2:
            return
        children = sorted(children, key=span)
        operator, position = self.between(children)
        area = span(cursor)
        left = self.source.text(area[0], children[0].extent.end.offset)
        right = self.source.text(children[-1].extent.start.offset, area[1])
        for kind, table in ("comparison", COMPARISONS), ("operator", OPERATORS):
            for other in table.get(operator, ()):
                self.add(kind, VALUE, area, f"({left}) {other} ({right})", constant, position,
                         f"{plain(left)} {operator} {plain(right)} -> {other}")
        if operator in ASSIGNMENTS:
            other = ASSIGNMENTS[operator]
            self.add("assignment", VALUE, area, f"({left}) {other} ({right})", constant, position,
                     f"{plain(left)} {operator} {plain(right)} -> {other}")
        if operator in ("&&", "||") and self.may_guard(left, right):
            self.add("swap", VALUE, area, f"({right}) {operator} ({left})", constant, position)

    @staticmethod
    def may_guard(left, right):
        """Whether the order may matter: the right side uses, by a call or access, what the left one names."""
        names = set(re.findall(r"\b[A-Za-z_]\w*\b", left))
        names -= {"nullptr", "std", "this", "true", "false", "TARVO_CHECKED"}
        used = set(re.findall(r"\b[A-Za-z_]\w*\b", right))
        return bool(names & used) and re.search(r"->|\*|\[|\w\(|/|%|\.\w+\(", right) is not None

    def unary(self, cursor, children, constant):
        if len(children) != 1:
            return
        start, end = span(cursor)
        operand = span(children[0])
        prefix = plain(self.source.text(start, operand[0]))
        suffix = plain(self.source.text(operand[1], end))
        text = self.source.text(*operand)
        if prefix in ("++", "--"):
            self.add("assignment", VALUE, (start, end), f"{ASSIGNMENTS[prefix]}({text})", constant, start)
        elif suffix in ("++", "--"):
            self.add("assignment", VALUE, (start, end), f"({text}){ASSIGNMENTS[suffix]}", constant, start)
        elif prefix in ("!", "~", "-"):
            self.add("operator", VALUE, (start, end), text if prefix != "!" else f"static_cast<bool>({text})", constant,
                     start, f"{prefix}{plain(text)} -> {plain(text)}")

    def call(self, cursor, children, constant):
        name = cursor.spelling or ""
        if re.fullmatch(r"operator\W+", name) and children:
            # The operator itself is one of the children.
            operands = [child for child in children if plain(self.source.text(*span(child))) != name[8:]]
            if len(operands) == 2 and span(operands[0])[0] >= span(cursor)[0]:
                self.binary(cursor, operands, constant)
            elif len(operands) == 1:
                self.unary(cursor, operands, constant)
        self.orders(cursor, constant)

    def orders(self, cursor, constant):
        """Each memory order that a call is given, and that promises something."""
        area = span(cursor)
        text = self.source.text(*area)
        if "memory_order" not in text:
            return
        for argument in cursor.get_arguments():
            first, last = span(argument)
            order = self.source.text(first, last)
            if re.fullmatch(r"(std::)?memory_order(_|::)(acquire|release|acq_rel|seq_cst|consume)", order):
                weak = self.source.text(area[0], first) + "std::memory_order_relaxed" + self.source.text(last, area[1])
                self.add("order", VALUE, area, weak, constant, first, f"{plain(text)}: {order} -> relaxed")

    def literal(self, cursor, constant):
        area = span(cursor)
        text = self.source.text(*area)
        if cursor.kind == CursorKind.CXX_BOOL_LITERAL_EXPR:
            other = {"true": "false", "false": "true"}.get(text)
            if other:
                self.add("constant", VALUE, area, other, constant, change=f"{text} -> {other}")
            return
        self.by_one(area, text, constant)

    def constant(self, cursor, constant):
        """A use of a named constant."""
        named = cursor.referenced
        if named is None or named.kind not in (CursorKind.ENUM_CONSTANT_DECL, CursorKind.VAR_DECL):
            return
        if "memory_order" in named.type.get_canonical().spelling:
            return
        if named.kind == CursorKind.VAR_DECL:
            pod = named.type.get_canonical()
            if not pod.is_const_qualified() or not re.fullmatch(
                    r"const (bool|char\w*|wchar_t|((un)?signed )?(char|short|int|long|long long)|unsigned)",
                    pod.spelling):
                return
            tokens = {token.spelling for token in named.get_tokens()}
            if "constexpr" not in tokens:
                return
        self.by_one(span(cursor), self.source.text(*span(cursor)), constant)

    def by_one(self, area, text, constant):
        if not text or re.search(r"[^\w:'\\. -]", text):
            return
        for step, sign in (1, "+"), (-1, "-"):
            self.add("constant", VALUE, area, f"tarvo_changed<{step}>({text})", constant,
                     change=f"{plain(text)} -> {plain(text)} {sign} 1")


def read_unit(root, command, wanted):
    """The sites in the wanted files of one translation unit; `command` is its path and the compiler's arguments."""
    path, arguments = command
    unit = Index.create().parse(path, args=arguments, options=TranslationUnit.PARSE_DETAILED_PROCESSING_RECORD)
    errors = [str(found) for found in unit.diagnostics if found.severity >= 3]
    sources = {}
    for cursor in unit.cursor.get_children():
        file = cursor.location.file
        name = relative(root, file.name) if file else None
        if name not in wanted:
            continue
        source = sources.setdefault(name, Source(root, name))
        if cursor.kind in MACROS:
            source.macros.append(span(cursor))
        else:
            Finder(source).declaration(cursor)
    return errors, [site for source in sources.values() for site in source.sites], sorted(sources)


def relative(root, path):
    try:
        return str(pathlib.Path(path).resolve().relative_to(root))
    except ValueError:
        return None


def find(root, commands, wanted, workers):
    """All sites of the wanted files, in their order, and the files that no unit reads. Macros come first in a unit."""
    found = {}
    unread = set(wanted)
    with concurrent.futures.ProcessPoolExecutor(workers) as pool:
        jobs = [pool.submit(read_unit, root, command, wanted) for command in commands]
        for command, job in zip(commands, jobs):
            errors, sites, read = job.result()
            if errors:
                raise SystemExit(f"mutate: libclang does not read {command[0]}:\n" + "\n".join(errors[:5]))
            unread.difference_update(read)
            for site in sites:
                # A function may be a constant in one unit's reading only if it is in all; the first one counts.
                found.setdefault((site.file, site.start, site.end, site.kind, site.text), site)
    return [found[key] for key in sorted(found)], sorted(unread)
