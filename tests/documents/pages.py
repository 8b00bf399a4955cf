"""The documents, the examples in them, and the table of the tool's options that the build prints."""

import dataclasses
import json
import re
from pathlib import Path

from tests.end_to_end.harness import BUILD, ROOT

# Not those in build, where other tests may be at work.
DOCUMENTS = sorted([*ROOT.glob("*.md"), *(path for folder in ROOT.glob("[!.]*/") if folder.name != "build"
                                         for path in folder.rglob("*.md"))])


@dataclasses.dataclass(frozen=True)
class Option:
    """A row of the table. The word counts include the program name; the dispatcher logs the messages."""

    name: str
    least_words: int
    most_words: int
    messages: list[str]


def options() -> list[Option]:
    """All options, in the order of the table."""
    table = json.loads((BUILD / "options.json").read_text(encoding="utf-8"))
    return [Option(row["name"], row["leastWords"], row["mostWords"], row["messages"]) for row in table]


def read(name: str) -> str:
    """The text of a file, by its path in the repository."""
    return (ROOT / name).read_text(encoding="utf-8")


def name_of(document: Path) -> str:
    return str(document.relative_to(ROOT))


def blocks_of(document: str, language: str = "") -> list[tuple[str, str]]:
    """The languages and the contents of a document's code blocks; all, or those in this language."""
    blocks = re.findall(r"^```(.*)\n((?:.*\n)*?)^```$", read(document), re.MULTILINE)
    return [block for block in blocks if language in ("", block[0])]
