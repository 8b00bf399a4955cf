"""The small changes that make mutants of C++ sources, and where in a text each can be made.

The sources are taken as clang-format leaves them (a blank on either side of a binary operator, none
within template arguments), which is why patterns do in place of a parser. A change that comes out
as nonsense does not compile, and such mutants are counted apart.
"""

import bisect
import dataclasses
import re
from collections.abc import Iterator

_LITERAL_OR_COMMENT = re.compile(
    r'//[^\n]*|/\*.*?\*/|^[ \t]*#(?:[^\n]*\\\n)*[^\n]*|static_assert\(.*?\);|'
    r'R"(?P<mark>[^(\s]*)\(.*?\)(?P=mark)"|"(?:[^"\\\n]|\\.)*"|'
    r"(?<!\w)'(?:[^'\\\n]|\\.[^']*)'", re.DOTALL | re.MULTILINE)
_STRING = re.compile(r'(?<!extern )"(?:[^"\\\n]|\\.)*"')


@dataclasses.dataclass(frozen=True, order=True)
class Mutation:
    """One change: what stands from `start` on in the file becomes `new`."""

    file: str
    start: int
    line: int
    column: int
    operator: str
    old: str
    new: str

    def apply(self, text: str) -> str:
        """The mutant of the file's text."""
        return text[:self.start] + self.new + text[self.start + len(self.old):]

    def __str__(self) -> str:
        old, new = (re.sub(r"\s+", " ", part) for part in (self.old, self.new))
        return (f"{self.file}:{self.line}:{self.column}: {self.operator}: "
                f"{old or 'nothing'} -> {new or 'nothing'}")


def _blanked(text: str, keep_strings: bool = False) -> str:
    """The text with blanks for what does not run, and (unless kept) for what literals say."""
    def blank(found: re.Match[str]) -> str:
        literal = found[0]
        if literal[0] in "\"'":
            return literal if keep_strings else literal[0] + "_" * (len(literal) - 2) + literal[-1]
        return re.sub(r"[^\n]", "_" if literal[0] == "R" else " ", literal)
    return _LITERAL_OR_COMMENT.sub(blank, text)


# Each row: what is looked for in the code, and what comes in place of the group `it`.
_BINARY = r"(?<=\S )(?P<it>{})(?=\s)"
_SWAPPED = {
    "swapped comparison": {"==": ["!="], "!=": ["=="], "<": ["<=", ">"], "<=": ["<", ">="],
                           ">": [">=", "<"], ">=": [">", "<="]},
    "swapped logic": {"&&": ["||"], "||": ["&&"]},
    "swapped arithmetic": {"+": ["-"], "-": ["+"], "*": ["/"], "/": ["*"], "%": ["*"], "&": ["|"],
                           "|": ["&"], "<<": [">>"], ">>": ["<<"], "+=": ["-="], "-=": ["+="],
                           "|=": ["&="], "&=": ["|="]},
}
_PATTERNS = (
    *((operator, re.compile(_BINARY.format("|".join(map(re.escape, swaps)))), swaps.__getitem__)
      for operator, swaps in _SWAPPED.items()),
    ("swapped step", re.compile(r"(?P<it>\+\+|--)"), {"++": ["--"], "--": ["++"]}.__getitem__),
    ("dropped not", re.compile(r"(?<![\w)])(?P<it>!)(?=[\w(:])"), lambda _: [""]),
    ("swapped truth", re.compile(r"\b(?P<it>true|false)\b"),
     {"true": ["false"], "false": ["true"]}.__getitem__),
    ("constant off by one",
     re.compile(r"(?<![\w.'])(?P<it>0[xX][0-9a-fA-F]+|\d+)(?=[uUlL]*(?![\w.']))"),
     lambda number: _neighbours(number)),
)


def _neighbours(number: str) -> list[str]:
    value = int(number, 16 if number[:2] in ("0x", "0X") else 10)
    form = hex if number[:2] in ("0x", "0X") else str
    return [form(value + step) for step in (1, -1) if value + step >= 0]


def _swapped_strings(text: str) -> Iterator[tuple[str, int, str, str]]:
    """Each text becomes the file's next other text, each letter the next one."""
    shown = _blanked(text, keep_strings=True)
    literals = list(_STRING.finditer(shown))
    for index, literal in enumerate(literals):
        others = [other[0] for other in literals[index:] + literals[:index]
                  if other[0] != literal[0]]
        yield "swapped text", literal.start(), literal[0], (others or ['"mutant"'])[0]
    for letter in re.finditer(r"(?<!\w)'([^'\\])'", shown):
        following = chr(ord(letter[1]) + 1)
        yield "constant off by one", letter.start(), letter[0], f"'{re.escape(following)}'" \
            if following in "'\\" else f"'{following}'"


