"""The programs that the integration guide shows, run on simulated endpoints."""

import re
import shlex

from simulator.installation import TOOL_DIRECTORY
from tests.documents.option_table import ROOT
from tests.end_to_end.harness import EndToEndCase

GUIDE = (ROOT / "docs" / "rmm-integration.md").read_text(encoding="utf-8")


def program_in(language: str) -> str:
    found = re.findall(rf"^```{language}\n(.*?)^```$", GUIDE, re.MULTILINE | re.DOTALL)
    if len(found) != 1:
        raise AssertionError(f"the guide has {len(found)} programs in {language}")
    return found[0].replace("/usr/local/libexec/kxtool", TOOL_DIRECTORY)


class IntegrationTest(EndToEndCase):
    def output_on(self, scenario: str, script: str) -> str:
        with self.endpoint(scenario=scenario) as endpoint:
            run = self.run_script_on(endpoint, f"exec $FAST {script}")
        self.assertEqual((run.status, run.errors), (0, b""))
        return run.output.decode()

    def test_shell(self) -> None:
        script = f"/bin/sh -c {shlex.quote(program_in('sh'))}"
        self.assertEqual({scenario: self.output_on(scenario, script) for scenario in (
            "healthy", "update-failed", "not-installed", "library-other-team")}, {
                "healthy": "up to date\n", "update-failed": "not up to date\n",
                "not-installed": "not installed\n", "library-other-team": "no answer\n"})

    def test_python(self) -> None:
        script = f"/usr/bin/python3 -c {shlex.quote(program_in('python'))}"
        refusal = "the product's library is not validly signed by its maker\n"
        self.assertEqual({scenario: self.output_on(scenario, script) for scenario in (
            "healthy", "critical-issues", "update-failed", "not-installed", "library-other-team")}, {
                "healthy": "state: healthy\n",
                "critical-issues": "state: not healthy\ncritical issue: ProtectionOff\n"
                                   "critical issue: LicenceExpired\n",
                "update-failed": "state: healthy\nupdate of antimalware failed: -1\n"
                                 "update of webfilter failed: 1005\n",
                "not-installed": "state: not installed\n",
                "library-other-team": "state: not healthy\n" + "".join(
                    f"{question}: {refusal}" for question in (
                        "-getProductVersion", "-isUpToDate", "-getLastUpdate", "-checkForUpdateErrors",
                        "-getUpdateLocations", "-hasCriticalIssues", "-getFeatureStatus"))})
