"""The Ansible role: a fleet of simulated endpoints in one playbook run, check mode, repetition, and
the commands that its document shows."""

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

from tests.documents import option_table

ROOT = Path(__file__).resolve().parents[2]
BUILD = Path(os.environ.get("KX_BUILD", ROOT / "build" / "release")).resolve()
EXAMPLE = ROOT / "examples" / "ansible"
SCHEMA = json.loads((ROOT / "docs" / "report.schema.json").read_text(encoding="utf-8"))
MODULE = EXAMPLE / "roles" / "kxtool" / "library" / "kxtool.py"

# Of each scenario, how many of the fleet are so; and members of what is to be known of them.
FLEET = {
    "healthy": (6, {"state": "healthy", "productVersion": "7.16.42.200137", "problems": []}),
    "update-failed": (6, {"state": "healthy", "upToDate": False}),
    "not-installed": (12, {"state": "not installed", "productVersion": None}),
    "critical-issues": (4, {"state": "not healthy", "criticalIssues": ["ProtectionOff", "LicenceExpired"]}),
    "services-missing": (4, {"state": "not healthy", "criticalIssues": []}),
    "features-of-every-kind": (3, {"state": "healthy"}),
    "library-other-team": (3, {"state": "not healthy", "features": None}),
    "method-error": (4, {"state": "not healthy", "upToDate": None}),
}
# Hosts of which nothing can be known, and why.
UNREACHABLE = {"ansible_connection": "ssh", "ansible_host": "127.0.0.1", "ansible_port": 1}
FAILING = {
    "without-tool-1": ({"kxtool_report_script": ["/nonexistent/report"]},
                       "/nonexistent/report cannot be run: No such file or directory"),
    "without-tool-2": ({"kxtool_report_script": ["/dev/null"]},
                       "/dev/null cannot be run: Permission denied"),
    "misled": ({"kx_scenario": "nonexistent"}, "kxtool-report ended with code 125"),
    "killed": ({"kxtool_report_script": ["/bin/sh", "-c", "kill -9 $$"]}, "ended by signal 9"),
}


@dataclasses.dataclass
class Account:
    """What came of a run of the playbook: by host, Ansible's counts and the last task's result."""

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

    def play(self, hosts: dict[str, dict[str, Any]], *words: str) -> Account:
        """Runs the playbook for these hosts."""
        given = self.folder / "hosts.json"
        given.write_text(json.dumps({"macs": {"hosts": hosts}}), encoding="utf-8")
        results = self.folder / "results"
        run = self.run_command(
            "ansible-playbook", "-i", "simulated.yml", "-i", str(given), "site.yml",
            "--limit", ",".join([*hosts, "localhost"]), "-e", f"kx_build={BUILD}", *words,
            ANSIBLE_CALLBACKS_ENABLED="tree", ANSIBLE_CALLBACK_TREE_DIR=str(results))
        recap = {host: {name: int(count) for name, count in re.findall(r"(\w+)=(\d+)", counts)}
                 for host, counts in re.findall(r"^([\w-]+) +: (ok=.*)$", run.stdout, re.MULTILINE)}
        self.assertEqual(set(recap) - {"localhost"}, set(hosts), run.stdout + run.stderr)
        return Account(recap, {host: json.loads((results / host).read_text(encoding="utf-8"))
                               for host in hosts})


class Fleet(AnsibleCase):
    def test_fifty_endpoints_in_one_run(self) -> None:
        hosts = {f"{scenario}-{number}": {"kx_scenario": scenario}
                 for scenario, (count, _) in FLEET.items() for number in range(count)}
        known = {host: FLEET[variables["kx_scenario"]][1] for host, variables in hosts.items()}
        unreachable = [f"unreachable-{number}" for number in range(4)]
        hosts.update(dict.fromkeys(unreachable, UNREACHABLE))
        hosts.update((host, variables) for host, (variables, _) in FAILING.items())
        self.assertEqual(len(hosts), 50)

        report = self.folder / "report.json"
        account = self.play(hosts, "-e", f"kxtool_report={report}")

        written = json.loads(report.read_text(encoding="utf-8"))
        for host in hosts:
            with self.subTest(host=host):
                if host in known:
                    jsonschema.validate(written[host], SCHEMA)
                    self.assertEqual(written[host], {**written[host], **known[host]})
                else:
                    self.assertIsNone(written[host])
        self.assertEqual(account.hosts_with("unreachable"), unreachable)
        self.assertEqual(account.hosts_with("failed"), sorted(FAILING))
        self.assertEqual(account.hosts_with("changed"), ["localhost"])  # the report was written
        self.assertEqual({host: account.results[host]["msg"] for host in FAILING},
                         {host: message for host, (_, message) in FAILING.items()})


