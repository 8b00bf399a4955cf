"""Every example of the documents gives what it shows: the blocks marked `console`, in which a line
that begins with "$ ./kx run" is followed by what a terminal then shows."""

import re

from simulator import endpoint as launcher
from tests.documents.option_table import ROOT
from tests.end_to_end.harness import EndToEndCase, ToolRun

DOCUMENTS = (ROOT / "README.md", *sorted((ROOT / "docs").glob("*.md")))
_PLACEHOLDERS = {"<seconds>": r"\d{10}"}


def examples_of(text: str) -> list[tuple[str, str]]:
    """The command lines behind `./kx run`, each with what follows it."""
    found = []
    for block in re.findall(r"^```console\n(.*?)^```$", text, re.MULTILINE | re.DOTALL):
        found += re.findall(r"^\$ \./kx run (.*)\n((?:(?!\$ ).*\n)*)", block, re.MULTILINE)
    return found


def as_shown(run: ToolRun, with_log: bool) -> str:
    """What a terminal shows of a run, with "<time>" in place of the log's times."""
    lines = [run.output.decode(), f"exit status {run.status}"]
    if with_log:
        lines += [f"<time> {message}" for message in run.log or []]
    return "\n".join(lines) + "\n"


def pattern_of(expected: str) -> str:
    pattern = re.escape(expected)
    for placeholder, what in _PLACEHOLDERS.items():
        pattern = pattern.replace(re.escape(placeholder), what)
    return pattern


class ExamplesTest(EndToEndCase):
    def test_documents(self) -> None:
        for document in DOCUMENTS:
            for command, expected in examples_of(document.read_text(encoding="utf-8")):
                with self.subTest(document=document.name, command=command):
                    options, words = launcher.parse(command.split())
                    run = self.run_tool(*words, scenario=options.scenario, layout=options.layout,
                                        logging=options.log, sleep_divisor=options.sleep_divisor)
                    self.assertEqual(run.errors, b"")
                    shown = as_shown(run, options.log)
                    if not re.fullmatch(pattern_of(expected), shown):
                        self.assertEqual(shown, expected)

    def test_there_are_some(self) -> None:
        readme = (ROOT / "README.md").read_text(encoding="utf-8")
        self.assertEqual(len(examples_of(readme)), readme.count("\n$ ./kx run "))
        self.assertGreater(len(examples_of(readme)), 0)
