"""That docs/performance.md and its plot are made of the reports that are kept beside them."""

import json
import re
import shutil
import sys
import unittest
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "bench"))

# pylint: disable=wrong-import-position
import report  # noqa: E402

PERFORMANCE = ROOT / "docs" / "performance"


def producer(picture: bytes) -> list[bytes]:
    """The version of gnuplot that drew the picture."""
    return re.findall(rb"Produced by GNUPLOT [^<]*", picture)


class PerformanceTest(unittest.TestCase):
    maxDiff = None

    def setUp(self) -> None:
        self.reports = [json.loads(path.read_text(encoding="utf-8"))
                        for path in sorted(PERFORMANCE.glob("run-*.json"))]

    def test_tables_are_made_of_the_reports(self) -> None:
        self.assertEqual(len(self.reports), 3)
        text = (ROOT / "docs" / "performance.md").read_text(encoding="utf-8")
        self.assertEqual(report.fill_all(text, self.reports), text)

    @unittest.skipUnless(shutil.which("gnuplot"), "no gnuplot")
    def test_plot_is_drawn_from_the_reports(self) -> None:
        kept = (PERFORMANCE / "plot.svg").read_bytes()
        drawn = report.plot(self.reports)
        if producer(drawn) == producer(kept):
            self.assertEqual(drawn, kept)
        else:  # other versions draw the same differently
            self.assertEqual(drawn.count(b"<title>"), kept.count(b"<title>"))


if __name__ == "__main__":
    unittest.main()
