"""The table of the tool's options, as the build has printed it, and the documents."""

import dataclasses
import json
import os
import pathlib

ROOT = pathlib.Path(__file__).resolve().parents[2]
BUILD = pathlib.Path(os.environ.get("KX_BUILD", ROOT / "build" / "release"))
DOCUMENTS = sorted(path for path in ROOT.rglob("*.md")
                   if path.relative_to(ROOT).parts[0] != "build")


@dataclasses.dataclass(frozen=True)
class Option:
    """A row of the table. The counts of words include the program name; the messages are those that
    the dispatcher logs."""

    name: str
    least_words: int
    most_words: int
    messages: list[str]


def options() -> list[Option]:
    """All options, in the order of the table."""
    table = json.loads((BUILD / "options.json").read_text(encoding="utf-8"))
    return [Option(row["name"], row["leastWords"], row["mostWords"], row["messages"])
            for row in table]
