"""Generates mutants: single changes to the code below src/, found in libclang's syntax tree."""

import concurrent.futures
import dataclasses
import hashlib
import os
import pathlib
import re

from clang.cindex import CompilationDatabase, CursorKind, Index, TypeKind

COMPARISONS = {"<": "<=", "<=": "<", ">": ">=", ">=": ">", "==": "!=", "!=": "=="}
CONNECTIVES = {"&&": "||", "||": "&&"}
ARITHMETIC = {"+": "-", "-": "+", "*": "/", "/": "*"}
ENCODINGS = {"fromLatin1": "fromUtf8", "fromUtf8": "fromLatin1", "fromLocal8Bit": "fromLatin1",
             "toLatin1": "toUtf8", "toUtf8": "toLatin1", "toLocal8Bit": "toLatin1"}
OTHER_WORDS = {"true": "false", "false": "true", "minutes": "seconds", "seconds": "milliseconds",
               "milliseconds": "seconds", "microseconds": "milliseconds"}

BLOCKS = {CursorKind.COMPOUND_STMT, CursorKind.CASE_STMT, CursorKind.DEFAULT_STMT}
JUMPS = {CursorKind.RETURN_STMT, CursorKind.BREAK_STMT, CursorKind.CONTINUE_STMT}
CONDITIONALS = {CursorKind.IF_STMT, CursorKind.CONDITIONAL_OPERATOR, CursorKind.WHILE_STMT,
                CursorKind.DO_STMT, CursorKind.FOR_STMT}
VARIABLES = {CursorKind.VAR_DECL, CursorKind.PARM_DECL, CursorKind.FIELD_DECL}
FUNCTIONS = {CursorKind.FUNCTION_DECL, CursorKind.CXX_METHOD, CursorKind.CONSTRUCTOR,
             CursorKind.DESTRUCTOR, CursorKind.FUNCTION_TEMPLATE}


@dataclasses.dataclass(frozen=True, order=True)
class Mutant:
    file: str  # below the repository
    start: int
    end: int
    text: str  # what replaces the bytes from start to end
    kind: str
    function: str
    before: str  # the lines that change, on one line
    after: str
    number: int = 1  # among those of a file that are alike in function, before and after

    @property
    def key(self):
        """What identifies the mutant as long as its lines stay the same."""
        return self.file, self.function, self.before, self.after, self.number

    @property
    def name(self):
        return hashlib.sha1(repr(self.key).encode()).hexdigest()[:8]

    def apply(self, content):
        return content[:self.start] + self.text.encode("latin-1") + content[self.end:]


