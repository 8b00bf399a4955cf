"""Every example of every document is run. The blocks are marked with what they hold:

    console    commands that begin with "$ ./kx run", each followed by what a terminal then shows
    sh         commands, one a line
    json       a scenario
    text       lines of the log, which transcripts_test.py compares with runs

Programs, and documents whose examples need more than an endpoint, have tests of their own, which
ELSEWHERE names.
"""

import json
import re
import shlex
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

from simulator import endpoint as launcher
from simulator.installation import TOOL_DIRECTORY
from simulator.installers import images
from tests.documents.option_table import DOCUMENTS, ROOT
from tests.end_to_end.harness import BUILD, EndToEndCase, ToolRun

ELSEWHERE = {
    ("docs/rmm-integration.md", "sh"): "integration_test.py",
    ("docs/rmm-integration.md", "python"): "integration_test.py",
    ("docs/deployment.md", "shell"): "deployment_test.py",
    ("docs/deployment.md", "sql"): "deployment_test.py",
    ("examples/ansible/README.md", "sh"): "ansible_test.py",
}
_PLACEHOLDERS = {"<seconds>": r"\d{10}"}


def blocks_of(document: Path) -> list[tuple[str, str]]:
    """The marks and the contents of a document's blocks."""
    text = document.read_text(encoding="utf-8")
    return re.findall(r"^```(.*)\n((?:.*\n)*?)^```$", text, re.MULTILINE)


def name_of(document: Path) -> str:
    return str(document.relative_to(ROOT))


def blocks_marked(mark: str) -> list[tuple[str, str]]:
    """The names of the documents with such blocks that are run here, and what is in the blocks."""
    return [(name_of(document), block) for document in DOCUMENTS
            for found, block in blocks_of(document)
            if found == mark and (name_of(document), mark) not in ELSEWHERE]


def console_examples() -> list[tuple[str, str, str]]:
    """Each example of a run: the document, the words behind `./kx run`, and what follows."""
    found = []
    for document, block in blocks_marked("console"):
        examples = re.findall(r"^\$ \./kx run (.*)\n((?:(?!\$ ).*\n)*)", block, re.MULTILINE)
        if len(examples) != len(re.findall(r"^\$ ", block, re.MULTILINE)):
            raise AssertionError(f"{document} shows another command:\n{block}")
        found += [(document, *example) for example in examples]
    return found


def assert_shown(case: unittest.TestCase, run: ToolRun, with_log: bool, expected: str) -> None:
    """A terminal shows of the run what an example expects; "<time>" stands for the log's times."""
    lines = [run.output.decode(), f"exit status {run.status}"]
    if with_log:
        lines += [f"<time> {message}" for message in run.log or []]
    shown = "\n".join(lines) + "\n"
    pattern = re.escape(expected)
    for placeholder, what in _PLACEHOLDERS.items():
        pattern = pattern.replace(re.escape(placeholder), what)
    if not re.fullmatch(pattern, shown):
        case.assertEqual(shown, expected)


class BlocksTest(EndToEndCase):
    def test_each_is_run(self) -> None:
        known = {(name_of(document), mark): mark for document in DOCUMENTS
                 for mark in ("console", "sh", "json")}
        known[("docs/contract.md", "text")] = "transcripts_test.py"
        for document in DOCUMENTS:
            text = document.read_text(encoding="utf-8")
            blocks = blocks_of(document)
            self.assertEqual(len(re.findall("^```", text, re.MULTILINE)), 2 * len(blocks))
            for mark, _ in blocks:
                self.assertIn((name_of(document), mark), {**known, **ELSEWHERE})


class TranscriptsTest(EndToEndCase):
    def test_are_what_a_terminal_shows(self) -> None:
        for document, command, expected in console_examples():
            with self.subTest(document=document, command=command):
                options, words = launcher.parse(command.split())
                run = self.run_tool(*words, scenario=options.scenario, layout=options.layout,
                                    logging=options.log, sleep_divisor=options.sleep_divisor)
                self.assertEqual(run.errors, b"")
                assert_shown(self, run, options.log, expected)


