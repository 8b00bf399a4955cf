"""kxtool-report in every state of an endpoint, for every text that the product can send, and in shells
and awks like those of macOS."""

import concurrent.futures
import itertools
import json
import os
import random
import re
import shutil
import signal
import subprocess
import tempfile
import time
import unittest
from pathlib import Path
from typing import Any

import jsonschema

from simulator import installation
from tests.documents.pages import ROOT, read
from tests.end_to_end.harness import EndToEndCase

REPORT = ROOT / "packaging" / "kxtool-report"
SCHEMA = json.loads(read("docs/report.schema.json"))
# On macOS, /bin/dash is dash, /bin/sh is bash, and /bin/zsh is zsh. ash is stricter than these.
SHELLS = ("dash", "bash --posix", "zsh --emulate sh", "busybox ash")
AWKS = ("mawk", "original-awk", "busybox awk")
# The programs that the script may use besides the shell. macOS has had each since 10.11.
PROGRAMS = ("cat", "date", "head", "mktemp", "mv", "od", "readlink", "rm", "sed", "sleep", "tr")
IDENTITY = {"company": "62f0c1a8b7d3e45f90a1b2c3", "group": "5e8d7c6b5a4f3e2d1c0b9a88",
            "endpoint": "4C4C4544-0051-3610-8052-C2C04F4D3532"}


def parsed(output: bytes) -> dict[str, Any]:
    """Parses a report, which must be strict JSON of the documented form, in ASCII."""

    def unique(pairs):
        if len(dict(pairs)) != len(pairs):
            raise AssertionError(f"a member occurs twice: {pairs}")
        return dict(pairs)

    assert output.endswith(b"}\n"), output
    report = json.loads(output.decode("ascii"), object_pairs_hook=unique)
    jsonschema.validate(report, SCHEMA)
    return report


# The members of a report that are known without the product.
ALWAYS = {"reportVersion", "time", "toolVersion"}
# For each state of an endpoint, the exit status, and members of the report besides the identity.
STATES = {
    "healthy": (0, {"state": "healthy", "productVersion": "7.16.42.200137", "upToDate": True,
                    "criticalIssues": [], "updateErrors": [], "lastFullScan": 1784188195,
                    "lastQuickScan": 1784272861, "toolVersion": "1.0.0.206", "problems": [],
                    "features": [{"feature": "antimalware", "working": True},
                                 {"feature": "webfilter", "working": True},
                                 {"feature": "deviceControl", "working": True},
                                 {"feature": "encryption", "working": False}]}),
    "not-installed": (0, {**dict.fromkeys(SCHEMA["properties"].keys() - ALWAYS),
                          "state": "not installed", "problems": []}),
    "critical-issues": (0, {"state": "not healthy",
                            "criticalIssues": ["ProtectionOff", "LicenceExpired"]}),
    "services-missing": (0, {"state": "not healthy", "criticalIssues": []}),
    "update-failed": (0, {"upToDate": False, "updateErrors": [{"location": "antimalware", "error": -1},
                                                              {"location": "webfilter", "error": 1005}]}),
    "library-other-team": (1, {"state": "not healthy", "productVersion": None, "locations": None}),
    "unusual-names": (1, {"criticalIssues": ["p", "q", "nul\0byte", "größe 大"]}),
}


