"""The ready-made files for device management: what the scripts print, and that the configurations can be
parsed and name what the package installs."""

import json
import plistlib
import re
import sqlite3
from pathlib import Path

from simulator import installation
from tests.documents.pages import ROOT, blocks_of, read
from tests.end_to_end.harness import EndToEndCase

GUIDE = "docs/deployment.md"
INSTALLED = "/usr/local/libexec/kxtool"
REPORT = "/var/db/kxtool/report.json"
CONDITIONS = "/Library/Managed Installs/ConditionalItems"


def example(name: str) -> str:
    """An example, with the tool where it is on an endpoint."""
    return read(f"examples/{name}").replace(INSTALLED, installation.TOOL_DIRECTORY)


def plist_of(name: str) -> dict:
    return plistlib.loads(example(name).encode())


class ScriptsTest(EndToEndCase):
    maxDiff = None

    def output_on(self, scenario: str, script: str) -> str:
        with self.endpoint(scenario=scenario) as endpoint:
            path = f"{installation.WORKING_DIRECTORY}/script.sh"
            endpoint.path(path).write_text(script, encoding="utf-8")
            run = self.run_script_on(endpoint, f"$FAST /bin/sh {path}")
        self.assertEqual((run.status, run.errors), (0, b""))
        return run.output.decode()

    def attribute(self, member: str, scenario: str, folder: str = installation.TOOL_DIRECTORY) -> str:
        script = re.sub("(?m)^member=.*$", f"member={member}", example("jamf/extension-attribute.sh"))
        output = self.output_on(scenario, script.replace(installation.TOOL_DIRECTORY, folder))
        return re.fullmatch("<result>(.*)</result>\n", output)[1]

    def condition(self, scenario: str) -> dict[str, str]:
        """The keys that the condition writes, with their values."""
        script = example("munki/kxtool-condition.sh") + f"defaults read '{CONDITIONS}'\n"
        written = self.output_on(scenario, script)
        return dict(re.findall(r'^ +"(\w+)" = "?(.*?)"?;$', written, re.MULTILINE))

    def test_tables_of_the_guide(self) -> None:
        tables = re.findall(r"^\| endpoint \| (.*) \|\n\|---.*\n((?:\|.*\n)*)", read(GUIDE), re.MULTILINE)
        self.assertEqual(len(tables), 2)
        for head, rows in tables:
            columns = re.findall(r"`(\w+)`", head)
            for row in rows.splitlines():
                scenario, *cells = [cell.strip(" `") for cell in row.strip("|").split("|")]
                with self.subTest(scenario=scenario, columns=columns):
                    if columns[0].startswith("kxtool_"):
                        written = self.condition(scenario)
                        self.assertEqual([written.get(column, "not set") for column in columns], cells)
                    else:
                        self.assertEqual([self.attribute(column, scenario) for column in columns], cells)

    def test_extension_attributes(self) -> None:
        alerts = {"</result><b>&amp;": {"severity": "critical"}}
        tags = {"sdk": {"answers": {"Product.GetStatus": {"output": {"Alerts": alerts}}}}}
        for member, scenario, text in (
                ("productVersion", "healthy", "7.16.42.200137"),
                ("company", "not-installed", "not installed"),
                ("lastFullScan", "healthy", "1784188195"),
                ("updateErrors", "update-failed",
                 "location: antimalware, error: -1, location: webfilter, error: 1005"),
                ("criticalIssues", tags, "_/result__b__amp;"),
                ("upToDate", "library-other-team", "unknown"),
                ("nonsense", "healthy", "no such member: nonsense")):
            with self.subTest(member=member):
                self.assertEqual(self.attribute(member, scenario), text)
        self.assertEqual(self.attribute("state", "healthy", "/nonexistent"), "no report")

    def test_condition_without_an_answer(self) -> None:
        self.assertEqual(self.condition("library-other-team"), {"kxtool_state": "unknown"})

    def test_daemon_keeps_the_report(self) -> None:
        name = "com.corvane.kxtool-report"
        daemon = plist_of(f"launchd/{name}.plist")
        self.assertEqual((daemon["Label"], daemon["Umask"]), (name, 0o022))
        program, option, script = daemon["ProgramArguments"]
        self.assertEqual((program, option), ("/bin/sh", "-c"))
        folder = f"{installation.WORKING_DIRECTORY}/reports"
        with self.endpoint(scenario="not-installed") as endpoint:
            script = script.replace(str(Path(REPORT).parent), folder)
            run = self.run_script_on(endpoint, f"export PATH; {script}")
            kept = {path.name: path.read_text() for path in endpoint.path(folder).iterdir()}
        self.assertEqual((run.output, run.errors, list(kept)), (b"", b"", ["report.json"]))
        self.assertEqual(json.loads(kept["report.json"])["state"], "not installed")

    def test_log_is_rotated(self) -> None:
        """The fields of the line are those of newsyslog.conf(5)."""
        line, = [line for line in example("newsyslog/kxtool.conf").splitlines() if not line.startswith("#")]
        path, owner, mode, count, size, when, flags = line.split()
        self.assertEqual((path, owner, when, set(flags)), (installation.LOG, "root:wheel", "*", {"B", "N"}))
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


