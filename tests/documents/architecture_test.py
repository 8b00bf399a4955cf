"""The description of the rooms agrees with what the layering check lets them include."""

import re
import unittest

from tests.checks import layering
from tests.documents.option_table import ROOT


class ArchitectureTest(unittest.TestCase):
    def test_rooms(self) -> None:
        text = (ROOT / "docs" / "architecture.md").read_text(encoding="utf-8")
        rooms = dict(re.findall(r"^\| `(\w+)` \| [^|]+ \| ([^|]+) \|$", text, re.MULTILINE))
        others = {"all others": set(layering.MAY_INCLUDE) - {"app"}, "nothing": set()}
        described = {room: others[builds_on] if builds_on in others
                     else set(re.findall(r"\w+", builds_on)) for room, builds_on in rooms.items()}
        self.assertEqual(described, layering.MAY_INCLUDE)


if __name__ == "__main__":
    unittest.main()