class StatesTest(EndToEndCase):
    def report_of(self, scenario: str, command: str) -> tuple[int, dict[str, Any]]:
        with self.endpoint(scenario=scenario) as endpoint:
            run = self.run_script_on(endpoint, f"$FAST {command}")
        self.assertEqual(run.errors, b"")
        return run.status, parsed(run.output)

    def test_members(self) -> None:
        for scenario, (status, members) in STATES.items():
            with self.subTest(scenario=scenario):
                found, report = self.report_of(scenario, f"dash {installation.REPORT}")
                self.assertEqual((found, report), (status, {**report, **IDENTITY, **members}))

    def test_every_state_gives_a_valid_report(self) -> None:
        def outcome(name):
            return name, StatesTest().report_of(name, "kxtool-report --pretty --timeout 15")

        files = (ROOT / "simulator" / "scenarios").rglob("*.json")
        names = [file.stem for file in files if not file.stem.startswith(("installer", "links"))]
        self.assertGreater(len(names), 20)
        with concurrent.futures.ThreadPoolExecutor(4) as pool:
            for name, (status, report) in pool.map(outcome, names):
                with self.subTest(scenario=name):
                    self.assertEqual(status, 1 if report["problems"] else 0)

    def test_names_the_meaning_of_each_problem(self) -> None:
        status, report = self.report_of("library-other-team", "kxtool-report --only issues --only updates")
        meaning = "the product's library is not validly signed by its vendor"
        self.assertEqual(status, 1)
        self.assertEqual(report["problems"], [
            {"question": question, "argument": None, "code": 22, "meaning": meaning}
            for question in ("-isUpToDate", "-getLastUpdate", "-checkForUpdateErrors",
                             "-getUpdateLocations", "-hasCriticalIssues")])

    def test_a_full_disk_is_a_failure(self) -> None:
        with self.endpoint(volumes={"/small": 8192}) as endpoint:
            run = self.run_script_on(
                endpoint, "cd /small; head -c 8192 /dev/zero >full; TMPDIR=/small kxtool-report --only tool")
        self.assertEqual((run.status, run.output), (3, b""))


class ScriptCase(unittest.TestCase):
    """Runs the script with another script as the tool."""

    maxDiff = None

    def setUp(self) -> None:
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)
        self.temporary = self.folder / "temporary"
        self.temporary.mkdir()
        self.script = self.folder / "kxtool-report"
        shutil.copy(REPORT, self.script)
        self.programs = self.folder / "programs"
        self.programs.mkdir()
        for name in PROGRAMS:
            (self.programs / name).symlink_to(shutil.which(name))
        self.use_awk("mawk")

    def use_awk(self, words: str) -> None:
        program, *applet = words.split()
        awk = self.programs / "awk"
        awk.unlink(missing_ok=True)
        if shutil.which(program) is None:
            self.fail(f"{program} is not installed")
        awk.write_text(f'#!/bin/sh\nexec {shutil.which(program)} {" ".join(applet)} "$@"\n', encoding="utf-8")
        awk.chmod(0o755)

    def write_tool(self, cases: str) -> None:
        """The tool answers as the branches of a `case $1 in` say."""
        tool = self.folder / "KXTool"
        tool.write_text(f"#!/bin/sh\nPATH={os.environ['PATH']}\ncase $1 in\n{cases}\nesac\n",
                        encoding="utf-8")
        tool.chmod(0o755)

    def write_answer(self, option: str, answer: bytes) -> None:
        (self.folder / "answer").write_bytes(answer)
        self.write_tool(f"{option}) cat {self.folder}/answer ;;")

    def command(self, shell: str, *words: str) -> list[str]:
        program, *more = shell.split()
        if shutil.which(program) is None:
            self.fail(f"{program} is not installed")
        return [str(shutil.which(program)), *more, *words]

    @property
    def environment(self) -> dict[str, str]:
        return {"PATH": str(self.programs), "TMPDIR": str(self.temporary), "LC_ALL": "C.UTF-8"}

    def run_report(self, *words: str, shell: str = "dash",
                   script: Path | None = None) -> subprocess.CompletedProcess:
        run = subprocess.run(self.command(shell, str(script or self.script), *words), check=False, timeout=60,
                             capture_output=True, cwd=self.folder, env=self.environment,
                             stdin=subprocess.DEVNULL)
        self.assertEqual(os.listdir(self.temporary), [])
        return run

    def member(self, name: str, group: str, shell: str = "dash") -> Any:
        """The member of a report that is printed without an error."""
        run = self.run_report("--only", group, shell=shell)
        self.assertEqual(run.stderr, b"")
        return parsed(run.stdout)[name]


