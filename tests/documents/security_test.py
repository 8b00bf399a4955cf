"""That docs/security.md names tests that there are, for every threat."""

import os
import re
import subprocess
import unittest
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
BUILD = Path(os.environ.get("KX_BUILD", ROOT / "build" / "release"))


def threats() -> list[tuple[str, list[str]]]:
    """Each threat of the table, with the tests named beside it."""
    text = (ROOT / "docs" / "security.md").read_text(encoding="utf-8")
    table = text.split("| threat |", 1)[1].split("\n\n", 1)[0]
    rows = [line.strip("|").split("|") for line in table.splitlines()[2:]]
    return [(threat.strip(), re.findall(r"`([^`]+)`", tests)) for threat, _, tests in rows]


class SecurityTest(unittest.TestCase):
    def test_each_threat_has_tests(self) -> None:
        listing = subprocess.run(["ctest", "--test-dir", str(BUILD), "--show-only"], check=True,
                                 capture_output=True, text=True).stdout
        known = re.findall(r"^ *Test +#\d+: (\S+)", listing, re.MULTILINE)
        self.assertGreater(len(known), 1000)
        found = threats()
        self.assertGreater(len(found), 20)
        for threat, tests in found:
            with self.subTest(threat=threat):
                self.assertTrue(tests)
                for name in tests:
                    self.assertTrue(any(test.startswith(name) for test in known), name)


if __name__ == "__main__":
    unittest.main()
