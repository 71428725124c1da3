"""The small changes that could be made to a C++ source, one at a time.

Finds them in the text by tokens, brackets and the blanks that clang-format puts around operators: the
sources are formatted, so a "<" between blanks compares and any other belongs to a template. A change that
makes no sense to the compiler is found out when it is compiled.
"""

import bisect
import dataclasses
import re

TOKEN = re.compile(
    r"""
    (?P<skipped>\s+|//[^\n]*|/\*.*?\*/|^[ \t]*\#(?:[^\n\\]|\\.)*)
    |(?P<string>"(?:[^"\\\n]|\\.)*")
    |(?P<char>'(?:[^'\\\n]|\\.)+')
    |(?P<number>\d(?:[\w.]|'\w)*)
    |(?P<name>[A-Za-z_]\w*)
    |(?P<sign>\.\.\.|<=>|<<=|>>=|->\*|::|->|\+\+|--|<<|<=|>=|==|!=|&&|\|\||[-+*/%&|^]=|.)
    """,
    re.VERBOSE | re.DOTALL | re.MULTILINE,
)
NUMBER = re.compile(r"(0[xX][0-9a-fA-F']+|[0-9']+)([uUlLzZ]*)")
OPENING = {"(": ")", "[": "]", "{": "}"}
# What an operator between blanks becomes, and under which name.
OPERATORS = {
    "==": ("comparison", "!="),
    "!=": ("comparison", "=="),
    "<": ("boundary", "<="),
    "<=": ("boundary", "<"),
    ">": ("boundary", ">="),
    ">=": ("boundary", ">"),
    "&&": ("logic", "||"),
    "||": ("logic", "&&"),
    "+": ("arithmetic", "-"),
    "-": ("arithmetic", "+"),
    "*": ("arithmetic", "/"),
    "/": ("arithmetic", "*"),
    "+=": ("arithmetic", "-="),
    "-=": ("arithmetic", "+="),
}
STEPS = {"++": "--", "--": "++"}
# What a call or an assignment may begin with instead of a name.
BEFORE_NAME = {"++", "--", "::"}
JUMPS = {"return", "break", "continue"}
# Calls that give the same whatever the order of their arguments, the last two when asked for equality.
SYMMETRIC = {"min", "max", "strcmp", "strncmp"}
NO_CALL = {"if", "for", "while", "switch", "catch", "return", "sizeof", "static_assert", "decltype"}
# A statement that begins with one of these is no call and no assignment.
NO_STATEMENT = JUMPS | NO_CALL | {
    "auto", "case", "const", "constexpr", "default", "do", "else", "enum", "static", "static_cast",
    "struct", "template", "throw", "try", "using",
}  # fmt: skip
BLOCK_BEFORE = {")", "]", "else", "do", "try", ";", "{", "}"}
FUNCTION_BEFORE = {")", "const", "override", "noexcept"}


@dataclasses.dataclass(frozen=True)
class Mutation:
    """Text from `start` to `end`, at a line and a column counted from 1, becomes `replacement`."""

    file: str
    line: int
    column: int
    kind: str
    start: int
    end: int
    replacement: str

    @property
    def id(self):
        return f"{self.file}:{self.line}:{self.column}:{self.kind}"

    def applied_to(self, text):
        return text[: self.start] + self.replacement + text[self.end :]


@dataclasses.dataclass(frozen=True)
class Token:
    kind: str
    text: str
    start: int
    end: int