class CommandsTest(EndToEndCase):
    """The commands of the `sh` blocks, run in a folder with the files that they name. There,
    `./kx run` and `./kx endpoint` stand for the launcher with this build; what only builds and
    tests is not done again within a test, but has to exist."""

    def setUp(self) -> None:
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)
        launch = f"exec {sys.executable} {launcher.__file__}"
        options = f'--build {BUILD} --sleep-divisor 1000 "$@"'
        driver = self.folder / "kx"
        driver.write_text("#!/bin/sh\ncommand=$1\nshift\ncase $command in\n"
                          f"  run) {launch} run {options} ;;\n"
                          f"  endpoint) {launch} endpoint {options} ;;\nesac\n", encoding="utf-8")
        driver.chmod(0o755)
        (_, scenario), = blocks_marked("json")
        (self.folder / "mine.json").write_text(scenario, encoding="utf-8")
        script, = [block for mark, block in blocks_of(ROOT / "docs" / "rmm-integration.md")
                   if mark == "sh"]
        (self.folder / "script.sh").write_text(script, encoding="utf-8")
        images.Media(BUILD).place(["package-image"], self.folder)
        (self.folder / "package-image" / "Setup.iso").rename(self.folder / "my-own.iso")

    def test_can_be_run(self) -> None:
        count = 0
        for document, block in blocks_marked("sh"):
            for line in block.splitlines():
                count += 1
                with self.subTest(document=document, line=line):
                    self.check(line)
        self.assertGreater(count, 15)

    def check(self, line: str) -> None:
        words = shlex.split(line, comments=True)
        if words[0] == "cmake":
            self.check_preset(words[1:])
        elif "./kx run " in line or "./kx endpoint " in line:
            self.check_launch(line)
        else:
            self.assertEqual(words[0], "./kx")
            self.check_driver(words[1:])

    def check_launch(self, line: str) -> str:
        run = subprocess.run(["bash", "-o", "pipefail", "-c", line], cwd=self.folder, check=False,
                             stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=60)
        self.assertNotIn(run.returncode, (125, 126, 127), run.stderr)
        return run.stdout

    def test_scripts_are_tried_on_endpoints(self) -> None:
        lines = [line for _, block in blocks_marked("sh") for line in block.splitlines()
                 if "script.sh" in line]
        self.assertEqual([self.check_launch(line) for line in lines], [
            "not up to date\n", "up to date\nnot installed\n"])

    def test_members_of_scenarios_are_named(self) -> None:
        text = (ROOT / "docs" / "simulated-endpoint.md").read_text(encoding="utf-8")
        section = text.partition("\n## Writing a scenario\n")[2].partition("\n## ")[0]
        schema = json.loads((ROOT / "simulator" / "scenario.schema.json").read_text("utf-8"))
        self.assertEqual(re.findall(r"^\| `(\w+)` \|", section, re.MULTILINE),
                         list(schema["properties"]))

    def check_driver(self, words: list[str]) -> None:
        usage = subprocess.run([ROOT / "kx", "help"], check=True, capture_output=True, text=True)
        self.assertIn(words[0], re.findall(r"^  (\w+) ", usage.stdout, re.MULTILINE))
        if words[1:2] == ["-R"]:
            listed = subprocess.run(["ctest", "--test-dir", BUILD, "-N", *words[1:]], check=True,
                                    capture_output=True, text=True)
            self.assertRegex(listed.stdout, r"Total Tests: [1-9]")

    def check_preset(self, words: list[str]) -> None:
        presets = json.loads((ROOT / "CMakePresets.json").read_text(encoding="utf-8"))
        kind = "buildPresets" if words.pop(0) == "--build" else "configurePresets"
        self.assertIn(words[-1], [preset["name"] for preset in presets[kind]])


class ManualTest(EndToEndCase):
    """The examples of the manual page, in the folder of the tool."""

    def run_example(self, pattern: str, scenario: str) -> tuple[int, bytes, bytes]:
        text = (ROOT / "docs" / "KXTool.1").read_text(encoding="utf-8")
        example = re.search(pattern, text, re.MULTILINE | re.DOTALL)[1]
        with self.endpoint(scenario=scenario) as endpoint:
            run = self.run_script_on(
                endpoint, f"cd {TOOL_DIRECTORY}; exec $FAST /bin/sh -c {shlex.quote(example)}")
        return run.status, run.output, run.errors

    def test_is_it_healthy(self) -> None:
        for scenario, answer in (("healthy", b"healthy\n"), ("not-installed", b"not installed\n"),
                                 ("critical-issues", b"installed, but not healthy\n")):
            self.assertEqual(self.run_example(r"^\.Bd -literal.*?\n(.*?)^\.Ed$", scenario),
                             (0, answer, b""))

    def test_start_a_scan(self) -> None:
        self.assertEqual(self.run_example(r"^\.Dl (.*?)$", "scan-started"), (0, b"0", b""))