def _closing(code: str, opening: int) -> int:
    """Where the parenthesis that opens there closes."""
    depth = 0
    for place in range(opening, len(code)):
        depth += {"(": 1, ")": -1}.get(code[place], 0)
        if depth == 0:
            return place
    raise ValueError(f"a parenthesis is left open: {code[opening:opening + 40]}")


def _conditions(code: str) -> Iterator[tuple[str, int, str, str]]:
    for head in re.finditer(r"\b(if|while|for)(?: constexpr)? \(", code):
        start, end = head.end(), _closing(code, head.end() - 1)
        parts = code[start:end].split(";")
        if head[1] == "for" and len(parts) != 3:
            continue  # over a range
        condition = parts[0] if len(parts) == 1 else parts[1]
        start += 0 if len(parts) == 1 else len(parts[0]) + 1
        start += len(condition) - len(condition.lstrip())
        condition = condition.strip()
        # Other operators negate these.
        is_single = not re.search(r"&&|\|\|", condition) and re.search(r"[=!]=|^!", condition)
        declares = re.search(r"[^=!<>]=(?!=)", re.sub(r"\(.*\)", "", condition))
        if condition and not is_single and not declares:
            yield "negated condition", start, condition, f"!({condition})"


_SCOPE = re.compile(r"\b(namespace|struct|class|enum|union)\b[^)]*$")
_CONTROL = re.compile(r"\s*(?:(?:if|while|for|switch)(?: constexpr)?\s*(?=\()|else\b|do\b|"
                      r"case [^:]+(?:::[^:]+)*:(?!:)|default:)")
_BODY = re.compile(r"(?:[)\]]|\b(?:const|noexcept|override|final|else|do|try|mutable)|"
                   r"-> [\w:<>*& ]+|^\s*)\s*$")
_DECLARATION = re.compile(
    r"(?:using|typedef|const|constexpr|static|extern|auto|friend|template|enum|namespace|public|"
    r"private|protected|explicit|virtual|inline|struct|class)\b|"
    r"(?!(?:return|throw|delete|new|goto)\b)(?:unsigned |long )*[\w:]+(?:<.*>)?(?:::\w+)?"
    r"[&*]*\s+[&*]?(?:const )?\w+\s*(?:[=({\[]|$)", re.DOTALL)


def _without_head(code: str, start: int, end: int) -> int:
    """Where the statement begins after `if (...)`, `else`, `case ...:` and their like."""
    while (head := _CONTROL.match(code, start, end)) is not None:
        start = head.end()
        if code[start:start + 1] == "(":
            start = _closing(code, start) + 1
    return start + len(code[start:end]) - len(code[start:end].lstrip())


@dataclasses.dataclass
class _Bracket:
    kind: str  # "(", "scope", "value", "function" or "block"
    start: int  # of the statement that is being read within


def _statements(code: str) -> Iterator[tuple[str, int, str, str]]:
    """Statements that are no declarations; not the return at the end of a function."""
    open_brackets = [_Bracket("scope", 0)]
    for place, letter in enumerate(code):
        inner = open_brackets[-1]
        if letter in "([":
            open_brackets.append(_Bracket("(", place + 1))
        elif letter == "{":
            head = code[inner.start:place]
            if _SCOPE.search(head):
                kind = "scope"
            elif not _BODY.search(head):
                kind = "value"
            elif inner.kind in ("function", "block") and (
                    not head.strip() or _CONTROL.match(head) or head.strip() == "try"):
                kind = "block"
            else:
                kind = "function"
            open_brackets.append(_Bracket(kind, place + 1))
        elif letter in ")]}":
            if len(open_brackets) > 1:
                open_brackets.pop()
            if letter == "}" and inner.kind != "value":
                open_brackets[-1].start = place + 1
        elif letter == ";" and inner.kind != "(":
            start = _without_head(code, inner.start, place)
            statement = code[start:place]
            inner.start = place + 1
            if inner.kind not in ("function", "block") or not statement:
                continue
            is_last = inner.kind == "function" and code[place + 1:].lstrip()[:1] == "}"
            if statement.startswith("return"):
                if not is_last:
                    yield "removed return", start, statement, ""
            elif not _DECLARATION.match(statement):
                yield "removed statement", start, statement, ""


def mutations(file: str, text: str) -> list[Mutation]:
    """Every mutation of a file's text, in the order of the lines."""
    code = _blanked(text)
    found = [(operator, match.start("it"), match["it"], new)
             for operator, pattern, replace in _PATTERNS
             for match in pattern.finditer(code)
             for new in replace(match["it"])]
    found += [*_swapped_strings(text), *_conditions(code), *_statements(code)]
    lines = [0, *(newline.end() for newline in re.finditer("\n", text))]
    made = set()
    for operator, start, old, new in found:
        old = text[start:start + len(old)]  # with what its literals say
        if operator == "negated condition":
            new = f"!({old})"
        line = bisect.bisect_right(lines, start)
        made.add(Mutation(file, start, line, start - lines[line - 1] + 1, operator, old, new))
    return sorted(made)
