"""-getLastSystemScan: which scan summaries are chosen, and what is read from them."""

import os

from simulator import installation
from tests.end_to_end.harness import EndToEndCase, needs_sandbox

FULL = "3b7e91a0-5c42-4d18-9f6e-2a0c7d45e8b1"
QUICK = "8f05c2d6-71e9-4a3b-b2c4-6d19e0f37a5c"
BEGIN = ["Get last system scan", "Retrieve Quick and Full scan XMLs"]
END = ["Finished retrieving last system scan successfully",
       "Finished get last system scan with error code:0"]


def found(name, value):
    """The line for a summary that was read."""
    return f"Last system scan found for{installation.SCAN_LOGS}/{name}: {value}"


def log(name, text, modified=1617185521):
    """A file of the scan-log directory for a scenario."""
    return {"name": name, "text": text, "modified": modified}


def summary(name, start, duration=0, modified=1617185521, **more):
    """A scan summary."""
    return {"name": name, "summary": {"startTime": start, "duration": duration},
            "modified": modified, **more}


def logs(*files):
    """The scan-log directory holds these files."""
    return {"scanLogs": list(files)}


class ScanReportCase(EndToEndCase):
    """Compares answers and whole logs."""

    def reported(self, scenario, output, *lines):
        run = self.run_tool("-getLastSystemScan", scenario=scenario)
        self.assert_answer(run, 0, output)
        self.assert_log(run, [*BEGIN, *lines, *END])
        self.assertEqual(run.calls, [])

    def failed(self, scenario, code, lines):
        run = self.run_tool("-getLastSystemScan", scenario=scenario)
        self.assert_answer(run, code, "")
        self.assert_log(run, lines)


class Choice(ScanReportCase):
    """The newest summary of each kind, by the time of the file."""

    def test_both_kinds(self):
        self.reported("healthy", f"{FULL}=1784188195|{QUICK}=1784272861",
                      found("1784186400_Full Scan.xml", 1784188195),
                      found("1784272800_Quick Scan.xml", 1784272861))

    def test_one_kind(self):
        self.reported("scan-logs-full-only", f"{FULL}=1617185520",
                      found("9_Full Scan.xml", 1617185520))
        self.reported(logs(summary("9_Quick Scan.xml", -1500, 400)), f"{QUICK}=-1499",
                      found("9_Quick Scan.xml", -1499))

    def test_no_summary(self):
        self.reported(logs(), "")
        self.reported(logs(summary("1_Full Scan.xml", 300, modified=0)), "")

    def test_nanoseconds_decide(self):
        self.reported(logs(summary("1_Full Scan.xml", 300, nanoseconds=500),
                           summary("2_Full Scan.xml", 200, nanoseconds=499)), f"{FULL}=300",
                      found("1_Full Scan.xml", 300))

    def test_names(self):
        newest = ("a_b_Full Scan.xml", "Full Scan.xml", "_Full Scan.xml", "a_full Scan.xml",
                  "a_Full Scan.xml.bak")
        others = (("x__Quick Scan.xml", 6, 1617185000), ("a_Full Scan.xml_b", 7, 1617185000),
                  ("_a_Quick Scan.xml", 8, 1617184000))
        self.reported(logs(*(summary(name, 1, modified=1617185999) for name in newest),
                           *(summary(name, start, 0, time) for name, start, time in others)),
                      f"{FULL}=7|{QUICK}=6",
                      found("a_Full Scan.xml_b", 7), found("x__Quick Scan.xml", 6))

    def test_no_directory(self):
        self.failed("scan-logs-missing", 2, ["Get last system scan"])

    @needs_sandbox
    def test_directory_that_may_not_be_read(self):
        with self.endpoint() as endpoint:
            endpoint.path(installation.SCAN_LOGS).chmod(0)
            run = self.run_tool_on(endpoint, "-getLastSystemScan")
            self.assert_answer(run, 13, "")

    def test_file_in_the_directorys_place(self):
        scenario = {"scanLogs": None, "files": [{"path": installation.SCAN_LOGS, "text": ""}]}
        self.failed(scenario, 20, ["Get last system scan"])

    def test_status_that_cannot_be_read(self):
        self.failed(logs({"name": "1_Quick Scan.xml", "link": "nothing"}), 2, BEGIN)

    def test_link_counts_as_what_it_leads_to(self):
        with self.endpoint("scan-logs-full-only") as endpoint:
            directory = endpoint.path(installation.SCAN_LOGS)
            target = directory / "summary"
            os.rename(directory / "9_Full Scan.xml", target)
            (directory / "link_Full Scan.xml").symlink_to("summary")
            run = self.run_tool_on(endpoint, "-getLastSystemScan")
            self.assert_answer(run, 0, f"{FULL}=1617185520")


