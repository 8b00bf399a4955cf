"""The programs that the integration guide shows, run on simulated endpoints."""

import json
import re
import shlex
from typing import Any

from tests.documents.option_table import ROOT
from tests.end_to_end.harness import EndToEndCase

GUIDE = (ROOT / "docs" / "rmm-integration.md").read_text(encoding="utf-8")


def program_in(language: str) -> str:
    found = re.findall(rf"^```{language}\n(.*?)^```$", GUIDE, re.MULTILINE | re.DOTALL)
    if len(found) != 1:
        raise AssertionError(f"the guide has {len(found)} programs in {language}")
    return found[0]


class IntegrationTest(EndToEndCase):
    def assert_shell(self, scenario: str, expected: str) -> None:
        with self.endpoint(scenario=scenario) as endpoint:
            run = self.run_script_on(endpoint, program_in("sh"))
        self.assertEqual((run.output.decode(), run.errors), (expected, b""))

    def test_shell(self) -> None:
        self.assert_shell("healthy", "version 7.16.42.200137\n")
        self.assert_shell("update-failed", "version 7.16.42\n"
                          "not up to date: antimalware=-1|webfilter=1005\n")
        self.assert_shell("not-installed", "not installed\n")
        self.assert_shell("library-other-team", "no answer: code 22\n")

    def facts(self, scenario: str) -> dict[str, Any]:
        script = f"exec $FAST TOOL=$TOOL /usr/bin/python3 -c {shlex.quote(program_in('python'))}"
        with self.endpoint(scenario=scenario) as endpoint:
            run = self.run_script_on(endpoint, script)
        self.assertEqual((run.status, run.errors), (0, b""))
        return json.loads(run.output)

    def test_python(self) -> None:
        identity = {"company": "62f0c1a8b7d3e45f90a1b2c3", "group": "5e8d7c6b5a4f3e2d1c0b9a88",
                    "endpoint": "4C4C4544-0051-3610-8052-C2C04F4D3532"}
        features = {"antimalware": "1", "webfilter": "1", "deviceControl": "1", "encryption": "0"}
        self.assertEqual(self.facts("healthy"), {
            "state": "healthy", **identity, "updateErrors": {}, "features": features})
        self.assertEqual(self.facts("update-failed"), {
            "state": "healthy", **identity,
            "updateErrors": {"antimalware": "-1", "webfilter": "1005"}, "features": {}})
        self.assertEqual(self.facts("not-installed"), {"state": "not installed"})
        self.assertEqual(self.facts("library-other-team"), {
            "state": "not healthy", **identity, "updateErrors": "code 22", "features": "code 22"})