class Source:
    """A file below src/ and the changes to its nodes: each is a kind, a start, an end and the new
    text between the two."""

    def __init__(self, root, path):
        self.file = str(path.relative_to(root))
        self.text = path.read_bytes().decode("latin-1")  # a character a byte, as libclang counts

    def of(self, node):
        return self.text[node.extent.start.offset:node.extent.end.offset]

    def mutant(self, function, kind, start, end, text):
        first, last = self.text.rfind("\n", 0, start) + 1, self.text.find("\n", end)
        before = self.text[first:last]
        after = self.text[first:start] + text + self.text[end:last]
        return Mutant(self.file, start, end, text, kind, function,
                      *(" ".join(lines.encode("latin-1").decode().split())
                        for lines in (before, after)))

    def changes(self, node, parent):
        start, end, text = node.extent.start.offset, node.extent.end.offset, self.of(node)
        operator, operator_start, operands = self.operator(node)
        for kind, table in (("comparison", COMPARISONS), ("condition", CONNECTIVES),
                            ("arithmetic", ARITHMETIC)):
            if operator in table and (kind != "arithmetic" or is_arithmetic(node.type)):
                yield kind, operator_start, operator_start + len(operator), table[operator]
        if operator == "|":
            yield from (("constant", start, end, self.of(operand)) for operand in operands)
        if node.kind == CursorKind.UNARY_OPERATOR and text.startswith("!"):
            yield "condition", start, start + 1, ""
        if node.kind in CONDITIONALS:
            yield from self.negated_condition(node)
        yield from (("constant", start, end, new) for new in other_constants(node, text))
        word = node.location.offset
        if node.spelling in ENCODINGS and self.text.startswith(node.spelling, word):
            yield "encoding", word, word + len(node.spelling), ENCODINGS[node.spelling]
        if node.kind == CursorKind.CALL_EXPR and not operator:
            yield from self.swapped_arguments(node)
        if node.kind in BLOCKS:
            yield from self.statement_changes(node, parent)

    def operator(self, node):
        """The text of a binary operator, its place and its operands."""
        if node.kind == CursorKind.CALL_EXPR and node.spelling.startswith("operator"):
            operands = list(node.get_arguments())
        else:
            operands = list(node.get_children()) * (node.kind == CursorKind.BINARY_OPERATOR)
        if len(operands) != 2:
            return "", 0, []
        start, end = operands[0].extent.end.offset, operands[1].extent.start.offset
        operator = self.text[start:end].strip()
        return operator, self.text.find(operator, start), operands

    def negated_condition(self, node):
        condition = next((child for child in node.get_children()
                          if child.kind.is_expression() and child.type.spelling == "bool"), None)
        text = condition and self.of(condition)
        if not text or text == self.of(node):  # the latter in a macro
            return
        # Where the condition is one of these, another change does the same.
        if text not in OTHER_WORDS and not text.startswith("!") and (
                self.operator(condition)[0] not in ("==", "!=")):
            start = condition.extent.start.offset
            yield "condition", start, start + len(text), f"!({text})"

    def swapped_arguments(self, node):
        arguments = list(node.get_arguments())
        for one, other in zip(arguments, arguments[1:]):
            start, middle = one.extent.start.offset, one.extent.end.offset
            next_start, end = other.extent.start.offset, other.extent.end.offset
            texts = self.of(one), self.of(other)
            if (start < middle < next_start < end and texts[0] != texts[1]
                    and are_alike(one.type.get_canonical(), other.type.get_canonical())):
                yield ("swapped arguments", start, end,
                       texts[1] + self.text[middle:next_start] + texts[0])

    def statement_changes(self, block, parent):
        statements = [child for child in block.get_children() if self.of(child)]
        if block.kind != CursorKind.COMPOUND_STMT:
            statements = statements[-1:]  # behind the value of the case
        ends = [re.compile(r"\s*;|").match(self.text, child.extent.end.offset).end()
                for child in statements]
        for child, end in zip(statements, ends):
            if child.kind in BLOCKS or child.kind in JUMPS and child == statements[-1] and (
                    parent.kind in FUNCTIONS or block.kind == CursorKind.DEFAULT_STMT):
                continue
            if self.text[:child.extent.start.offset].rstrip()[-1] in "(,":
                continue  # an argument of a macro
            if child.kind != CursorKind.DECL_STMT or self.is_guard(child, block):
                yield "dropped statement", child.extent.start.offset, end, ";"
        for one, other, middle, end in zip(statements, statements[1:], ends, ends[1:]):
            start, next_start = one.extent.start.offset, other.extent.start.offset
            if middle <= next_start and order_matters(one, other):
                yield ("swapped statements", start, end, self.text[next_start:end]
                       + self.text[middle:next_start] + self.text[start:middle])

    def is_guard(self, declaration, block):
        """Whether nothing uses the variable but its constructor and destructor."""
        variable = next(declaration.get_children()).spelling
        return variable and len(re.findall(rf"\b{variable}\b", self.of(block))) == 1


