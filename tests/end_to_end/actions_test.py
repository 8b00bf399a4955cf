"""Starting updates and scans: unwatched, and confirmed by the product's events.

sdk/actions_test.cc and sdk/concurrency_test.cc have the rules.
"""

import time

from tests.end_to_end import transcripts as t
from tests.end_to_end.harness import EndToEndCase

UPDATE = "Update.StartUpdate"
UPDATE_REQUEST = '{"data":{"Update":[{"@name":"StartUpdate","input":{"use_saved_settings":true}}]}}'
SCAN_REQUEST = (
    '{{ "data": {{ "FileScan.OnDemand" : [ {{ "@name" : "RunScanTask", "input" : '
    '{{ "customScanTask" : {{}}, "runCustomTask" : false, "storedScanTask" : '
    '{{ "taskId" : "{task}", "userSid" : "" }} }} }} ] }} }}')
# The words for the scans in messages and options, and the task that each scan runs.
SCANS = (("full", "Full", "3b7e91a0-5c42-4d18-9f6e-2a0c7d45e8b1"),
         ("quick", "Quick", "8f05c2d6-71e9-4a3b-b2c4-6d19e0f37a5c"))
NO_ANSWER_YET = ["Failed to receive AgentSDK response. JSON is empty", *t.finish()]


def scan_method(word):
    """The method that starts a scan."""
    return f"FileScan.OnDemand.Run{word}Scan"


STARTED, FAILED, PROGRESS = (
    f"FileScan.OnDemand.Scan{what}" for what in ("Started", "Failed", "Progress"))


def scanning(*events, completions=(), **answer):
    """The product reports these events; the start of the scan is answered with `answer`."""
    return {"sdk": {
        "answers": {"FileScan.OnDemand.RunScanTask": {
            **(answer or {"output": {"taskInstance": 7}}), "completions": list(completions)}},
        "events": [{"event": event, **more} for event, more in events]}}


def several(event):
    """Events that end every wait, however slow the machine is."""
    return [(event, {"delay": delay}) for delay in (7000, 12_000, 20_000, 40_000)]


class StartUpdate(EndToEndCase):
    """-startUpdate prints the product's error number, whatever its exit status is."""

    def start(self, scenario, status, output, lines, is_completed=True):
        """Runs the command; `lines` are those of the operation."""
        run = self.run_tool("-startUpdate", scenario=scenario)
        self.assert_answer(run, status, output)
        callbacks = t.on_ran(run.batch, run.calls_of("completion")[0]["text"]) \
            if is_completed else None
        self.assert_log(run, ["Start update", f"Execute {UPDATE} method", *lines,
                              f"Finished to start update with error code:{output}"], callbacks)
        self.assert_balanced(run)
        return run

    def test_accepted(self):
        run = self.start("healthy", 0, "0",
                         [*t.answered(UPDATE), "Finished to Start update with error code: 0"])
        self.assertEqual(run.calls_of("run")[0]["request"], UPDATE_REQUEST)

    def test_error_of_the_product(self):
        self.start("update-refused", 0, "12", [
            *t.started(UPDATE), "Set run async timeout", *t.PARSE[:5], "Response error code : 12",
            *t.finish(), "Finished to Start update with error code: 0"])

    def test_unusable_answer(self):
        self.start({"sdk": {"answers": {UPDATE: {"text": "{}"}}}}, 0, "3", [
            *t.started(UPDATE), "Set run async timeout", *t.PARSE[:2],
            'Invalid JSON. Response does not have "response" member', *t.finish(),
            "Finished to Start update with error code: 0"])

    def test_unregistration_fails(self):
        self.start("unregister-fails", 8, "0", [
            *t.started(UPDATE), "Set run async timeout", *t.PARSE, *t.finish(8),
            "Failed to execute method. Error code: 8"])

    def test_not_installed(self):
        self.start("not-installed", 20, "0", [
            *t.product_missing(UPDATE), "Failed to execute method. Error code: 20"], False)

    def test_unanswered_takes_ten_seconds(self):
        self.start({"sdk": {"answers": {UPDATE: {"output": {}, "completions": []}}}}, 60, "0", [
            *t.started(UPDATE), "Set run async timeout", "Failed to run instance due to timeout",
            "Instance unregistered with exit code : 0", "Failed to execute method. Error code: 60"],
            False)


class ScanCase(EndToEndCase):
    """Starts scans."""

    def begun(self, word, capital, is_watched):
        """The lines of a scan command before its method."""
        thread = f"Create {word} scan thread with ProcessProductEvents"
        return [f"Starting {word} scan", f"Start {word} scan", *([thread] if is_watched else []),
                f"Execute {scan_method(capital)} method"]


