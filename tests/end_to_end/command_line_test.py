"""The tool's options, their arguments and messages, its version and its log."""

import os
import shutil
import subprocess
import tempfile

from simulator import installation
from tests.end_to_end.harness import BUILD, EndToEndCase, without_product

VERSION = "1.0.0.206"
MISSING_LINK_PARTS = "Bad arguments provided."

# Each option with a correct call, what the first line of a good call is (None where it only comes
# once the arguments are accepted), and the message for wrong arguments.
OPTIONS = (
    ("-runInstaller /nowhere", None,
     'Bad arguments. <installerPath> is required after "-runInstaller" was provided'),
    ("-runSetupDownloader /nowhere", None,
     'Bad arguments. <setupDownloaderPath> is required after "-runSetupDownloader" was provided'),
    ("-detect", None, "Bad arguments for detect"),
    ("-getInstallationLink -slUrl u -apiKey k -packageName p", "Getting installation link",
     "Bad arguments. More or ignsufficient arguments provided"),
    ("-checkForUpdateErrors", "Checking for update errors",
     "Bad arguments. Invalid number of arguments"),
    ("-getUpdateStatus Product", "Getting update status", "Bad arguments. No status provided"),
    ("-hasCriticalIssues", "Checking for critical issues", "Bad arguments"),
    ("-isUpToDate", "Checking if ORVEX is up to date", "Bad arguments"),
    ("-getUpdateLocations", "Get update locations", "Bad arguments"),
    ("-startUpdate", "Start update", "Bad arguments"),
    ("-getProductVersion", "Get product version", "Bad arguments"),
    ("-getLastUpdate", "Get last update", "Bad arguments"),
    ("-getFeatureStatus", "Get feature status", "Bad arguments"),
    ("-getLastSystemScan", "Get last system scan", "Bad arguments"),
    ("-startFullScan", "Starting full scan", "Bad arguments."),
    ("-startQuickScan", "Starting quick scan", "Bad arguments."),
    ("-getVersion", "Get RMM tool version", "Bad arguments."),
)
# Options that take an argument more than their shortest call has.
WITH_OPTIONAL_ARGUMENT = ("-startFullScan", "-startQuickScan")


class ArgumentErrors(EndToEndCase):
    """Wrong arguments end with 22, an empty output and one message."""

    def test_too_many_arguments(self):
        with self.endpoint() as endpoint:
            for call, start, message in OPTIONS:
                words = call.split()
                if words[0] == "-getInstallationLink":
                    continue  # takes as many words as any command line may have
                extra = ["1"] * (2 if words[0] in WITH_OPTIONAL_ARGUMENT else 1)
                with self.subTest(option=words[0]):
                    self.check(endpoint, [*words, *extra], start, message)

    def test_too_few_arguments(self):
        with self.endpoint() as endpoint:
            for call, start, message in OPTIONS:
                words = call.split()
                if len(words) == 1:
                    continue
                with self.subTest(option=words[0]):
                    self.check(endpoint, words[:-1], start, message)

    def test_unknown_option_logs_one_line(self):
        with self.endpoint() as endpoint:
            for words in (["-getVersio"], ["getVersion"], ["--getVersion"], ["-getVersions"], [""],
                          ["x"] * 8):
                with self.subTest(words=words):
                    self.check(endpoint, words, None, "Invalid arguments for running RMM tool")

    def test_no_option_and_nine_words_are_refused_before_anything_is_read(self):
        for words in ([], ["-getVersion"] * 9):
            run = self.run_tool(*words)
            self.assert_answer(run, 22, "")
            self.assertIsNone(run.log)

    def test_scan_limits_that_are_no_numbers(self):
        with self.endpoint() as endpoint:
            for option, start in (("-startFullScan", "Starting full scan"),
                                  ("-startQuickScan", "Starting quick scan")):
                for limit in ("-1", "+5", "1a", " 5", "5 ", "0x5", "٥"):
                    with self.subTest(option=option, limit=limit):
                        self.check(endpoint, [option, limit], start, "Bad arguments.")

    def test_scan_limits_that_cannot_be_converted_end_the_process_abnormally(self):
        for option in ("-startFullScan", "-startQuickScan"):
            for limit in ("", "9223372036854775808", "9" * 40):
                with self.subTest(option=option, limit=limit):
                    run = self.run_tool(option, limit)
                    self.assertEqual((run.status, run.output), (128 + 6, b""))

    def check(self, endpoint, words, start, message):
        log = endpoint.path(installation.LOG)
        log.unlink(missing_ok=True)
        run = self.run_tool_on(endpoint, *words)
        self.assert_answer(run, 22, "")
        self.assert_log(run, [start, message] if start else [message])
        self.assertEqual(run.calls, [])


