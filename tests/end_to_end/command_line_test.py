"""Wrong arguments, the tool's version and its log; app/dispatcher_test.cc has every option's messages."""

import os
import shutil
import subprocess
import tempfile

from simulator import installation
from tests.end_to_end.harness import BUILD, EndToEndCase, without_product

VERSION = "1.0.0.206"
UNKNOWN = "Invalid arguments for running RMM tool"
MISSING_LINK_PARTS = "Bad arguments provided."

# Wrong command lines, with what is logged.
WRONG = (
    ("-runInstaller",
     'Bad arguments. <installerPath> is required after "-runInstaller" was provided'),
    ("-runSetupDownloader a b",
     'Bad arguments. <setupDownloaderPath> is required after "-runSetupDownloader" was provided'),
    ("-detect 1", "Bad arguments for detect"),
    ("-getUpdateStatus", "Getting update status", "Bad arguments. No status provided"),
    ("-hasCriticalIssues 1", "Checking for critical issues", "Bad arguments"),
    ("-startFullScan 1 1", "Starting full scan", "Bad arguments."),
    ("-startQuickScan 0x5", "Starting quick scan", "Bad arguments."),
    ("-startQuickScan ٥", "Starting quick scan", "Bad arguments."),
    ("-getVersio", UNKNOWN),
    ("--getVersion", UNKNOWN),
    ("x x x x x x x x", UNKNOWN),
)


class ArgumentErrors(EndToEndCase):
    """Wrong arguments give 22, an empty output and one message."""

    def test_wrong_words(self):
        with self.endpoint() as endpoint:
            for call, *lines in WRONG:
                with self.subTest(call=call):
                    endpoint.path(installation.LOG).unlink(missing_ok=True)
                    run = self.run_tool_on(endpoint, *call.split())
                    self.assert_answer(run, 22, "")
                    self.assert_log(run, lines)
                    self.assertEqual(run.calls, [])

    def test_no_option_and_nine_words_are_refused_without_a_log(self):
        for words in ([], ["-getVersion"] * 9):
            run = self.run_tool(*words)
            self.assert_answer(run, 22, "")
            self.assertIsNone(run.log)

    def test_scan_limits_that_cannot_be_converted_end_the_process_abnormally(self):
        for limit in ("", "9223372036854775808"):
            with self.subTest(limit=limit):
                run = self.run_tool("-startFullScan", limit)
                self.assertEqual((run.status, run.output), (128 + 6, b""))


class LinkArguments(EndToEndCase):
    """Wrong named arguments of -getInstallationLink; links_test.py has correct ones."""

    def refused(self, words, *messages):
        run = self.run_tool("-getInstallationLink", *words.split())
        self.assert_answer(run, 22, "")
        self.assert_log(run, ["Getting installation link", *messages])

    def test_unknown_name_is_followed_by_what_is_missing(self):
        self.refused("-slUrl u -bogus x -apiKey k", MISSING_LINK_PARTS, '"-apiKey" is missing',
                     '"-packageName" is empty')
        self.refused("-slUrl u -apiKey k -bogus x", MISSING_LINK_PARTS, '"-packageName" is empty')

    def test_unknown_switch(self):
        self.refused("-slUrl u -apiKey k -packageName p -setupDownloader",
                     'Bad arguments provided. "-setupDownloaderLink" was expected')


class Version(EndToEndCase):
    """-getVersion, and which lines of the configuration file switch the log on."""

    def test_prints_the_version_and_logs_it(self):
        for option in ("-getVersion", "-GETVERSION"):
            run = self.run_tool(option)
            self.assert_answer(run, 0, VERSION)
            self.assert_log(run, [
                "Get RMM tool version",
                "Get file version info size",
                f"RMM Tools version retrieved successfully. Version is:{VERSION}",
                "Finished retrieving RMM Tool version with error code:0",
            ])

    def test_without_configuration_there_is_no_log(self):
        run = self.run_tool("-getVersion", logging=False)
        self.assert_answer(run, 0, VERSION)
        self.assertIsNone(run.log)

    def test_log_is_kept_and_extended(self):
        with self.endpoint() as endpoint:
            first = self.run_tool_on(endpoint, "-getVersion").log
            self.assertEqual(self.run_tool_on(endpoint, "-getVersion").log, first * 2)

    def test_other_users_cannot_write_to_the_log(self):
        usual = os.umask(0)
        try:
            with self.endpoint() as endpoint:
                self.run_tool_on(endpoint, "-getVersion")
                self.assertEqual(endpoint.path(installation.LOG).stat().st_mode & 0o777, 0o644)
        finally:
            os.umask(usual)

    def test_configuration_lines(self):
        lines = {
            "x\n=true\n\nLogging\nLogging=true\nLogging=false\n": True,
            " Logging=true\n": False,
            "Logging=True\n": False,
            "Logging=true\r\n": False,
        }
        with self.endpoint() as endpoint:
            for content, is_on in lines.items():
                with self.subTest(content=content):
                    path = endpoint.path(f"{installation.TOOL_DIRECTORY}/configfile.txt")
                    path.write_bytes(content.encode())
                    endpoint.path(installation.LOG).unlink(missing_ok=True)
                    run = self.run_tool_on(endpoint, "-getVersion")
                    self.assert_answer(run, 0, VERSION)
                    self.assertEqual(run.log is not None, is_on)

    def test_failure_to_write_standard_output_is_ignored(self):
        with self.endpoint() as endpoint, open("/dev/full", "wb") as full:
            self.assertEqual(endpoint.run_tool(["-getVersion"], stdout=full), 0)


class OutsideTheSimulator(EndToEndCase):
    """The binary alone, on a machine without the product."""

    ANSWERS = (
        ("-runInstaller /nowhere", 2, "0|||"),
        ("-runSetupDownloader /nowhere", 2, "0|||"),
        ("-detect", 0, "0|||"),
        ("-getInstallationLink -slUrl u -apiKey k -packageName p", -67068 % 256, ""),
        ("-checkForUpdateErrors", 20, ""),
        ("-getUpdateStatus Product", 20, ""),
        ("-hasCriticalIssues", 20, ""),
        ("-isUpToDate", 20, ""),
        ("-getUpdateLocations", 20, ""),
        ("-startUpdate", 20, "0"),
        ("-getProductVersion", 20, ""),
        ("-getLastUpdate", 20, ""),
        ("-getFeatureStatus", 20, ""),
        ("-getLastSystemScan", 2, ""),
        ("-startFullScan", 20, ""),
        ("-startFullScan 5", 20, ""),
        ("-startQuickScan", 20, ""),
        ("-startQuickScan 5", 20, ""),
        ("-getVersion", 0, VERSION),
    )

    def test_every_option(self):
        with without_product(), tempfile.TemporaryDirectory() as directory:
            tool = shutil.copy(BUILD / "KXTool", directory)
            for call, status, output in self.ANSWERS:
                with self.subTest(call=call):
                    run = subprocess.run([tool, *call.split()], cwd=directory, timeout=20,
                                         capture_output=True, check=False)
                    self.assertEqual((run.returncode, run.stdout, run.stderr),
                                     (status, output.encode(), b""))