class UnwatchedScan(ScanCase):
    """Without a limit, the tool waits for the scan's completion, and logs an error even if it succeeds."""

    def check(self, scenario, status, output, lines, code=0):
        """Both scans; `lines` makes the lines of the method."""
        for word, capital, task in SCANS:
            with self.subTest(scan=word):
                run = self.run_tool(f"-start{capital}Scan", scenario=scenario)
                self.assert_answer(run, status, output)
                texts = [call["text"] for call in run.calls_of("completion")]
                ending = [f"Finished starting {word} scan with error code:{output}"] if output \
                    else []
                self.assert_log(run, [
                    *self.begun(word, capital, False), *lines(scan_method(capital)),
                    f"Could not execute method. Error code: {code}", *ending],
                    [line for text in texts for line in t.on_ran(run.batch, text)])
                self.assertEqual([call["request"] for call in run.calls_of("run")],
                                 [SCAN_REQUEST.format(task=task)] * len(texts))

    def test_accepted(self):
        self.check("healthy", 0, "0", t.answered)

    def test_error_of_the_product(self):
        self.check("scan-refused", 0, "31", lambda method: [
            *t.started(method), "Set run async timeout", *t.PARSE[:5], "Response error code : 31",
            *t.finish()])

    def test_not_installed(self):
        self.check("not-installed", 20, "", t.product_missing, code=20)


class WatchedScan(ScanCase):
    """With a limit the product's events decide."""

    def confirmed(self, scenario, output):
        """Both scans end with an event that gives `output`."""
        for word, capital, _ in SCANS:
            with self.subTest(scan=word):
                run = self.run_tool(f"-start{capital}Scan", "5", scenario=scenario)
                self.assert_answer(run, 0, output)
                self.assertEqual(run.main_log, [
                    *self.begun(word, capital, True), *t.started(scan_method(capital)),
                    *NO_ANSWER_YET, f"Product has an event. Scan error: {output}",
                    f"Finished starting {capital} scan with error code: 0",
                    f"Finished starting {word} scan with error code:{output}"])
                self.assert_balanced(run)

    def test_started(self):
        self.confirmed("scan-started", "0")

    def test_failed(self):
        self.confirmed("scan-failed", "5023")

    def test_event_before_a_call_returns(self):
        for when in ("duringRun", "duringRegister"):
            with self.subTest(when=when):
                self.confirmed(scanning((STARTED, {"when": when})), "0")

    def test_events_that_decide_nothing(self):
        for events in (
                [(PROGRESS, {"repeat": 3}), (STARTED.swapcase(), {"delay": 20})],
                [(STARTED, {"context": "none"}), (FAILED, {"context": "foreign"})],
                [(PROGRESS, {"repeat": 100_000, "when": "duringRun"})]):
            with self.subTest(events=events):
                self.confirmed(scanning(*events, (STARTED, {"delay": 300})), "0")

    def test_events_after_the_registration(self):
        self.confirmed(scanning(
            (STARTED, {}), (STARTED, {"when": "afterUnregister"}),
            (FAILED, {"when": "afterUnregister", "delay": 60_000}),
            (PROGRESS, {"when": "duringUnregister", "repeat": 100})), "0")

    def test_huge_limit(self):
        run = self.run_tool("-startQuickScan", "9223372036854775807", scenario="scan-started")
        self.assert_answer(run, 0, "0")

    def test_completion_and_event_at_once_takes_five_seconds_or_none(self):
        run = self.run_tool("-startQuickScan", "5", scenario=scanning(
            (STARTED, {}), *several(PROGRESS), completions=[{}]))
        self.assertIn((run.status, run.output), ((0, b"0"), (0, b"3"), (60, b"")))


class WatchedScanWithoutOutcome(ScanCase):
    """No decisive event arrives within the limit, which is at least five seconds."""

    def expired(self, scenario, limit="5"):
        start = time.monotonic()
        run = self.run_tool("-startQuickScan", limit, scenario=scenario)
        self.assertGreater(time.monotonic() - start, 5)
        self.assert_answer(run, 60, "")
        self.assertEqual(run.main_log, [
            *self.begun("quick", "Quick", True), *t.started(scan_method("Quick")),
            "Failed to run instance due to timeout", "Instance unregistered with code : 0",
            "Could not execute method. Error code: 60"])
        texts = [call["text"] for call in run.calls_of("completion")]
        self.assertEqual(run.callback_log,
                         [line for text in texts for line in t.on_ran(run.batch, text)])
        self.assert_balanced(run)

    def test_other_events_only_takes_five_seconds(self):
        self.expired(scanning((PROGRESS, {}), (PROGRESS, {"delay": 1000}), *several(PROGRESS)))

    def test_event_after_the_limit_takes_five_seconds(self):
        self.expired(scanning(*several(STARTED)), limit="0")

    def test_completion_after_the_limit_takes_five_seconds(self):
        self.expired("scan-completed-after-the-limit", limit="3")

    def test_completion_before_the_events_takes_five_seconds(self):
        self.expired(scanning(*several(STARTED), completions=[{}]))


class WatchedScanRefused(ScanCase):
    """A scan that cannot be started ends within a second, although it would be watched."""

    CODES = {
        "not-installed": 20,
        "library-unsigned": 22,
        "library-without-get-instance": 14,
        "get-instance-fails": 13,
        "run-again-for-ever": 45,
    }

    def test_every_early_end(self):
        for scenario, code in self.CODES.items():
            for word, capital, _ in SCANS:
                with self.subTest(scenario=scenario, scan=word):
                    with self.endpoint(scenario) as endpoint:
                        run = self.run_script_on(
                            endpoint, f"timeout 1 $FAST $TOOL -start{capital}Scan 5")
                    self.assert_answer(run, code, "")
                    self.assertEqual(run.main_log[:4], self.begun(word, capital, True))
                    self.assertEqual(run.main_log[-1],
                                     f"Could not execute method. Error code: {code}")