class TextTest(ScriptCase):
    def texts(self) -> list[bytes]:
        """Every byte, well-formed and ill-formed sequences at their bounds, and random mixtures."""
        found = [bytes([octet]) for octet in range(256) if octet != ord("|")]
        points = (0x7F, 0x80, 0x7FF, 0x800, 0xD7FF, 0xE000, 0xFFFD, 0xFFFF, 0x10000, 0x10FFFF)
        whole = [chr(point).encode() for point in points]
        broken = [b"\xc0\x80", b"\xc1\xbf", b"\xe0\x80\x80", b"\xed\xa0\x80", b"\xf0\x80\x80\x80",
                  b"\xf4\x90\x80\x80", b"\xf5\x80\x80\x80", b"\xe2\x82\xe2\x82\xac", b"\xf0\x9f\x98",
                  b"\xff\xfe"]
        found += whole + broken + [b'say "hi" \\ /', b"a\nb\r\tc\n", b"%s%d$(date)`id`"]
        source = random.Random(1)
        pieces = [*whole, *broken, b"a", b"=", b"0", b"-1", b"\0", b"\n"]
        return found + [b"".join(source.choices(pieces, k=source.randrange(9))) for _ in range(200)]

    def test_is_unchanged_in_every_shell_and_awk(self) -> None:
        texts = [text for text in self.texts() if b"|" not in text]
        expected = [text.decode(errors="replace") for text in texts]
        self.write_answer("-hasCriticalIssues", b"|".join(texts))
        for shell, awk in [*((shell, "mawk") for shell in SHELLS), *(("dash", awk) for awk in AWKS)]:
            with self.subTest(shell=shell, awk=awk):
                self.use_awk(awk)
                self.assertEqual(self.member("criticalIssues", "issues", shell), expected)

    def test_is_split_at_the_last_equals_sign(self) -> None:
        names = ["", "a", "a=b", "=", "a|b", "x=|1", "-5", "a=-", "ä", "=1x", "0" * 30]
        for awk in AWKS:
            self.use_awk(awk)
            self.write_answer("-checkForUpdateErrors", "|".join(
                f"{name}={error}" for error, name in enumerate(names, -3)).encode())
            self.assertEqual(self.member("updateErrors", "updates"), [
                {"location": name, "error": error} for error, name in enumerate(names, -3)])
            self.write_answer("-getFeatureStatus", b"a=1|b=2=0|c=7|d=1")
            self.assertEqual(self.member("features", "features"), [
                {"feature": "a", "working": True}, {"feature": "b=2", "working": False},
                {"feature": "c=7|d", "working": True}])

    def test_wrong_form_is_a_problem(self) -> None:
        for option, group, name, answer in (
                ("-checkForUpdateErrors", "updates", "updateErrors", b"a"),
                ("-checkForUpdateErrors", "updates", "updateErrors", b"a=1|b=01"),
                ("-getFeatureStatus", "features", "features", b"a=2"),
                ("-getFeatureStatus", "features", "features", b"="),
                ("-isUpToDate", "updates", "upToDate", b"2"), ("-isUpToDate", "updates", "upToDate", b"1\0"),
                ("-getLastUpdate", "updates", "lastUpdate", b"1.5"),
                ("-getLastUpdate", "updates", "lastUpdate", b"-"),
                ("-getLastUpdate", "updates", "lastUpdate", b"\xff")):
            with self.subTest(answer=answer):
                self.write_answer(option, answer)
                run = self.run_report("--only", group)
                report = parsed(run.stdout)
                self.assertEqual((run.returncode, report[name]), (1, None))
                self.assertEqual([problem["question"] for problem in report["problems"]], [option])

    def test_location_names_are_passed_unchanged(self) -> None:
        self.write_tool("-getUpdateLocations) printf 'a b|$(id)|line\\n|*' ;;\n-getUpdateStatus)\n"
                        f"  printf '%s\\0' \"$2\" >>{self.folder}/asked; printf '0|-5|7' ;;")
        for shell in SHELLS:
            (self.folder / "asked").unlink(missing_ok=True)
            names = ["a b", "$(id)", "line\n", "*"]
            self.assertEqual(self.member("locations", "updates", shell), [
                {"location": name, "error": 0, "time": -5, "lastSucceededTime": 7} for name in names])
            self.assertEqual((self.folder / "asked").read_text().split("\0")[:-1], names)

    def test_last_field_of_a_record_can_contain_bars(self) -> None:
        self.write_tool("-detect) printf '2|||a|b'; exit 16 ;;")
        report = parsed(self.run_report("--only", "detection").stdout)
        self.assertEqual((report["state"], report["company"], report["group"], report["endpoint"]),
                         ("not healthy", None, None, "a|b"))

    def test_memory_does_not_grow_with_the_text(self) -> None:
        def peak(size):
            self.write_tool(f"-hasCriticalIssues) head -c {size} /dev/zero | tr '\\0' x ;;")
            command = self.command("dash", str(self.script), "--only", "issues")
            with open(self.folder / "report", "wb") as output:
                process = subprocess.Popen(command, stdout=output, env=self.environment)
                _, status, usage = os.wait4(process.pid, 0)
                process.returncode = status
            self.assertEqual((self.folder / "report").stat().st_size, size + len(self.empty) + 2)
            return usage.ru_maxrss

        self.write_tool("-hasCriticalIssues) ;;")
        self.empty = self.run_report("--only", "issues").stdout
        self.assertLess(peak(3_000_000), peak(3_000) + 1_000)