class Source:
    """A source's tokens, which bracket closes which, and which tokens run when the program does."""

    def __init__(self, text):
        self.text = text
        self.tokens = [
            Token(found.lastgroup, found[0], found.start(), found.end())
            for found in TOKEN.finditer(text)
            if found.lastgroup != "skipped"
        ]
        self.partner = {}
        self.in_function = []
        self.in_block = []
        self.opens_block = set()
        self.ends_function = set()
        self._match_brackets()

    def __getitem__(self, index):
        return self.tokens[index].text if 0 <= index < len(self.tokens) else ""

    def _match_brackets(self):
        open_brackets, scopes = [], []
        for i, token in enumerate(self.tokens):
            self.in_function.append("function" in scopes)
            self.in_block.append(bool(scopes) and scopes[-1] in ("function", "block"))
            if token.kind != "sign":
                continue
            if token.text in OPENING:
                around = scopes[-1] if scopes else None
                scopes.append(self._scope(i, around) if token.text == "{" else "brackets")
                open_brackets.append(i)
                if scopes[-1] in ("function", "block"):
                    self.opens_block.add(i)
            elif token.text in OPENING.values():
                opening, scope = open_brackets.pop(), scopes.pop()
                self.partner[opening], self.partner[i] = i, opening
                if scope == "function":
                    self.ends_function.add(i)

    def _scope(self, i, around):
        """What the brace at `i` opens: a function's body, a block in one, or anything else."""
        before = self[i - 1]
        if before in (")", "]", "mutable") and self._is_lambda(i):
            return "function"
        if around in ("function", "block"):
            return "block" if before in BLOCK_BEFORE else "initializer"
        if around in ("declarations", None):
            return "function" if before in FUNCTION_BEFORE else "declarations"
        return "initializer"

    def _is_lambda(self, i):
        before = i - 1 if self[i - 1] != "mutable" else i - 2
        if self[before] == ")":
            before = self.partner[before] - 1
        return self[before] == "]"

    def top_level(self, first, last):
        """The tokens from `first` up to `last` that stand in no bracket of their own."""
        i = first
        while i < last:
            yield i
            i = self.partner[i] if self[i] in OPENING else i
            i += 1

    def spaced(self, i):
        """Whether the token stands between blanks, as a binary operator does."""
        token = self.tokens[i]
        return self.text[token.start - 1].isspace() and self.text[token.end].isspace()

    def span(self, first, last):
        """The text of the tokens from `first` up to `last`."""
        return self.text[self.tokens[first].start : self.tokens[last - 1].end]


def literals(source):
    for i, token in enumerate(source.tokens):
        if token.kind == "number" and (found := NUMBER.fullmatch(token.text)):
            digits = found[1].replace("'", "")
            octal = len(digits) > 1 and digits.isdigit() and digits[0] == "0"
            value = int(digits, 8 if octal else 0) + 1
            yield "constant", i, i + 1, (f"0{value:o}" if octal else str(value)) + found[2]
        elif token.kind == "string" and source[i - 1] != "throw":
            ending = '\\n"' if token.text.endswith('\\n"') else '"'
            yield "message", i, i + 1, token.text.removesuffix(ending) + "~" + ending
        elif token.kind == "char":
            yield "constant", i, i + 1, "'~'" if token.text != "'~'" else "'!'"
        elif token.text in ("true", "false"):
            yield "constant", i, i + 1, "false" if token.text == "true" else "true"


def operators(source):
    for i, token in enumerate(source.tokens):
        if token.kind == "sign" and token.text in OPERATORS and source.spaced(i):
            kind, replacement = OPERATORS[token.text]
            yield kind, i, i + 1, replacement
        elif token.text in STEPS:
            yield "arithmetic", i, i + 1, STEPS[token.text]


def is_one_comparison(source, first, last):
    """Whether turning the one operator of the condition around is to negate it."""
    signs = [source[i] for i in source.top_level(first, last)]
    return ("==" in signs or "!=" in signs) and not {"&&", "||"} & set(signs)


def conditions(source):
    """Conditions of `if` and `while` negated, and the two outcomes of a `?` exchanged."""
    for i, token in enumerate(source.tokens):
        if token.text in ("if", "while") and source[i + 1] == "(":
            first, last = i + 2, source.partner[i + 1]
            semicolons = [j for j in source.top_level(first, last) if source[j] == ";"]
            first = semicolons[-1] + 1 if semicolons else first
            if source[first] in ("const", "auto", "true"):
                continue
            if not is_one_comparison(source, first, last):
                yield "condition", first, last, f"!({source.span(first, last)})"
        elif token.text == "?":
            yield from exchanged_outcomes(source, i)


