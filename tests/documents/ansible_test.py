"""The Ansible playbook: a fleet of simulated endpoints in one run, repetition, check mode, and the commands
in its document."""

import dataclasses
import json
import os
import re
import shlex
import shutil
import subprocess
import tempfile
import unittest
from pathlib import Path
from typing import Any

import jsonschema

from tests.documents.pages import BUILD, ROOT, blocks_of, read

EXAMPLE = ROOT / "examples" / "ansible"
SCHEMA = json.loads(read("docs/report.schema.json"))

# Members of the reports, by scenario. The hosts are named after their scenarios.
REPORTS = {
    "healthy": {"state": "healthy", "productVersion": "7.16.42.200137", "problems": []},
    "update-failed": {"state": "healthy", "upToDate": False},
    "not-installed": {"state": "not installed", "productVersion": None},
    "critical-issues": {"state": "not healthy", "criticalIssues": ["ProtectionOff", "LicenceExpired"]},
    "services-missing": {"state": "not healthy", "criticalIssues": []},
    "library-other-team": {"state": "not healthy", "features": None},
}
UNREACHABLE = {"ansible_connection": "ssh", "ansible_host": "127.0.0.1", "ansible_port": 1}
# Hosts that give no report, and the messages.
FAILING = {
    "without-tool": ({"kxtool_report_script": ["/nonexistent/report"]},
                     "/nonexistent/report cannot be run: No such file or directory"),
    "without-endpoint": ({"kx_scenario": "nonexistent"}, "kxtool-report ended with code 125"),
    "killed": ({"kxtool_report_script": ["/bin/sh", "-c", "kill -9 $$"]}, "ended by signal 9"),
}


@dataclasses.dataclass
class Outcome:
    """The outcome of a playbook run: for each host, Ansible's counts and the result of the last task."""

    counts: dict[str, dict[str, int]]
    results: dict[str, dict[str, Any]]

    def hosts_with(self, what: str) -> list[str]:
        return sorted(host for host, counts in self.counts.items() if counts[what])


@unittest.skipUnless(shutil.which("ansible-playbook") and shutil.which("ssh"),
                     "no ansible-playbook or ssh")
class AnsibleCase(unittest.TestCase):
    maxDiff = None

    def setUp(self) -> None:
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)

    def run_command(self, *words: str, **variables: str) -> subprocess.CompletedProcess:
        """Runs a command of Ansible in the example's folder."""
        environment = {**os.environ, "HOME": str(self.folder), "LC_ALL": "C.UTF-8",
                       "ANSIBLE_REMOTE_TEMP": str(self.folder / "remote"),
                       "ANSIBLE_LOCALHOST_WARNING": "False", "ANSIBLE_FORKS": "6", **variables}
        return subprocess.run(words, cwd=EXAMPLE, env=environment, capture_output=True, text=True,
                              check=False, timeout=500)

    def play(self, hosts: dict[str, dict[str, Any]], *words: str) -> Outcome:
        """Runs the playbook for these hosts."""
        given = self.folder / "hosts.json"
        given.write_text(json.dumps({"macs": {"hosts": hosts}}), encoding="utf-8")
        results = self.folder / "results"
        run = self.run_command(
            "ansible-playbook", "-i", "simulated.yml", "-i", str(given), "site.yml",
            "--limit", ",".join(hosts), "-e", f"kx_build={BUILD}", *words,
            ANSIBLE_CALLBACKS_ENABLED="tree", ANSIBLE_CALLBACK_TREE_DIR=str(results))
        recap = {host: {name: int(count) for name, count in re.findall(r"(\w+)=(\d+)", counts)}
                 for host, counts in re.findall(r"^([\w-]+) +: (ok=.*)$", run.stdout, re.MULTILINE)}
        self.assertEqual(set(recap), set(hosts), run.stdout + run.stderr)
        return Outcome(recap, {host: json.loads((results / host).read_text(encoding="utf-8"))
                               for host in hosts})


class Fleet(AnsibleCase):
    def test_reports_of_a_fleet(self) -> None:
        hosts = {scenario: {"kx_scenario": scenario} for scenario in REPORTS}
        hosts |= {"unreachable": UNREACHABLE} | {host: variables for host, (variables, _) in FAILING.items()}
        report = self.folder / "report.json"
        outcome = self.play(hosts, "-e", f"kxtool_report={report}")

        written = json.loads(report.read_text(encoding="utf-8"))
        for host in hosts:
            with self.subTest(host=host):
                if host in REPORTS:
                    jsonschema.validate(written[host], SCHEMA)
                    self.assertEqual(written[host], {**written[host], **REPORTS[host]})
                else:
                    self.assertIsNone(written[host])
        self.assertEqual(set(written), set(hosts))
        self.assertEqual(outcome.hosts_with("failed"), sorted([*FAILING, "unreachable"]))
        self.assertEqual(outcome.hosts_with("changed"), [])
        self.assertEqual({host: outcome.results[host]["msg"] for host in FAILING},
                         {host: message for host, (_, message) in FAILING.items()})

    def test_report_without_any_answer(self) -> None:
        host, (variables, _) = next(iter(FAILING.items()))
        report = self.folder / "report.json"
        self.play({host: variables}, "-e", f"kxtool_report={report}")
        self.assertEqual(json.loads(report.read_text(encoding="utf-8")), {host: None})