class LimitsTest(ScriptCase):
    def test_a_question_is_ended_and_the_others_are_not_asked(self) -> None:
        self.write_tool(f"-getProductVersion) exec sleep 300 ;;\n*) touch {self.folder}/asked ;;")
        for shell in SHELLS:
            with self.subTest(shell=shell):
                run = self.run_report("--only", "version", "--only", "issues", "--timeout", "3", shell=shell)
                self.assertEqual((run.returncode, run.stderr), (1, b""))
                first, second = parsed(run.stdout)["problems"]
                self.assertRegex(first["meaning"], "^no answer within [123] seconds; the tool was killed$")
                self.assertEqual(second["meaning"],
                                 "not asked, because the time limit of the report had passed")
                self.assertEqual((first["code"], second["code"]), (None, None))
                self.assertFalse((self.folder / "asked").exists())

    def test_names_the_signal_that_ended_the_tool(self) -> None:
        self.write_tool("-getProductVersion) kill -ABRT $$ ;;\n-hasCriticalIssues) kill -KILL $$ ;;")
        for shell in SHELLS:
            run = self.run_report("--only", "version", "--only", "issues", shell=shell)
            self.assertEqual(run.stderr, b"")
            self.assertEqual([problem["code"] for problem in parsed(run.stdout)["problems"]], [134, 137])

    def test_limits_are_those_of_the_guide(self) -> None:
        text = REPORT.read_text(encoding="utf-8")
        guide = read("docs/rmm-integration.md")
        allowed = dict(re.findall(r"^\| (.*?) \| .*? \| (\d+) s \|", guide, re.MULTILINE))
        limits = dict(re.findall(r"^    (.*)\) limit=(\d+) ;;$", text, re.MULTILINE))
        self.assertEqual(limits, {
            "-detect": allowed["`-detect`"], "*": allowed["status queries, `-startUpdate`"],
            "-getVersion | -getLastSystemScan": allowed["`-getVersion`, `-getLastSystemScan`"]})
        for limit in limits.values():
            self.assertIn(limit, text.partition("HELP\n")[2].partition("\nHELP")[0])

    def test_leaves_nothing_when_it_is_ended(self) -> None:
        for shell, ending in itertools.product(SHELLS, (signal.SIGTERM, signal.SIGKILL)):
            with self.subTest(shell=shell, ending=ending):
                self.write_tool(f"*) echo $$ >{self.folder}/tool; exec sleep 300 ;;")
                (self.folder / "tool").unlink(missing_ok=True)
                with subprocess.Popen(self.command(shell, str(self.script)), stdout=subprocess.PIPE,
                                      stderr=subprocess.DEVNULL, env=self.environment) as report:
                    self.wait_for(lambda: (self.folder / "tool").exists() and
                                  (self.folder / "tool").read_text().strip())
                    report.send_signal(ending)
                    self.assertEqual(report.communicate(timeout=30), (b"", None))
                    self.assertEqual(report.returncode, -ending)
                tool = int((self.folder / "tool").read_text())
                self.wait_for(lambda: not os.listdir(self.temporary) and not _runs(tool))

    def wait_for(self, condition) -> None:
        deadline = time.monotonic() + 30
        while not condition():
            self.assertLess(time.monotonic(), deadline)
            time.sleep(0.01)


