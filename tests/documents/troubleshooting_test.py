"""Each row of the troubleshooting guide: the run that it names ends with the status and logs the line."""

import re
import shlex

from simulator import endpoint as launcher
from tests.documents.option_table import ROOT
from tests.end_to_end.harness import EndToEndCase

GUIDE = (ROOT / "docs" / "troubleshooting.md").read_text(encoding="utf-8")
ROW = re.compile(r"^\| (\d+) \| `(.*?)`(?: (and no|and never|as the last line))?(?: `(.*?)`)? \| .* \| `(-.*?)` \| .* \|$",
                 re.MULTILINE)


class TroubleshootingTest(EndToEndCase):
    def test_a_name_can_forge_a_message(self) -> None:
        run = self.run_tool("-getUpdateStatus", "a\nb\n2030-01-01 00:00:00 forged")
        self.assertEqual(run.log[-4:-2], ['Invalid JSON. Cannot find " a\nb', 'forged" field'])

    def test_rows(self) -> None:
        rows = ROW.findall(GUIDE)
        self.assertEqual(len(rows), len(re.findall(r"^\| \d", GUIDE, re.MULTILINE)))
        self.assertGreater(len(rows), 20)
        for status, line, kind, absent, command in rows:
            line = line.replace(r"\|", "|")
            with self.subTest(line=line):
                options, words = launcher.parse(shlex.split(command))
                run = self.run_tool(*words, scenario=options.scenario, sleep_divisor=options.sleep_divisor)
                self.assertEqual(run.status, int(status))
                self.assertIn(line, run.log)
                if kind == "as the last line":
                    self.assertEqual(run.log[-1], line)
                elif kind:
                    self.assertFalse([other for other in run.log if other.startswith(absent)])
