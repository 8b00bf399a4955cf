"""The ready-made files for device management: what the scripts say of endpoints in four states, and that the
configurations can be parsed and name what the package installs."""

import json
import plistlib
import re
import sqlite3
import tempfile
import unittest
from pathlib import Path

from simulator import installation
from tests.end_to_end.harness import ROOT, EndToEndCase, ToolRun

EXAMPLES = ROOT / "examples"
INSTALLED = "/usr/local/libexec/kxtool"
IDENTIFIER = "com.corvane.KXTool"
STATES = ("healthy", "update-failed", "critical-issues", "not-installed")


def text_of(name: str) -> str:
    """An example, with the tool where it lies on an endpoint."""
    return (EXAMPLES / name).read_text(encoding="utf-8").replace(INSTALLED, installation.TOOL_DIRECTORY)


def plist_of(name: str) -> dict:
    return plistlib.loads(text_of(name).encode())


class ScriptsTest(EndToEndCase):
    maxDiff = None

    def output_on(self, scenario: str, script: str, **options) -> str:
        with self.endpoint(scenario=scenario, **options) as endpoint:
            path = f"{installation.WORKING_DIRECTORY}/script.sh"
            endpoint.path(path).write_text(script, encoding="utf-8")
            run = self.run_script_on(endpoint, f"$FAST /bin/sh {path}")
        self.assertEqual((run.status, run.errors), (0, b""))
        return run.output.decode()

    def attribute(self, member: str, scenario: str) -> str:
        script = re.sub("(?m)^member=.*$", f"member={member}", text_of("jamf/extension-attribute.sh"))
        return re.fullmatch("<result>(.*)</result>\n", self.output_on(scenario, script))[1]

    def test_extension_attributes(self) -> None:
        self.assertEqual({member: [self.attribute(member, state) for state in STATES] for member in (
            "state", "productVersion", "upToDate", "criticalIssues", "updateErrors")}, {
                "state": ["healthy", "healthy", "not healthy", "not installed"],
                "productVersion": ["7.16.42.200137", "7.16.42", "7.16.42", "not installed"],
                "upToDate": ["true", "false", "true", "not installed"],
                "criticalIssues": ["none", "none", "ProtectionOff, LicenceExpired", "not installed"],
                "updateErrors": ["none", "location: antimalware, error: -1, location: webfilter, error: 1005",
                                 "none", "not installed"]})

    def test_extension_attributes_without_an_answer(self) -> None:
        self.assertEqual(self.attribute("upToDate", "library-other-team"), "unknown")
        script = text_of("jamf/extension-attribute.sh").replace(installation.TOOL_DIRECTORY, "/nonexistent")
        self.assertEqual(self.output_on("healthy", script), "<result>no report</result>\n")

    def test_extension_attributes_hold_no_tags(self) -> None:
        alerts = {"</result><b>&amp;": {"severity": "critical"}}
        scenario = {"sdk": {"answers": {"Product.GetStatus": {"output": {"Alerts": alerts}}}}}
        self.assertEqual(self.attribute("criticalIssues", scenario), "_/result__b__amp;")

    def condition(self, scenario: str) -> list[str]:
        with tempfile.NamedTemporaryFile("w", suffix=".sh") as defaults:
            defaults.write('#!/bin/sh\ncase $1 in\n  read) echo /managed ;;\n  *) echo "$@" ;;\nesac\n')
            defaults.flush()
            Path(defaults.name).chmod(0o755)
            output = self.output_on(scenario, text_of("munki/kxtool-condition.sh"),
                                    programs={"/usr/bin/defaults": Path(defaults.name)})
        start = "write /managed/ConditionalItems kxtool_"
        return [line.removeprefix(start) for line in output.splitlines()]

    def test_condition(self) -> None:
        self.assertEqual([self.condition(state) for state in (*STATES, "library-other-team")], [
            ["state -string current", "issues -int 0"], ["state -string outdated", "issues -int 0"],
            ["state -string current", "issues -int 2"], ["state -string not installed"],
            ["state -string unknown"]])

    def run_daemon(self, scenario: str) -> tuple[ToolRun, str]:
        program, *words = plist_of("launchd/com.corvane.kxtool-report.plist")["ProgramArguments"]
        self.assertEqual((program, words[0]), ("/bin/sh", "-c"))
        folder = f"{installation.WORKING_DIRECTORY}/reports"
        with self.endpoint(scenario=scenario) as endpoint:
            run = self.run_script_on(endpoint, f"export PATH; {words[1].replace('/var/db/kxtool', folder)}")
            kept = {path.name: path.read_text() for path in endpoint.path(folder).iterdir()}
        self.assertEqual(list(kept), ["report.json"])
        return run, kept["report.json"]

    def test_daemon_keeps_the_report(self) -> None:
        run, report = self.run_daemon("not-installed")
        self.assertEqual((run.output, run.errors), (b"", b""))
        self.assertEqual(json.loads(report)["state"], "not installed")