@dataclasses.dataclass
class Deed:
    """What a host is to do, and what is to come of it: a change, an output or the reason for its
    absence, and what check mode says of the change."""

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
DEEDS = {
    "asked": Deed("critical-issues", "-hasCriticalIssues",
                  output="ProtectionOff|LicenceExpired"),
    "asked-secretly": Deed("healthy", "-getInstallationLink",
                           ["-slUrl", "u", "-apiKey", "the-key", "-packageName", "p"]),
    "asked-wrongly": Deed("healthy", "-getUpdateStatus", ["nowhere"], output="",
                          failure="-getUpdateStatus ended with code 22"),
    "to-install": Deed("installer", "-runInstaller", ["/demo/package/Setup.pkg"], changed=True,
                       output=DETECTED, would_change=True),
    "installed": Deed("healthy", "-runInstaller", ["/tmp/Setup.pkg"], output=DETECTED),
    "to-update": Deed("healthy", "-startUpdate", changed=True, output="0", would_change=True),
    "never-updated": Deed("update-stale", "-startUpdate", max_age=LONG, changed=True, output="0",
                          would_change=True),
    "updated": Deed("healthy", "-startUpdate", max_age=LONG),
    "to-scan": Deed("scan-started", "-startQuickScan", ["60"], max_age=SHORT, changed=True,
                    output="0", would_change=True),
    "scanned": Deed("scan-failed", "-startFullScan", ["60"], max_age=LONG),
    "cannot-scan": Deed("scan-failed", "-startFullScan", ["60"], would_change=True, output="5023",
                        failure="-startFullScan: the product's error is 5023"),
}


class Deeds(AnsibleCase):
    def play_deeds(self, *words: str) -> Account:
        return self.play({host: deed.variables() for host, deed in DEEDS.items()}, *words)

    def test_are_done_where_they_are_due(self) -> None:
        account = self.play_deeds()
        for host, deed in DEEDS.items():
            result = account.results[host]
            with self.subTest(host=host):
                self.assertEqual(result["changed"], deed.changed)
                self.assertEqual(result.get("output"), deed.output)
                self.assertEqual(result.get("msg"), deed.failure)
        self.assertIn("censored", account.results["asked-secretly"])
        self.assertEqual(account.hosts_with("failed"),
                         sorted(host for host, deed in DEEDS.items() if deed.failure))

    def test_are_foretold_in_check_mode(self) -> None:
        account = self.play_deeds("--check")
        self.assertEqual({host: account.results[host]["changed"] for host in DEEDS},
                         {host: deed.would_change for host, deed in DEEDS.items()})
        self.assertEqual({host: account.results[host].get("output") for host in DEEDS},
                         {host: deed.output if host in ("asked", "asked-wrongly") else None
                          for host, deed in DEEDS.items()})
        self.assertEqual(account.hosts_with("failed"), ["asked-wrongly"])  # a question is asked


class Document(AnsibleCase):
    def test_module_takes_options_that_the_tool_has(self) -> None:
        run = self.run_command("ansible-doc", "-M", str(MODULE.parent), "-t", "module", "-j",
                               "kxtool")
        self.assertEqual(run.returncode, 0, run.stderr)
        choices = json.loads(run.stdout)["kxtool"]["doc"]["options"]["option"]["choices"]
        self.assertEqual(set(choices) - {option.name for option in option_table.options()}, set())

    def test_module_allows_the_time_that_the_guide_says(self) -> None:
        source = MODULE.read_text(encoding="utf-8")
        limits = {option: int(limit) for option, limit in
                  re.findall(r'^    "(-\w+)": \((\d+), ', source, re.MULTILINE)}
        guide = (ROOT / "docs" / "rmm-integration.md").read_text(encoding="utf-8")
        rows = re.findall(r"^\| (.*?) \| .*? \| ((?:\d+ \w+ ?)+) \|", guide, re.MULTILINE)
        seconds = {"s": 1, "min": 60, "h": 3600}
        allowed = {}
        for options, limit in rows:
            time = sum(int(count) * seconds[unit]
                       for count, unit in re.findall(r"(\d+) (\w+)", limit))
            named = re.findall(r"`(-\w+)`", options)
            allowed.update(dict.fromkeys(named, time))
            if "status queries" in options:
                others = time
        self.assertEqual(limits, {option: allowed.get(option, others) for option in limits})
        self.assertGreater(len(limits), 10)

    def test_commands_do_what_they_are_shown_for(self) -> None:
        text = (EXAMPLE / "README.md").read_text(encoding="utf-8")
        shown = re.search(r"^```sh\ncd examples/ansible\n(.*?)^```$", text, re.M | re.S)[1]
        for command in shown.replace("/tmp/", f"{self.folder}/").splitlines():
            with self.subTest(command=command):
                program, *words = shlex.split(command)
                run = self.run_command(program, *words, "-e", f"kx_build={BUILD}")
                self.assertEqual(run.returncode, 0, run.stdout + run.stderr)
        report = json.loads((self.folder / "endpoints.json").read_text(encoding="utf-8"))
        self.assertEqual(report["update-failed"]["upToDate"], False)
        self.assertEqual(set(report), {"healthy", "update-failed", "not-installed"})


if __name__ == "__main__":
    unittest.main()