@dataclasses.dataclass
class Action:
    """What a host does, and the expected outcome: whether it changes, its output or its failure, and whether
    check mode predicts a change."""

    scenario: str
    option: str
    arguments: list[str] = dataclasses.field(default_factory=list)
    max_age: int | None = None
    changed: bool = False
    output: str | None = None
    failure: str | None = None
    would_change: bool = False

    def variables(self) -> dict[str, Any]:
        return {"kx_scenario": self.scenario, "kxtool_option": self.option,
                "kxtool_arguments": self.arguments, "kxtool_max_age": self.max_age}


LONG, SHORT = 10 ** 9, 60
DETECTED = "1|62f0c1a8b7d3e45f90a1b2c3|5e8d7c6b5a4f3e2d1c0b9a88|4C4C4544-0051-3610-8052-C2C04F4D3532"
ACTIONS = {
    "asked": Action("critical-issues", "-hasCriticalIssues",
                    output="ProtectionOff|LicenceExpired"),
    "asked-secretly": Action("healthy", "-getinstallationlink",
                             ["-slUrl", "u", "-apiKey", "the-key", "-packageName", "p"]),
    "asked-wrongly": Action("healthy", "-getUpdateStatus", ["nowhere"], output="",
                            failure="-getUpdateStatus ended with code 22"),
    "to-install": Action("installer", "-runInstaller", ["/demo/package/Setup.pkg"], changed=True,
                         output=DETECTED, would_change=True),
    "installed": Action("healthy", "-runInstaller", ["/tmp/Setup.pkg"], output=DETECTED),
    "to-update": Action("healthy", "-STARTupdate", changed=True, output="0", would_change=True),
    "never-updated": Action("update-stale", "-startUpdate", max_age=LONG, changed=True, output="0",
                            would_change=True),
    "updated": Action("healthy", "-startUpdate", max_age=LONG),
    "to-scan": Action("scan-started", "-startQuickScan", ["60"], max_age=SHORT, changed=True,
                      output="0", would_change=True),
    "scanned": Action("scan-failed", "-startFullScan", ["60"], max_age=LONG),
    "cannot-scan": Action("scan-failed", "-startFullScan", ["60"], would_change=True, output="5023",
                          failure="-startFullScan: the product's error is 5023"),
}


class Actions(AnsibleCase):
    def play_actions(self, *words: str) -> Outcome:
        return self.play({host: action.variables() for host, action in ACTIONS.items()}, *words)

    def test_are_done_where_due(self) -> None:
        outcome = self.play_actions()
        for host, action in ACTIONS.items():
            result = outcome.results[host]
            with self.subTest(host=host):
                self.assertEqual(result["changed"], action.changed)
                self.assertEqual(result.get("output"), action.output)
                self.assertEqual(result.get("msg"), action.failure)
        self.assertIn("censored", outcome.results["asked-secretly"])
        self.assertEqual(outcome.hosts_with("failed"),
                         sorted(host for host, action in ACTIONS.items() if action.failure))

    def test_are_predicted_in_check_mode(self) -> None:
        outcome = self.play_actions("--check")
        self.assertEqual({host: outcome.results[host]["changed"] for host in ACTIONS},
                         {host: action.would_change for host, action in ACTIONS.items()})
        self.assertEqual({host: outcome.results[host].get("output") for host in ACTIONS},
                         {host: action.output if host in ("asked", "asked-wrongly") else None
                          for host, action in ACTIONS.items()})
        self.assertEqual(outcome.hosts_with("failed"), ["asked-wrongly"])  # a question is asked


class Document(AnsibleCase):
    def test_module_is_documented(self) -> None:
        run = self.run_command("ansible-doc", "-M", "library", "-t", "module", "-j", "kxtool")
        self.assertEqual(run.returncode, 0, run.stderr)
        documented = json.loads(run.stdout)["kxtool"]["doc"]["options"]
        source = read("examples/ansible/library/kxtool.py")
        specified = re.findall(r'^        "(\w+)": {"type"', source, re.MULTILINE)
        self.assertEqual(sorted(documented), sorted(specified))

    def test_commands_do_what_the_document_says(self) -> None:
        (_, block), = blocks_of("examples/ansible/README.md", "sh")
        first, *commands = block.replace("\\\n", "").replace("/tmp/", f"{self.folder}/").splitlines()
        self.assertEqual(first, "cd examples/ansible")
        for command in commands:
            with self.subTest(command=command):
                program, *words = shlex.split(command)
                run = self.run_command(program, *words, "-e", f"kx_build={BUILD}")
                self.assertEqual(run.returncode, 0, run.stdout + run.stderr)
        report = json.loads((self.folder / "endpoints.json").read_text(encoding="utf-8"))
        self.assertEqual(report["update-failed"]["upToDate"], False)
        self.assertEqual(set(report), {"healthy", "update-failed", "not-installed"})


if __name__ == "__main__":
    unittest.main()
