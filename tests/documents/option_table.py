"""The tool's options, read from the text of their table in app/options.cc, and the documents."""

import ast
import dataclasses
import pathlib
import re

ROOT = pathlib.Path(__file__).resolve().parents[2]
DOCUMENTS = sorted(path for path in ROOT.rglob("*.md")
                   if path.relative_to(ROOT).parts[0] != "build")


# Neighbouring literals of C++, which are one text.
_TEXT = re.compile(r'"(?:[^"\\\n]|\\.)*"(?:\s*"(?:[^"\\\n]|\\.)*")*')


@dataclasses.dataclass(frozen=True)
class Option:
    """A row of the table. The counts are of command-line words, the program name included; the
    messages are those that the dispatcher logs."""

    name: str
    minimum_count: int
    maximum_count: int
    messages: tuple[str, ...]


def texts_of(source: str) -> list[str]:
    """The values of all string literals of a C++ source without escapes but \\" and the like."""
    return [ast.literal_eval(f"({found[0]})") for found in _TEXT.finditer(source)]


def options() -> list[Option]:
    """All options, in the order of the table."""
    source = (ROOT / "app" / "options.cc").read_text(encoding="utf-8")
    size, table = re.search(r"std::array<Option, (\d+)> kOptions = {{(.*?)\n}};", source,
                            re.DOTALL).groups()
    rows = re.split(r'\n    \{(?="-)', table)[1:]
    found = []
    for row in rows:
        name, *messages = texts_of(row)
        counts = re.match(r'"[^"]*", (\d+), (\d+),', row)
        found.append(Option(name, int(counts[1]), int(counts[2]), tuple(messages)))
    if len(found) != int(size):
        raise AssertionError(f"{len(found)} of the table's {size} rows were understood")
    return found