class LinkArguments(EndToEndCase):
    """The named arguments of -getInstallationLink."""

    def refused(self, words, *messages):
        run = self.run_tool("-getInstallationLink", *words.split())
        self.assert_answer(run, 22, "")
        self.assert_log(run, ["Getting installation link", *messages])

    def answered(self, words, text):
        run = self.run_tool("-getInstallationLink", *words)
        self.assert_answer(run, 0, text)

    def test_any_order_and_any_case(self):
        self.answered("-APIKEY k -packagename p -SLurl u".split(), "u|k|p|1")

    def test_switch_turns_the_flag_off(self):
        self.answered("-slUrl u -apiKey k -packageName p -SETUPdownloaderLink".split(), "u|k|p|0")

    def test_repeated_name_overwrites_and_the_missing_one_is_empty(self):
        self.answered("-slUrl u -slUrl v -packageName p".split(), "v||p|1")

    def test_values_are_passed_on_untouched(self):
        self.answered(["-slUrl", "https://a/?b=c d", "-apiKey", "-packageName", "-packageName",
                       "größe"], "https://a/?b=c d|-packageName|größe|1")

    def test_unknown_name_tells_what_is_missing_so_far(self):
        self.refused("-slUrl u -bogus x -apiKey k", MISSING_LINK_PARTS, '"-apiKey" is missing',
                     '"-packageName" is empty')
        self.refused("-bogus x -slUrl u -apiKey k", MISSING_LINK_PARTS, '"-slUrl" is missing',
                     '"-apiKey" is missing', '"-packageName" is empty')
        self.refused("-slUrl u -apiKey k -bogus x", MISSING_LINK_PARTS, '"-packageName" is empty')

    def test_other_ninth_word(self):
        self.refused("-slUrl u -apiKey k -packageName p -setupDownloader",
                     'Bad arguments provided. "-setupDownloaderLink" was expected')


class Version(EndToEndCase):
    """-getVersion, and which lines of the configuration file switch the log on."""

    def test_prints_the_version_and_logs_it(self):
        run = self.run_tool("-getVersion")
        self.assert_answer(run, 0, VERSION)
        self.assert_log(run, [
            "Get RMM tool version",
            "Get file version info size",
            f"RMM Tools version retrieved successfully. Version is:{VERSION}",
            "Finished retrieving RMM Tool version with error code:0",
        ])

    def test_option_in_any_case(self):
        self.assert_answer(self.run_tool("-GETVERSION"), 0, VERSION)
        self.assert_answer(self.run_tool("-getversion"), 0, VERSION)

    def test_without_configuration_there_is_no_log(self):
        run = self.run_tool("-getVersion", logging=False)
        self.assert_answer(run, 0, VERSION)
        self.assertIsNone(run.log)

    def test_log_is_kept_and_extended(self):
        with self.endpoint() as endpoint:
            first = self.run_tool_on(endpoint, "-getVersion").log
            self.assertEqual(self.run_tool_on(endpoint, "-getVersion").log, first * 2)

    def test_others_may_not_write_the_log(self):
        usual = os.umask(0)
        try:
            with self.endpoint() as endpoint:
                self.run_tool_on(endpoint, "-getVersion")
                self.assertEqual(endpoint.path(installation.LOG).stat().st_mode & 0o777, 0o644)
        finally:
            os.umask(usual)

    def test_configuration_lines(self):
        lines = {
            "Logging=true": True,
            "Logging=true\n": True,
            "x\n=true\n\nLogging\nLogging=true\nLogging=false\n": True,
            "Logging=true \n": False,
            " Logging=true\n": False,
            "logging=true\n": False,
            "Logging=True\n": False,
            "Logging = true\n": False,
            "Logging=true\r\n": False,
            "Logging=true=\n": False,
            "=Logging=true\n": False,
            "": False,
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

    def test_standard_output_that_takes_nothing_does_not_matter(self):
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
        self.assertEqual({call.split()[0] for call, _, _ in self.ANSWERS},
                         {call.split()[0] for call, _, _ in OPTIONS})
        with without_product(), tempfile.TemporaryDirectory() as directory:
            tool = shutil.copy(BUILD / "KXTool", directory)
            for call, status, output in self.ANSWERS:
                with self.subTest(call=call):
                    run = subprocess.run([tool, *call.split()], cwd=directory, timeout=20,
                                         capture_output=True, check=False)
                    self.assertEqual((run.returncode, run.stdout, run.stderr),
                                     (status, output.encode(), b""))
