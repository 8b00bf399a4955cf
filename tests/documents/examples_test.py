"""Runs every example in the documents. The language of a block says what it contains:

    console    commands that begin with "$ ./kx run", each followed by what a terminal then shows
    sh         commands, one on each line
    json       a scenario

ELSEWHERE names the blocks of other kinds, and where they are tested.
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
from tests.documents.pages import DOCUMENTS, ROOT, blocks_of, name_of, read
from tests.end_to_end.harness import BUILD, EndToEndCase, ToolRun

GUIDE = "docs/rmm-integration.md"
ELSEWHERE = {
    (GUIDE, "sh"): "GuideTest",
    (GUIDE, "mermaid"): "a diagram",
    ("docs/architecture.md", "mermaid"): "a diagram",
    ("docs/contract.md", "text"): "log_lines_test.py",
    ("docs/deployment.md", "shell"): "deployment_test.py",
    ("docs/deployment.md", "sql"): "deployment_test.py",
    ("examples/ansible/README.md", "sh"): "ansible_test.py",
}
_PLACEHOLDERS = {"<seconds>": r"\d{10}"}
_ROW = re.compile(r"^\| (\d+) \| `(.*?)`(?: (and no|and never|as the last line))?(?: `(.*?)`)? \| .* "
                  r"\| `(-.*?)` \| .* \|$", re.MULTILINE)


def blocks_marked(mark: str) -> list[tuple[str, str]]:
    """The names of the documents with such blocks that are run here, and the contents of the blocks."""
    return [(name, block) for name in map(name_of, DOCUMENTS) if (name, mark) not in ELSEWHERE
            for _, block in blocks_of(name, mark)]


def console_examples() -> list[tuple[str, str, str]]:
    """Each example of a run: the document, the words after `./kx run`, and the expected lines."""
    found = []
    for document, block in blocks_marked("console"):
        examples = re.findall(r"^\$ \./kx run (.*)\n((?:(?!\$ ).*\n)*)", block, re.MULTILINE)
        if len(examples) != len(re.findall(r"^\$ ", block, re.MULTILINE)):
            raise AssertionError(f"{document} shows another command:\n{block}")
        found += [(document, *example) for example in examples]
    return found


def assert_shown(case: unittest.TestCase, run: ToolRun, with_log: bool, expected: str) -> None:
    """Asserts that a terminal shows what an example expects; "<time>" stands for the times in the log."""
    lines = [run.output.decode(), f"exit status {run.status}"]
    if with_log:
        lines += [f"<time> {message}" for message in run.log or []]
    shown = "\n".join(lines) + "\n"
    pattern = re.escape(expected)
    for placeholder, what in _PLACEHOLDERS.items():
        pattern = pattern.replace(re.escape(placeholder), what)
    if not re.fullmatch(pattern, shown):
        case.assertEqual(shown, expected)


class ConsoleTest(EndToEndCase):
    def test_every_block_is_tested(self) -> None:
        for document in map(name_of, DOCUMENTS):
            blocks = blocks_of(document)
            self.assertEqual(len(re.findall("^```", read(document), re.MULTILINE)), 2 * len(blocks))
            for mark, _ in blocks:
                self.assertTrue(mark in ("console", "sh", "json") or (document, mark) in ELSEWHERE,
                                f"{document}: {mark}")

    def test_a_terminal_shows_the_examples(self) -> None:
        for document, command, expected in console_examples():
            with self.subTest(document=document, command=command):
                options, words = launcher.parse(command.split())
                run = self.run_tool(*words, scenario=options.scenario, layout=options.layout,
                                    logging=options.log, sleep_divisor=options.sleep_divisor)
                self.assertEqual(run.errors, b"")
                assert_shown(self, run, options.log, expected)

    def test_rows_of_troubleshooting(self) -> None:
        guide = read("docs/troubleshooting.md")
        rows = _ROW.findall(guide)
        self.assertEqual(len(rows), len(re.findall(r"^\| \d", guide, re.MULTILINE)))
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


class CommandsTest(EndToEndCase):
    """The commands of the `sh` blocks, in a folder with the files that they name. `./kx run` and
    `./kx endpoint` use this build. Commands that only build and test are not run, but must exist."""

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
        (self.folder / "examples").symlink_to(ROOT / "examples")
        (_, scenario), = blocks_marked("json")
        (self.folder / "mine.json").write_text(scenario, encoding="utf-8")
        (_, script), = blocks_of(GUIDE, "sh")
        (self.folder / "script.sh").write_text(script, encoding="utf-8")
        images.Media(BUILD).place(["package-image"], self.folder)
        (self.folder / "package-image" / "Setup.iso").rename(self.folder / "my-own.iso")

    def test_can_be_run(self) -> None:
        lines = [(document, line) for document, block in blocks_marked("sh")
                 for line in block.replace("\\\n", "").splitlines()]
        self.assertGreater(len(lines), 15)
        scripts = []
        for document, line in lines:
            words = shlex.split(line, comments=True)
            with self.subTest(document=document, line=line):
                if words[0] == "cmake":
                    self.check_preset(words[1:])
                elif "./kx run " in line or "./kx endpoint " in line:
                    shown = self.launch(line)
                    if "script.sh" in line:
                        scripts.append(shown)
                else:
                    self.assertEqual(words[0], "./kx")
                    self.check_driver(words[1:])
        self.assertEqual(scripts, ["not up to date\n", "up to date\nnot installed\n"])

    def launch(self, line: str) -> str:
        run = subprocess.run(["bash", "-o", "pipefail", "-c", line], cwd=self.folder, check=False,
                             stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=60)
        self.assertNotIn(run.returncode, (125, 126, 127), run.stderr)
        return run.stdout

    def check_driver(self, words: list[str]) -> None:
        usage = subprocess.run([ROOT / "kx", "help"], check=True, capture_output=True, text=True)
        self.assertIn(words[0], re.findall(r"^  (\w+) ", usage.stdout, re.MULTILINE))
        if words[1:2] == ["-R"]:
            listed = subprocess.run(["ctest", "--test-dir", BUILD, "-N", *words[1:]], check=True,
                                    capture_output=True, text=True)
            self.assertRegex(listed.stdout, r"Total Tests: [1-9]")

    def check_preset(self, words: list[str]) -> None:
        presets = json.loads(read("CMakePresets.json"))
        kind = "buildPresets" if words.pop(0) == "--build" else "configurePresets"
        self.assertIn(words[-1], [preset["name"] for preset in presets[kind]])


class GuideTest(EndToEndCase):
    """The scripts in the integration guide and in the manual page, in the folder of the tool."""

    def assert_outputs(self, program: str, outputs: dict[str, str]) -> None:
        for scenario, output in outputs.items():
            with self.endpoint(scenario=scenario) as endpoint:
                run = self.run_script_on(
                    endpoint, f"cd {TOOL_DIRECTORY}; exec $FAST /bin/sh -c {shlex.quote(program)}")
            self.assertEqual((run.status, run.output.decode(), run.errors), (0, output, b""), scenario)

    def test_shell(self) -> None:
        (_, program), = blocks_of(GUIDE, "sh")
        program = program.replace("/usr/local/libexec/kxtool", TOOL_DIRECTORY)
        self.assert_outputs(program, {
            "healthy": "up to date\n", "update-failed": "not up to date\n",
            "not-installed": "not installed\n", "library-other-team": "no answer\n"})

    def test_manual_page(self) -> None:
        page = read("docs/KXTool.1")
        health = re.search(r"^\.Bd -literal.*?\n(.*?)^\.Ed$", page, re.MULTILINE | re.DOTALL)[1]
        self.assert_outputs(health, {
            "healthy": "healthy\n", "not-installed": "not installed\n",
            "critical-issues": "installed, but not healthy\n"})
        scan = re.search(r"^\.Dl (.*?)$", page, re.MULTILINE)[1]
        self.assert_outputs(scan, {"scan-started": "0"})
