"""The contract has the dispatcher's messages in the section of each option, and it names whatever any
operation logs."""

import ast
import re
import unittest

from tests.documents import option_table
from tests.documents.option_table import ROOT

CONTRACT = (ROOT / "docs" / "contract.md").read_text(encoding="utf-8")
# One space for each run of white space: sentences go over the ends of lines.
ONE_LINE = " ".join(CONTRACT.split())
ROOMS = ("app", "diag", "product", "sdk", "queries", "install")
# Texts of sources that log, which are never logged.
NOT_LOGGED = {"%Y-%m-%d %X", "read fault", "Developer ID Application: Corvane SRL (QK7ZP2M9XD)"}

# Neighbouring literals of C++, which are one text.
_TEXT = re.compile(r'"(?:[^"\\\n]|\\.)*"(?:\s*"(?:[^"\\\n]|\\.)*")*')


def logged_texts(source: str) -> list[str]:
    """The literals with words in them, of a source that logs."""
    if "LogMessage(" not in source and "QueryLines" not in source:
        return []
    code = re.sub(r"^\s*//.*$|^\s*#.*$", "", source, flags=re.MULTILINE)
    texts = [ast.literal_eval(f"({found[0]})") for found in _TEXT.finditer(code)]
    return [text for text in texts
            if " " in text and re.search(r"\w", text) and text not in NOT_LOGGED]


class ContractTest(unittest.TestCase):
    maxDiff = None

    def test_sections_have_the_messages_of_the_dispatcher(self) -> None:
        sections = re.split(r"^## `-", CONTRACT, flags=re.MULTILINE)[1:]
        for option, section in zip(option_table.options(), sections, strict=True):
            words = " ".join(section.split())
            for message in option.messages:
                self.assertTrue(message in words, f"{option.name}: {message!r}")

    def test_names_all_that_is_logged(self) -> None:
        count = 0
        for room in ROOMS:
            for path in sorted((ROOT / room).glob("*.cc")):
                if path.name.endswith("_test.cc"):
                    continue
                for text in logged_texts(path.read_text(encoding="utf-8")):
                    count += 1
                    self.assertTrue(" ".join(text.split()) in ONE_LINE, f"{path.name}: {text!r}")
        self.assertGreater(count, 200)


if __name__ == "__main__":
    unittest.main()