class Contents(ScanReportCase):
    """What is wrong with a chosen summary ends the report."""

    def test_numbers_as_atol_reads_them(self):
        full = ('<?xml version="1.0"?><!-- scan --><a><x/><ScanSummary other="" '
                'startTime=" +1617185400s" duration="120500.9"/>'
                '<ScanSummary startTime="1" duration="1"/></a>')
        quick = "<a><ScanSummary duration='none' startTime='-3'/></a>"
        self.reported(logs(log("1_Full Scan.xml", full), log("1_Quick Scan.xml", quick)),
                      f"{FULL}=1617185520|{QUICK}=-3",
                      found("1_Full Scan.xml", 1617185520), found("1_Quick Scan.xml", -3))

    def test_division_truncates_towards_zero(self):
        for start, duration, value in ((-1, 1, 0), (-2, 1, -1), (0, 999, 0), (0, -999, 0)):
            text = f'<a><ScanSummary startTime="{start}" duration="{duration}"/></a>'
            self.reported(logs(log("1_Full Scan.xml", text)), f"{FULL}={value}",
                          found("1_Full Scan.xml", value))

    def test_no_root(self):
        for text in ("", "\n", '<?xml version="1.0"?>', "<!-- nothing -->"):
            with self.subTest(text=text):
                self.failed(logs(log("1_Full Scan.xml", text)), 2, [
                    *BEGIN, f"Invalid XML file for{installation.SCAN_LOGS}/1_Full Scan.xml"])

    def test_directory_reads_as_empty(self):
        self.failed(logs({"name": "1_Quick Scan.xml", "directory": True}), 2, [
            *BEGIN, f"Invalid XML file for{installation.SCAN_LOGS}/1_Quick Scan.xml"])

    def test_no_summary_element(self):
        message = 'Invalid XML file. Could not find "ScanSummary" node'
        for text in ("<a><b><ScanSummary startTime='5' duration='1'/></b></a>",
                     "<ScanSummary startTime='1' duration='1'/>",
                     "<a><scansummary startTime='1' duration='1'/></a>"):
            self.failed(logs(log("1_Full Scan.xml", text)), 2, [*BEGIN, message])

    def test_attributes_missing_or_empty(self):
        for attributes, message in (
                ("", 'Invalid XML file. Could not find "startTime" node'),
                ('startTime="" duration="1"', 'Invalid XML file. Could not find "startTime" node'),
                ('starttime="1" duration="1"', 'Invalid XML file. Could not find "startTime" node'),
                ('startTime="1"', 'Invalid XML. Could not find "duration" node'),
                ('startTime="1" duration=""', 'Invalid XML. Could not find "duration" node')):
            with self.subTest(attributes=attributes):
                text = f"<a><ScanSummary {attributes}/></a>"
                self.failed(logs(log("1_Quick Scan.xml", text)), 2, [*BEGIN, message])

    def test_quick_scan_is_not_read_after_a_failure(self):
        self.failed(logs(log("1_Full Scan.xml", '<a><ScanSummary startTime="5"/></a>'),
                         summary("1_Quick Scan.xml", 300)), 2,
                    [*BEGIN, 'Invalid XML. Could not find "duration" node'])

    def test_full_scan_is_not_printed_after_a_failure(self):
        text = '<a><ScanSummary startTime="" duration="1"/></a>'
        self.failed(logs(summary("1_Full Scan.xml", 300), log("1_Quick Scan.xml", text)), 2, [
            *BEGIN, found("1_Full Scan.xml", 300),
            'Invalid XML file. Could not find "startTime" node'])

    def test_text_that_is_no_xml_ends_the_process_abnormally(self):
        for text in ("scanned\n", "<a", "<a b>"):
            with self.subTest(text=text):
                run = self.run_tool("-getLastSystemScan",
                                    scenario=logs(log("1_Full Scan.xml", text)))
                self.assertEqual((run.status, run.output, run.log), (128 + 6, b"", BEGIN))
