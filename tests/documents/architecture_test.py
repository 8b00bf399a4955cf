"""The description of the rooms agrees with what the layering check lets them include, and the
pictures with the texts that they are drawn from."""

import re
import shutil
import subprocess
import tempfile
import unittest
from pathlib import Path
from xml.etree import ElementTree

from tests.checks import layering
from tests.documents.option_table import ROOT


PICTURES = ROOT / "docs" / "pictures"


def shapes_of(picture: Path) -> list[tuple[str, str]]:
    """The elements of an SVG picture in order, each with its text. Where they lie is left out: it
    depends on the machine's fonts."""
    return [(element.tag.rpartition("}")[2], (element.text or "").strip())
            for element in ElementTree.parse(picture).iter()]


class ArchitectureTest(unittest.TestCase):
    maxDiff = None

    def test_rooms(self) -> None:
        text = (ROOT / "docs" / "architecture.md").read_text(encoding="utf-8")
        rooms = dict(re.findall(r"^\| `(\w+)` \| [^|]+ \| ([^|]+) \|$", text, re.MULTILINE))
        others = {"all others": set(layering.MAY_INCLUDE) - {"app"}, "nothing": set()}
        described = {room: others[builds_on] if builds_on in others
                     else set(re.findall(r"\w+", builds_on)) for room, builds_on in rooms.items()}
        self.assertEqual(described, layering.MAY_INCLUDE)

    def test_picture_of_rooms(self) -> None:
        text = (PICTURES / "rooms.dot").read_text(encoding="utf-8")
        drawn = {room: set(others.split())
                 for room, others in re.findall(r"^  (\w+) -> \{?([\w ]+)\}?;$", text, re.MULTILINE)}
        self.assertEqual({"json": set(), "platform": set(), **drawn}, layering.MAY_INCLUDE)

    @unittest.skipUnless(shutil.which("dot") and shutil.which("mscgen"), "no graphviz or mscgen")
    def test_pictures_are_drawn_from_their_texts(self) -> None:
        with tempfile.TemporaryDirectory() as folder:
            subprocess.run([PICTURES / "draw.sh", folder], check=True)
            drawn = {path.name: shapes_of(path) for path in Path(folder).iterdir()}
        self.assertEqual({path.name: shapes_of(path) for path in PICTURES.glob("*.svg")}, drawn)
        shown = [picture for document in (ROOT / "docs").glob("*.md")
                 for picture in re.findall(r"\(pictures/(.*\.svg)\)", document.read_text(encoding="utf-8"))]
        self.assertEqual(sorted(shown), sorted(drawn))


if __name__ == "__main__":
    unittest.main()
