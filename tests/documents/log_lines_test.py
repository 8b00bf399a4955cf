"""The contract has every log line of the tool, in the order in which a run logs them."""

import ast
import re

from tests.documents import pages
from tests.documents.pages import ROOT
from tests.end_to_end.harness import EndToEndCase

CONTRACT = pages.read("docs/contract.md")
# One space for each run of white space, because sentences continue on the next line.
ONE_LINE = " ".join(CONTRACT.split())
# Literals that are never logged, in sources that log.
NOT_LOGGED = {"%Y-%m-%d %X", "read fault", "Developer ID Application: Corvane SRL (QK7ZP2M9XD)"}

# Adjacent literals of C++, which form one string.
_TEXT = re.compile(r'"(?:[^"\\\n]|\\.)*"(?:\s*"(?:[^"\\\n]|\\.)*")*')

# Successful runs, each with the headings of the sections whose first transcript describes it.
_SDK_CALL = ["Signature check", "SDK call", "Envelope"]
RUNS = (
    ("healthy", "-getProductVersion", ["Status query", "Query call", *_SDK_CALL]),
    ("healthy", "-detect", ["`-detect", "Query call", *_SDK_CALL]),
    ("healthy", "-startUpdate", ["`-startUpdate", *_SDK_CALL]),
    ("scan-started", "-startFullScan 60", ["`-startFullScan"]),
    ("healthy", "-getInstallationLink -slUrl u -apiKey k -packageName p",
     ["`-getInstallationLink", "Signature check"]),
    ("healthy", "-getLastSystemScan", ["`-getLastSystemScan"]),
    ("healthy", "-getVersion", ["`-getVersion"]),
    ("installer", "-runInstaller /demo/package/Setup.pkg", ["`-runInstaller"]),
    ("installer", "-runSetupDownloader /demo/downloader-image/Setup.iso", ["`-runSetupDownloader"]),
)


def logged_texts(source: str) -> list[str]:
    """The literals of a source that logs, as far as they contain words."""
    if "LogMessage(" not in source and "QueryLines" not in source:
        return []
    code = re.sub(r"^\s*//.*$|^\s*#.*$", "", source, flags=re.MULTILINE)
    texts = [ast.literal_eval(f"({found[0]})") for found in _TEXT.finditer(code)]
    return [text for text in texts
            if " " in text and re.search(r"\w", text) and text not in NOT_LOGGED]


def transcript_of(heading: str) -> list[str]:
    """Patterns of the lines that every successful run logs: lines without a remark in brackets."""
    block = re.search(rf"^##+ {re.escape(heading)}.*?^```text\n(.*?)^```$", CONTRACT,
                      re.MULTILINE | re.DOTALL)[1]
    lines = [line for line in block.splitlines() if not re.search(r"^\[|    \[", line)]
    return [".*".join(map(re.escape, re.split("<[^>]*>", line))) for line in lines]


class LogLinesTest(EndToEndCase):
    maxDiff = None

    def test_sections_have_the_messages_of_the_dispatcher(self) -> None:
        common, *sections = re.split(r"^## `-", CONTRACT, flags=re.MULTILINE)
        for option, section in zip(pages.options(), sections, strict=True):
            words = " ".join((section + common.partition("### Status query")[2]).split())
            for message in option.messages:
                self.assertTrue(message in words, f"{option.name}: {message!r}")

    def test_names_all_that_is_logged(self) -> None:
        count = 0
        for module in ("app", "diag", "product", "sdk", "queries", "install"):
            for path in sorted((ROOT / module).glob("*.cc")):
                if path.name.endswith("_test.cc"):
                    continue
                for text in logged_texts(path.read_text(encoding="utf-8")):
                    count += 1
                    self.assertTrue(" ".join(text.split()) in ONE_LINE, f"{path.name}: {text!r}")
        self.assertGreater(count, 200)

    def test_transcripts_are_in_the_order_of_the_log(self) -> None:
        for scenario, command, headings in RUNS:
            run = self.run_tool(*command.split(), scenario=scenario, sleep_divisor=1000)
            for heading in headings:
                messages = iter(run.main_log)
                for pattern in transcript_of(heading):
                    self.assertTrue(any(re.fullmatch(pattern, message, re.DOTALL) for message in messages),
                                    f"{command}: {heading}: {pattern}")