def exchanged_outcomes(source, question):
    first = question
    while first > 0 and source[first - 1] not in ("(", "{", "[", "return", "=", ",", ";"):
        first = source.partner[first - 1] if source[first - 1] in ")}]" else first - 1
    if is_one_comparison(source, first, question):
        return
    colon = end = question
    for end in source.top_level(question, len(source.tokens)):
        if source[end] == ":" and colon == question:
            colon = end
        elif source[end] in (";", ",", ")", "}", "]"):
            break
    yes, no = source.span(question + 1, colon), source.span(colon + 1, end)
    yield "condition", question + 1, end, f"{no} : {yes}"


def begins_statement(source, i):
    before = source[i - 1]
    if before == ")":
        return source[source.partner[i - 1] - 1] in ("if", "for", "while", "switch", "constexpr")
    if before == "{":
        return i - 1 in source.opens_block
    if before == "}":
        return source.partner[i - 1] in source.opens_block
    return before in (";", "else", "do")


def is_declaration(source, first, last):
    """Whether two names stand side by side, as a type and what is declared with it do."""
    head = []
    for i in range(first, last):
        if source[i] in ("(", "=", "[", "{", ";"):
            break
        head.append(source.tokens[i])
    return any(
        right.kind == "name" and (left.kind == "name" or left.text in (">", "&", "*"))
        for left, right in zip(head, head[1:])
    )


def statements(source):
    """Calls, assignments and early ends of a function or a loop, removed."""
    for i, token in enumerate(source.tokens):
        if not source.in_block[i] or not begins_statement(source, i):
            continue
        semicolons = (j for j in source.top_level(i, len(source.tokens)) if source[j] == ";")
        last = next(semicolons, None)
        if last is None:
            continue
        if token.text in JUMPS:
            if last + 1 not in source.ends_function:
                yield "jump", i, last + 1, ";"
        elif token.text not in NO_STATEMENT and (token.kind == "name" or token.text in BEFORE_NAME):
            if not is_declaration(source, i, last):
                yield "statement", i, last + 1, ";"


def arguments(source):
    """Two arguments of a call, side by side, exchanged."""
    for i, token in enumerate(source.tokens):
        is_call = token.text == "(" and source.in_function[i]
        if not is_call or source.tokens[i - 1].kind != "name" or source[i - 1] in NO_CALL | SYMMETRIC:
            continue
        closing = source.partner[i]
        if i + 1 == closing:
            continue
        commas = [j for j in source.top_level(i + 1, closing) if source[j] == ","]
        bounds = [i, *commas, closing]
        for before, between, behind in zip(bounds, bounds[1:], bounds[2:]):
            left, right = source.span(before + 1, between), source.span(between + 1, behind)
            # A literal, a list in braces and a lambda fit in no place but their own.
            if left != right and left[0] not in '"{[' and right[0] not in '"{[':
                yield "arguments", before + 1, behind, f"{right}, {left}"


def mutations_in(file, text):
    """All mutations of a source, in the order of their places; no place has two of one kind."""
    source = Source(text)
    line_starts = [0] + [found.end() for found in re.finditer("\n", text)]
    asserted = set()
    for i, token in enumerate(source.tokens):
        if token.text == "static_assert":
            asserted.update(range(i, source.partner[i + 1]))
    result = {}
    for find in (literals, operators, conditions, statements, arguments):
        for kind, first, last, replacement in find(source):
            if first in asserted:
                continue
            start, end = source.tokens[first].start, source.tokens[last - 1].end
            line = bisect.bisect_right(line_starts, start)
            column = start - line_starts[line - 1] + 1
            found = Mutation(file, line, column, kind, start, end, replacement)
            result.setdefault((start, kind), found)
    return [result[key] for key in sorted(result)]