def _runs(process: int) -> bool:
    try:
        state = Path(f"/proc/{process}/stat").read_text(encoding="utf-8").rpartition(")")[2].split()[0]
    except OSError:
        return False
    return state != "Z"


class CommandLineTest(ScriptCase):
    def test_wrong_arguments(self) -> None:
        self.write_tool("*) ;;")
        for words in (["x"], ["--only"], ["--only", "everything"], ["--timeout"], ["--timeout", "0"],
                      ["--timeout", "1s"], ["--timeout", "1234567890"], ["--only", "tool issues"]):
            run = self.run_report(*words)
            self.assertEqual((run.returncode, run.stdout), (2, b""), words)
            self.assertRegex(run.stderr, rb"^kxtool-report: .+\n$")

    def test_without_the_tool(self) -> None:
        run = self.run_report()
        self.assertEqual((run.returncode, run.stdout), (3, b""))
        self.assertIn(b"KXTool is missing", run.stderr)

    def test_finds_the_tool_through_links(self) -> None:
        self.write_tool("-getVersion) printf 1.2 ;;")
        bin_folder = self.folder / "bin"
        bin_folder.mkdir()
        (bin_folder / "first").symlink_to("../kxtool-report")
        (self.folder / "second").symlink_to(bin_folder / "first")
        for shell, script in itertools.product(SHELLS, ("kxtool-report", "second", bin_folder / "first")):
            run = self.run_report("--only", "tool", shell=shell, script=script)
            self.assertEqual(parsed(run.stdout)["toolVersion"], "1.2")

    def test_pretty_and_compact_are_the_same_report(self) -> None:
        self.write_answer("-hasCriticalIssues", b"a|  b\n  c|")
        compact, pretty = (self.run_report("--only", "issues", *more).stdout for more in ([], ["--pretty"]))
        self.assertEqual(compact.count(b"\n"), 1)
        self.assertEqual(parsed(compact)["criticalIssues"], ["a", "  b\n  c", ""])
        self.assertEqual(parsed(pretty)["criticalIssues"], ["a", "  b\n  c", ""])
        self.assertIn(b'\n  "criticalIssues": [\n    "a",\n', pretty)

    def test_documents_name_every_group_with_its_members(self) -> None:
        text = self.run_report("--help").stdout.decode()
        groups = dict(re.findall(r"^ {23}(\w+) +([a-zA-Z, ]+?)(?: \(.*)?$", text, re.MULTILINE))
        page = read("docs/kxtool-report.1")
        self.assertEqual(dict(re.findall(r"^\.It Cm (\w+)\n(.*)$", page, re.MULTILINE)), groups)
        for in_page, in_help in ((r"^\.It Fl (-\w+)", r"^  -(-\w+)"), (r"^\.It (\d)$", r"^  (\d)  ")):
            self.assertEqual(re.findall(in_page, page, re.MULTILINE), re.findall(in_help, text, re.MULTILINE))
        self.write_tool("*) ;;")
        always = {"reportVersion", "time", "problems"}
        for group, members in groups.items():
            report = parsed(self.run_report("--only", group).stdout)
            self.assertEqual(set(report) - always, set(members.split(", ")))
        self.assertEqual(set(parsed(self.run_report().stdout)), set(SCHEMA["properties"]))


class ProgramsTest(unittest.TestCase):
    def test_need_no_gnu_options(self) -> None:
        """The programs of macOS do not have these options; shellcheck rejects newer constructs of shells."""
        options = (r"\b(readlink -f|sed -[irEz]|date -[dIr]|grep -P|stat -|tail -n \+|sort -V|"
                   r"(mktemp|od|head|tr) --)")
        for script in (REPORT, *(ROOT / "examples").rglob("*.sh")):
            self.assertNotRegex(re.sub(r"(?m)^\s*#.*$", "", script.read_text(encoding="utf-8")), options)


if __name__ == "__main__":
    unittest.main()
