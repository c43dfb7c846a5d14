"""Finds the small changes that a test should notice: one operator, constant or statement each.

The sources are laid out by clang-format, which this relies on: a binary operator has a space on both
sides, what belongs to a type or a template has not.
"""

import re
from dataclasses import dataclass

# Each operator and what stands in its place.
OPERATORS = {
    "<": "<=",
    "<=": "<",
    ">": ">=",
    ">=": ">",
    "==": "!=",
    "!=": "==",
    "&&": "||",
    "||": "&&",
    "+": "-",
    "-": "+",
    "*": "+",
    "/": "*",
    "%": "*",
    "&": "|",
    "|": "&",
    "+=": "-=",
    "-=": "+=",
    "|=": "&=",
    "&=": "|=",
}
_OPERATOR = re.compile(r"(?<= )(?:[<>=!+|&-]=|&&|\|\||[<>+*/%&|-])(?= )")
# Not an output stream: a number or constant stands on the right, nothing that prints on the left.
_SHIFT = re.compile(r"(?<=[\w)\]] )(<<|>>)(?= (?:\d|k[A-Z]))")
_STREAM = re.compile(r"\b(?:os|out|stream|text)\b|std::c(?:out|err)")
_STEP = re.compile(r"\+\+|--")
_NUMBER = re.compile(r"(?<![\w.'])\d[\d']*(?=[uUlL]*(?![\w.']))")
_TRUTH = re.compile(r"\b(?:true|false)\b")
_NOT = re.compile(r"(?<![\w)\]])!(?=[\w(*:])")
_CONDITION = re.compile(r"\b(?:if|while) \(")
# A statement that is not a declaration: what it starts with is called, changed or assigned to.
_STATEMENT = re.compile(
    r"(?<=[;{})])(\s*\n\s*)((?:(?:\+\+|--|\*)\s*)?[A-Za-z_][\w:.\[\]]*(?:->[\w:.\[\]]*)*"
    r"(?:\(| (?:[-+*/%&|^]|<<|>>)?= |\+\+;|--;|;))"
)
_KEYWORDS = re.compile(
    r"\*?(?:if|for|while|switch|return|case|default|else|do|try|catch|throw|break|continue|public"
    r"|private|protected|namespace|struct|class|enum|using|template|goto|delete|asm|static_assert)\b"
)
# What is checked in some builds only, and what the compiler checks: a change there tells nothing.
_CHECKS = re.compile(r"\b(?:LIBTCMALLOC_ASSERT|static_assert|static_cast<void>)\s*\(")
# The text of these is quoted by the error: a change inside is seen by itself.
_QUOTED = re.compile(r"\b(?:QRT_ASSERT|QRT_ASSERT_NAMED)\s*\(")


@dataclass(frozen=True)
class Mutant:
    """One change to one file."""

    path: str
    start: int  # the characters that are replaced ...
    end: int
    text: str  # ... and by what
    line: int  # of the first of them
    kind: str  # operator, constant, condition or statement
    source: str  # the line as it was, stripped
    label: str  # the change in a few words

    def apply(self, content: str) -> str:
        return content[: self.start] + self.text + content[self.end :]

    def __str__(self) -> str:
        return f"{self.path}:{self.line}: {self.label}  in  {self.source}"


def _blank(text: str) -> str:
    return re.sub(r"[^\n]", " ", text)


_TOKENS = re.compile(
    r"//[^\n]*|/\*.*?\*/"  # comments
    r'|R"([^(\s]*)\(.*?\)\1"|"(?:\\.|[^"\\\n])*"'  # text
    r"|(?<![0-9a-fA-F])'(?:\\.[^']*|[^'\\\n])'"  # characters, not the separators of digits
    r"|^[ \t]*\#(?:\\\n|[^\n])*",  # directives
    re.DOTALL | re.MULTILINE,
)


def closing(code: str, opening: int) -> int:
    """@return the place of the bracket that closes the one at `opening`; the end when none does"""
    depth = 0
    for place in range(opening, len(code)):
        if code[place] in "([{":
            depth += 1
        elif code[place] in ")]}":
            depth -= 1
            if depth == 0:
                return place
    return len(code)


def code_of(content: str) -> str:
    """@return the content with everything but code blanked, every character at its old place"""
    code = _TOKENS.sub(lambda match: _blank(match.group()), content)
    for match in list(_CHECKS.finditer(code)):
        end = closing(code, match.end() - 1) + 1
        code = code[: match.start()] + _blank(code[match.start() : end]) + code[end:]
    return code


def _inside(code: str, pattern: re.Pattern) -> list[tuple[int, int]]:
    """@return what stands in the brackets that the pattern's matches end with"""
    return [(match.end(), closing(code, match.end() - 1)) for match in pattern.finditer(code)]


def find(path: str, content: str) -> list[Mutant]:
    """@return every mutant of a file, in the order of the file"""
    code = code_of(content)
    quoted = _inside(code, _QUOTED)
    loops = _inside(code, re.compile(r"\bfor \("))
    found: list[Mutant] = []

    def add(kind: str, start: int, end: int, text: str, label: str) -> None:
        line_start = content.rfind("\n", 0, start) + 1
        line_end = content.find("\n", start)
        source = content[line_start : line_end if line_end >= 0 else len(content)].strip()
        line = content.count("\n", 0, start) + 1
        found.append(Mutant(path, start, end, text, line, kind, source, label))

    def within(spans: list[tuple[int, int]], place: int) -> bool:
        return any(start <= place < end for start, end in spans)

    def replace(kind: str, match: re.Match, text: str) -> None:
        if not within(quoted, match.start()):
            label = f"'{match.group()}' becomes '{text}'"
            add(kind, match.start(), match.end(), text, label)

    for match in _OPERATOR.finditer(code):
        replace("operator", match, OPERATORS[match.group()])
    for match in _SHIFT.finditer(code):
        if not _STREAM.search(code[code.rfind("\n", 0, match.start()) + 1 : match.start()]):
            replace("operator", match, ">>" if match.group() == "<<" else "<<")
    for match in _STEP.finditer(code):
        if not within(loops, match.start()):  # a loop that runs the other way only costs time
            replace("operator", match, "--" if match.group() == "++" else "++")
    for match in _NOT.finditer(code):
        replace("condition", match, "")
    for match in _NUMBER.finditer(code):
        replace("constant", match, str(int(match.group().replace("'", "")) + 1))
    for match in _TRUTH.finditer(code):
        replace("constant", match, "false" if match.group() == "true" else "true")
    for start, end in _inside(code, _CONDITION):
        inside = code[start:end]
        if not (_OPERATOR.search(inside) or _NOT.search(inside) or ";" in inside or "=" in inside):
            text = f"!({content[start:end]})"
            add("condition", start, end, text, f"'{' '.join(content[start:end].split())}' negated")
    for match in _STATEMENT.finditer(code):
        start = match.start(2)
        if _KEYWORDS.match(match.group(2)):
            continue
        end = start
        while end < len(code) and code[end] not in ";{}":
            end = closing(code, end) + 1 if code[end] in "([" else end + 1
        # What a block follows is a definition.
        if end < len(code) and code[end] == ";":
            text = "\n" * content.count("\n", start, end)
            add("statement", start, end, text, "left out")
    return sorted(found, key=lambda mutant: (mutant.start, mutant.kind))