class NamesTest(EndToEndCase):
    def test_pkginfo_describes_the_package(self) -> None:
        pkginfo = plist_of("munki/KXTool.plist")
        info = plistlib.loads(read("app/Info.plist").encode())
        version = info["RMMToolVersion"]
        self.assertEqual(pkginfo["version"], version)
        self.assertEqual(pkginfo["receipts"], [{"packageid": "com.corvane.KXTool", "version": version}])
        self.assertEqual(pkginfo["minimum_os_version"], info["LSMinimumSystemVersion"])
        common = read("packaging/macos/payload.sh")
        self.assertIn("identifier=com.corvane.KXTool\n", common)
        self.assertIn(f"install_directory={INSTALLED}\n", common)

    def test_commands_name_existing_files(self) -> None:
        """The commands need a Mac, but the names in them can be compared."""
        files = {path.name for path in (ROOT / "examples").rglob("*")}
        package = plist_of("munki/KXTool.plist")["installer_item_location"]
        for _, block in blocks_of(GUIDE, "shell"):
            for word in block.split():
                name = word.rpartition("/")[2]
                if name.endswith(".pkg"):
                    self.assertEqual(name, package)
                elif name.endswith((".plist", ".conf")):
                    self.assertIn(name, files)
                elif word.startswith("/usr/local"):
                    self.assertTrue(word.startswith(f"{INSTALLED}/"), word)

    def test_attribute_knows_the_members(self) -> None:
        cases = re.findall(r"^  ([\w| ]+)\) group=", example("jamf/extension-attribute.sh"), re.MULTILINE)
        members = set(json.loads(read("docs/report.schema.json"))["properties"])
        self.assertEqual(set(" | ".join(cases).split(" | ")), members - {"reportVersion", "time", "problems"})

    def test_query_finds_the_members(self) -> None:
        """In a table with the columns that Fleet documents for parse_json."""
        (_, query), = blocks_of(GUIDE, "sql")
        self.assertIn(f"cd {Path(REPORT).parent} ",
                      plist_of("launchd/com.corvane.kxtool-report.plist")["ProgramArguments"][2])
        schema = json.loads(read("docs/report.schema.json"))
        database = sqlite3.connect(":memory:")
        database.execute("CREATE TABLE parse_json (path, fullkey, parent, key, value)")
        database.executemany("INSERT INTO parse_json VALUES (?, ?, '', ?, 'x')",
                             [(REPORT, member, member) for member in schema["properties"]])
        found = dict(database.execute(query))
        self.assertEqual(set(found), set(re.findall(r"'(\w+)'", query)))