def other_constants(node, text):
    number = re.fullmatch(r"(0[xX][\da-fA-F]+|\d[\d']*)([uUlL]*)", text)
    if node.kind == CursorKind.INTEGER_LITERAL and number:
        value = int(number[1].replace("'", ""), 16 if number[1][1:2] in ("x", "X") else 10)
        news = {value + 1, value * 10, value // 10} if value >= 10 else {value + 1, value - 1}
        yield from (f"{new}{number[2]}" for new in sorted(news) if new >= 0)
    elif node.kind == CursorKind.FLOATING_LITERAL and re.fullmatch(r"[\d.]+", text):
        yield f"{text}1"
    elif node.kind == CursorKind.CHARACTER_LITERAL and text.endswith("'"):
        yield re.sub(r"'.*'", "'y'" if text == "'x'" else "'x'", text)
    elif node.kind == CursorKind.STRING_LITERAL and re.match(r'(u8|u|U|L)?"', text):
        yield text.replace('"', '"x', 1)
    elif node.kind in (CursorKind.CXX_BOOL_LITERAL_EXPR, CursorKind.TYPE_REF):
        yield from (OTHER_WORDS[word] for word in [text] if word in OTHER_WORDS)


def is_arithmetic(type_):
    kind = type_.get_canonical().kind
    return kind == TypeKind.ENUM or TypeKind.BOOL.value <= kind.value <= TypeKind.LONGDOUBLE.value


def are_alike(one, other):
    """Whether a value of one type may stand for one of the other by mistake."""
    names = [type_.spelling.replace("const ", "") for type_ in (one, other)]
    return (one.kind == other.kind == TypeKind.POINTER or names[0] == names[1]
            or is_arithmetic(one) and is_arithmetic(other))


def order_matters(one, other):
    """Whether the order of two statements may matter, and may be the other one."""
    if {one.kind, other.kind} & (JUMPS | BLOCKS):
        return False
    uses, acts = [], []
    for statement in one, other:
        references = [(node.kind, node.referenced) for node in statement.walk_preorder()
                      if node.referenced]
        uses.append({used.spelling for _, used in references if used.kind in VARIABLES})
        acts.append(any(kind == CursorKind.CALL_EXPR and used.kind != CursorKind.CONSTRUCTOR
                        and not used.is_const_method() for kind, used in references))
    declared = {child.spelling for child in one.get_children() if child.kind in VARIABLES}
    declarations = one.kind == other.kind == CursorKind.DECL_STMT
    return not declared & uses[1] and (
        all(acts) or bool(uses[0] & uses[1]) and (any(acts) or not declarations))


def mutants_of_unit(root, command):
    """The mutants of one compiled file and of the headers that it includes."""
    unit = Index.create().parse(command[-1], args=command[1:command.index("-o")])
    if errors := [str(problem) for problem in unit.diagnostics if problem.severity >= 3]:
        raise RuntimeError(f"libclang cannot read {command[-1]}: {errors}")
    sources, found = {}, set()

    def visit(node, function):
        if node.kind in FUNCTIONS:
            function = f"{node.semantic_parent.spelling}::{node.spelling}"
        for child in node.get_children():
            name = child.location.file.name if child.location.file else ""
            if not name.startswith(f"{root}/src/") or child.kind == CursorKind.STATIC_ASSERT:
                continue
            if name not in sources:
                sources[name] = Source(root, pathlib.Path(name))
            found.update(sources[name].mutant(function, *change)
                         for change in sources[name].changes(child, node))
            visit(child, function)

    visit(unit.cursor, "")
    return found


def generate(root, build):
    """All mutants of the code below root/src that the build folder compiles, in a fixed order."""
    commands = [list(command.arguments) for command in
                CompilationDatabase.fromDirectory(str(build)).getAllCompileCommands()
                if root / "src" in pathlib.Path(command.filename).parents]
    with concurrent.futures.ProcessPoolExecutor(os.cpu_count()) as pool:
        found = set().union(*pool.map(mutants_of_unit, [root] * len(commands), commands))
    numbered, seen = [], {}
    for mutant in sorted(found):
        seen[mutant.key] = seen.get(mutant.key, 0) + 1
        numbered.append(dataclasses.replace(mutant, number=seen[mutant.key]))
    return numbered
