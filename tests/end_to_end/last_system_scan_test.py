"""-getLastSystemScan on real files.

queries/last_system_scan_test.cc has the rules for names and times, queries/scan_summary_test.cc
those for the contents of a summary.
"""

from simulator import installation
from tests.end_to_end.harness import EndToEndCase

FULL = "3b7e91a0-5c42-4d18-9f6e-2a0c7d45e8b1"
QUICK = "8f05c2d6-71e9-4a3b-b2c4-6d19e0f37a5c"
BEGIN = ["Get last system scan", "Retrieve Quick and Full scan XMLs"]
END = ["Finished retrieving last system scan successfully",
       "Finished get last system scan with error code:0"]
NO_DURATION = 'Invalid XML. Could not find "duration" node'


def found(name, value):
    """The line for a summary that was read."""
    return f"Last system scan found for{installation.SCAN_LOGS}/{name}: {value}"


def summary(name, start, modified=1617185521, **more):
    """A scan summary."""
    return {"name": name, "summary": {"startTime": start, "duration": 0}, "modified": modified,
            **more}


def text(name, content):
    """A file of the scan-log directory."""
    return {"name": name, "text": content, "modified": 1617185521}


class ScanReport(EndToEndCase):
    """Compares answers and whole logs."""

    def check(self, scenario, code, output, log):
        run = self.run_tool("-getLastSystemScan", scenario=scenario)
        self.assert_answer(run, code, output)
        self.assert_log(run, log)
        self.assertEqual(run.calls, [])

    def test_both_kinds(self):
        self.check("healthy", 0, f"{FULL}=1784188195|{QUICK}=1784272861", [
            *BEGIN, found("1784186400_Full Scan.xml", 1784188195),
            found("1784272800_Quick Scan.xml", 1784272861), *END])

    def test_one_kind(self):
        self.check("scan-logs-full-only", 0, f"{FULL}=1617185520", [
            *BEGIN, found("9_Full Scan.xml", 1617185520), *END])

    def test_no_summary(self):
        self.check({"scanLogs": []}, 0, "", [*BEGIN, *END])

    def test_newest_summary_is_chosen(self):
        logs = [summary("1_Full Scan.xml", 300, nanoseconds=500),
                summary("2_Full Scan.xml", 200, nanoseconds=499),
                summary("Full Scan.xml", 100, modified=1617185999)]
        self.check({"scanLogs": logs}, 0, f"{FULL}=300",
                   [*BEGIN, found("1_Full Scan.xml", 300), *END])

    def test_no_directory(self):
        self.check("scan-logs-missing", 2, "", BEGIN[:1])

    def test_link_to_nothing(self):
        self.check({"scanLogs": [{"name": "1_Quick Scan.xml", "link": "nothing"}]}, 2, "", BEGIN)

    def test_nothing_is_printed_after_a_failure(self):
        broken = text("1_Quick Scan.xml", '<a><ScanSummary startTime="5"/></a>')
        self.check({"scanLogs": [summary("1_Full Scan.xml", 300), broken]}, 2, "",
                   [*BEGIN, found("1_Full Scan.xml", 300), NO_DURATION])

    def test_text_that_is_not_xml_ends_the_process_abnormally(self):
        run = self.run_tool("-getLastSystemScan",
                            scenario={"scanLogs": [text("1_Full Scan.xml", "scanned\n")]})
        self.assertEqual((run.status, run.output, run.log), (128 + 6, b"", BEGIN))
