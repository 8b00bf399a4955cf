"""The exit codes in the documents and in the report are those of the sources."""

import re
import unittest

from tests.documents.pages import read

CODES = re.findall(r"^\| (\d+) \| [a-z]", read("docs/contract.md"), re.MULTILINE)


class ExitCodesTest(unittest.TestCase):
    def test_sources(self) -> None:
        constants = dict(re.findall(r"^inline constexpr int (kSuccess|kE\w+) = (\d+);",
                                    read("app/error_codes.h"), re.MULTILINE))
        del constants["kEBADF"]  # ends no run
        self.assertEqual(list(constants.values()), CODES)

    def test_manual_page(self) -> None:
        self.assertEqual(re.findall(r"^\.It (\d+)$", read("docs/KXTool.1"), re.MULTILINE), CODES)

    def test_report(self) -> None:
        report = read("packaging/kxtool-report")
        for code in CODES[1:]:
            self.assertRegex(report, rf"(?m)^    {code}\)")


if __name__ == "__main__":
    unittest.main()