class DocumentTest(EndToEndCase):
    GUIDE = (ROOT / "docs" / "deployment.md").read_text(encoding="utf-8")

    def blocks(self, mark: str) -> list[str]:
        return re.findall(rf"^```{mark}\n(.*?)^```$", self.GUIDE, re.MULTILINE | re.DOTALL)

    def test_commands_are_about_the_package_and_the_examples(self) -> None:
        """They need a Mac; what they name can be compared."""
        known = {"pkgutil", "spctl", "codesign", "installer", f"{INSTALLED}/KXTool", "install", "launchctl",
                 "echo", "rm", "newsyslog"}
        files = {path.name for path in EXAMPLES.rglob("*")}
        version = plist_of("munki/KXTool.plist")["installer_item_location"]
        for line in "".join(self.blocks("shell")).splitlines():
            words = line.removeprefix("sudo ").split()
            self.assertIn(words[0], known)
            for word in words[1:]:
                name = word.rpartition("/")[2]
                if name.endswith(".pkg"):
                    self.assertEqual(name, version)
                elif name.endswith((".plist", ".conf")):
                    self.assertIn(name, files)
                elif word.startswith("/usr/local"):
                    self.assertTrue(word.startswith(f"{INSTALLED}/"), word)

    def test_query_finds_the_members(self) -> None:
        """In a table with the columns that Fleet documents for parse_json."""
        query, = self.blocks("sql")
        path = "/var/db/kxtool/report.json"
        self.assertIn("cd /var/db/kxtool ", plist_of("launchd/com.corvane.kxtool-report.plist")["ProgramArguments"][2])
        schema = json.loads((ROOT / "docs" / "report.schema.json").read_text(encoding="utf-8"))
        database = sqlite3.connect(":memory:")
        database.execute("CREATE TABLE parse_json (path, fullkey, parent, key, value)")
        database.executemany("INSERT INTO parse_json VALUES (?, ?, '', ?, 'x')",
                             [(path, member, member) for member in schema["properties"]])
        found = dict(database.execute(query))
        self.assertEqual(set(found), set(re.findall(r"'(\w+)'", query)))

    def test_tables_are_what_the_scripts_say(self) -> None:
        attributes, conditions = ScriptsTest("attribute"), ScriptsTest("condition")
        for table, answer in (
                ("upToDate", lambda state: [attributes.attribute(member, state)
                                            for member in ("state", "upToDate", "criticalIssues")]),
                ("kxtool_issues", lambda state: [
                    line.rpartition(" -")[2].partition(" ")[2] for line in conditions.condition(state)])):
            rows = re.search(rf"^\| endpoint \|.*`{table}`.*\n\|---.*\n((?:\|.*\n)*)", self.GUIDE, re.MULTILINE)[1]
            for row in rows.splitlines():
                state, *cells = [cell.strip(" `") for cell in row.strip("|").split("|")]
                self.assertEqual([cell for cell in cells if cell != "not set"], answer(state), state)


class NoticesTest(unittest.TestCase):
    def test_name_what_is_linked(self) -> None:
        """The static libraries of the release build, and what consists of headers alone."""
        notices = (ROOT / "packaging" / "NOTICES").read_text(encoding="utf-8").lower()
        libraries = {name for description in (ROOT / "platform").rglob("CMakeLists.txt")
                     for name in re.findall(r"\blib(\w+)\.a\b|find_package\((OpenSSL)", description.read_text())}
        names = {library.lower() or package.lower() for library, package in libraries}
        self.assertLessEqual({"openssl", "uuid"}, names)
        for name in names | {"rapidjson", "rapidxml", "libstdc++", "libgcc"}:
            self.assertIn(name, notices)


class ConfigurationsTest(EndToEndCase):
    def test_pkginfo_is_about_the_package(self) -> None:
        pkginfo = plist_of("munki/KXTool.plist")
        with open(ROOT / "app" / "Info.plist", "rb") as file:
            info = plistlib.load(file)
        version = info["RMMToolVersion"]
        self.assertEqual(pkginfo["version"], version)
        self.assertEqual(pkginfo["receipts"], [{"packageid": IDENTIFIER, "version": version}])
        self.assertIn(version, pkginfo["installer_item_location"])
        self.assertEqual(pkginfo["minimum_os_version"], info["LSMinimumSystemVersion"])
        common = (ROOT / "packaging" / "macos" / "common.sh").read_text(encoding="utf-8")
        self.assertIn(f"identifier={IDENTIFIER}\n", common)
        self.assertIn(f"install_directory={INSTALLED}\n", common)

    def test_daemon_is_named_like_its_file(self) -> None:
        name = "com.corvane.kxtool-report"
        daemon = plist_of(f"launchd/{name}.plist")
        self.assertEqual(daemon["Label"], name)
        self.assertEqual(daemon["Umask"], 0o022)

    def test_log_is_rotated(self) -> None:
        """By the fields of the line as newsyslog.conf(5) names them."""
        line, = [line for line in text_of("newsyslog/kxtool.conf").splitlines() if not line.startswith("#")]
        path, owner, mode, count, size, when, flags = line.split()
        self.assertEqual((path, owner, when), (installation.LOG, "root:wheel", "*"))
        self.assertEqual(set(flags), {"B", "N"})
        self.assertTrue(count.isdigit() and size.isdigit())
        with self.endpoint() as endpoint:
            self.run_tool_on(endpoint, "-getVersion")
            log = endpoint.path(installation.LOG)
            old = log.rename(log.with_name("log.txt.0")).read_bytes()
            log.touch(int(mode, 8))
            run = self.run_tool_on(endpoint, "-isUpToDate")
            self.assertEqual(log.with_name("log.txt.0").read_bytes(), old)
            self.assertEqual(log.stat().st_mode & 0o777, int(mode, 8))
        self.assertEqual(run.log[0], "Checking if ORVEX is up to date")


if __name__ == "__main__":
    unittest.main()
