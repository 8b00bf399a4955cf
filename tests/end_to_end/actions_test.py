"""Starting updates and scans: unwatched, and confirmed by the product's events."""

import time

from tests.end_to_end import transcripts as t
from tests.end_to_end.harness import EndToEndCase

UPDATE = "Update.StartUpdate"
UPDATE_REQUEST = '{"data":{"Update":[{"@name":"StartUpdate","input":{"use_saved_settings":true}}]}}'
SCAN_REQUEST = (
    '{{ "data": {{ "FileScan.OnDemand" : [ {{ "@name" : "RunScanTask", "input" : '
    '{{ "customScanTask" : {{}}, "runCustomTask" : false, "storedScanTask" : '
    '{{ "taskId" : "{task}", "userSid" : "" }} }} }} ] }} }}')
# The words of the two scans in messages and options, and the task that each runs.
SCANS = (("full", "Full", "3b7e91a0-5c42-4d18-9f6e-2a0c7d45e8b1"),
         ("quick", "Quick", "8f05c2d6-71e9-4a3b-b2c4-6d19e0f37a5c"))
NO_ANSWER_YET = ["Failed to receive AgentSDK response. JSON is empty", *t.finish()]


def scan_method(word):
    """The method that starts a scan."""
    return f"FileScan.OnDemand.Run{word}Scan"


STARTED, FAILED, PROGRESS = (
    f"FileScan.OnDemand.Scan{what}" for what in ("Started", "Failed", "Progress"))


def scanning(*events, completions=(), **answer):
    """The product tells these events of a scan, whose start is answered with `answer`."""
    return {"sdk": {
        "answers": {"FileScan.OnDemand.RunScanTask": {
            **(answer or {"output": {"taskInstance": 7}}), "completions": list(completions)}},
        "events": [{"event": event, **more} for event, more in events]}}


def several(event):
    """Events that end every wait, however slow the machine is."""
    return [(event, {"delay": delay}) for delay in (7000, 12_000, 20_000, 40_000)]


GARBLED = scanning(*several(PROGRESS), completions=[{}], text="{}")


class StartUpdate(EndToEndCase):
    """-startUpdate prints the product's number, whatever comes of it."""

    def start(self, scenario, status, output, lines, callbacks=None):
        """Runs the command; `lines` are its own, `callbacks` makes the completion's of the run."""
        run = self.run_tool("-startUpdate", scenario=scenario)
        self.assert_answer(run, status, output)
        self.assert_log(run, ["Start update", f"Execute {UPDATE} method", *lines,
                              f"Finished to start update with error code:{output}"],
                        callbacks(run) if callbacks else None)
        self.assert_balanced(run)
        return run

    def completion(self, run):
        return t.on_ran(run.batch, run.calls_of("completion")[0]["text"])

    def test_accepted(self):
        run = self.start("healthy", 0, "0",
                         [*t.answered(UPDATE), "Finished to Start update with error code: 0"],
                         self.completion)
        self.assertEqual(run.calls_of("run")[0]["request"], UPDATE_REQUEST)

    def test_error_of_the_product_is_the_answer(self):
        self.start("update-refused", 0, "12", [
            *t.started(UPDATE), "Set run async timeout", *t.PARSE[:5], "Response error code : 12",
            *t.finish(), "Finished to Start update with error code: 0"], self.completion)

    def test_unusable_answer(self):
        self.start({"sdk": {"answers": {UPDATE: {"text": "{}"}}}}, 0, "3", [
            *t.started(UPDATE), "Set run async timeout", *t.PARSE[:2],
            'Invalid JSON. Response does not have "response" member', *t.finish(),
            "Finished to Start update with error code: 0"], self.completion)

    def test_unregistration_fails(self):
        self.start("unregister-fails", 8, "0", [
            *t.started(UPDATE), "Set run async timeout", *t.PARSE, *t.finish(8),
            "Failed to execute method. Error code: 8"], self.completion)

    def test_not_installed(self):
        self.start("not-installed", 20, "0", [
            *t.product_missing(UPDATE), "Failed to execute method. Error code: 20"])

    def test_unanswered_takes_ten_seconds(self):
        self.start({"sdk": {"answers": {UPDATE: {"output": {}, "completions": []}}}}, 60, "0", [
            *t.started(UPDATE), "Set run async timeout", "Failed to run instance due to timeout",
            "Instance unregistered with exit code : 0", "Failed to execute method. Error code: 60"])


class ScanCase(EndToEndCase):
    """Starts scans."""

    def begun(self, word, capital, is_watched):
        """The lines of a scan command before its method."""
        thread = f"Create {word} scan thread with ProcessProductEvents"
        return [f"Starting {word} scan", f"Start {word} scan", *([thread] if is_watched else []),
                f"Execute {scan_method(capital)} method"]

    def confirmed(self, scenario, output, before_answer=NO_ANSWER_YET):
        """Both scans, watched, end with an event that gives `output`."""
        for word, capital, _ in SCANS:
            with self.subTest(scan=word):
                run = self.run_tool(f"-start{capital}Scan", "5", scenario=scenario)
                self.assert_answer(run, 0, output)
                self.assertEqual(run.main_log, [
                    *self.begun(word, capital, True), *t.started(scan_method(capital)),
                    *before_answer, f"Product has an event. Scan error: {output}",
                    f"Finished starting {capital} scan with error code: 0",
                    f"Finished starting {word} scan with error code:{output}"])
                self.assert_balanced(run)


class UnwatchedScan(ScanCase):
    """Without a limit the scan's completion is awaited; the messages say that it failed."""

    def check(self, scenario, status, output, lines, code=0):
        """Both scans; `lines` makes those between the start of the command and its end."""
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

    def test_unusable_answer(self):
        self.check(GARBLED, 0, "3", lambda method: [
            *t.started(method), "Set run async timeout", *t.PARSE[:2],
            'Invalid JSON. Response does not have "response" member', *t.finish()])

    def test_not_installed(self):
        self.check("not-installed", 20, "", t.product_missing, code=20)


class WatchedScan(ScanCase):
    """With a limit the product's events decide."""

    def test_started(self):
        self.confirmed("scan-started", "0")

    def test_failed(self):
        self.confirmed("scan-failed", "5023")

    def test_other_events_decide_nothing(self):
        self.confirmed(scanning(
            (PROGRESS, {"repeat": 3}), (STARTED.swapcase(), {"delay": 20}),
            (STARTED, {"delay": 100})), "0")

    def test_event_before_the_run_call_returns(self):
        self.confirmed(scanning((STARTED, {"when": "duringRun"})), "0")

    def test_event_before_the_registration_returns(self):
        self.confirmed(scanning((STARTED, {"when": "duringRegister"})), "0")

    def test_storm_of_events(self):
        self.confirmed(scanning((PROGRESS, {"repeat": 100_000, "when": "duringRun"}),
                                (STARTED, {"delay": 300})), "0")

    def test_events_for_other_contexts(self):
        self.confirmed(scanning((STARTED, {"context": "none"}), (FAILED, {"context": "foreign"}),
                                (STARTED, {"delay": 100})), "0")

    def test_events_after_the_registration(self):
        self.confirmed(scanning(
            (STARTED, {}), (STARTED, {"when": "afterUnregister"}),
            (FAILED, {"when": "afterUnregister", "delay": 60_000}),
            (PROGRESS, {"when": "duringUnregister", "repeat": 100})), "0")

    def test_huge_limits_wait_and_end_with_an_event(self):
        for limit in ("10000000000", "9223372036854775807", "0000000000000000000000000000012"):
            with self.subTest(limit=limit):
                run = self.run_tool("-startQuickScan", limit, scenario="scan-started")
                self.assert_answer(run, 0, "0")

    def test_completion_and_event_at_once_takes_five_seconds_or_none(self):
        run = self.run_tool("-startQuickScan", "5", scenario=scanning(
            (STARTED, {}), *several(PROGRESS), completions=[{}]))
        self.assertIn((run.status, run.output), ((0, b"0"), (0, b"3"), (60, b"")))


class WatchedScanWithoutOutcome(ScanCase):
    """Nothing decisive comes within the limit, which is five seconds even if less is asked for."""

    def expired(self, scenario, limit="5"):
        start = time.monotonic()
        run = self.run_tool("-startQuickScan", limit, scenario=scenario)
        self.assertGreater(time.monotonic() - start, 5)
        self.assert_answer(run, 60, "")
        self.assertEqual(run.main_log, [
            *self.begun("quick", "Quick", True), *t.started(scan_method("Quick")),
            "Failed to run instance due to timeout", "Instance unregistered with code : 0",
            "Could not execute method. Error code: 60"])
        self.assert_balanced(run)
        return run

    def test_other_events_only_takes_five_seconds(self):
        self.assertEqual(self.expired(scanning(
            (PROGRESS, {}), (PROGRESS, {"delay": 1000}), *several(PROGRESS))).callback_log, [])

    def test_event_after_the_limit_takes_five_seconds(self):
        self.expired(scanning(*several(STARTED)), limit="0")

    def test_completion_after_the_limit_takes_five_seconds(self):
        run = self.expired("scan-completed-after-the-limit", limit="3")
        self.assertEqual(run.callback_log,
                         t.on_ran(run.batch, run.calls_of("completion")[0]["text"]))

    def test_completion_before_the_events_takes_five_seconds(self):
        run = self.expired(scanning(*several(STARTED), completions=[{}]))
        self.assertEqual(run.callback_log,
                         t.on_ran(run.batch, run.calls_of("completion")[0]["text"]))

    def test_unusable_answers_take_five_seconds(self):
        for scenario in ("scan-refused", GARBLED):
            with self.subTest(scenario=scenario):
                self.expired(scenario)


class WatchedScanRefused(ScanCase):
    """A scan that cannot be started ends within a second, although it would be watched."""

    CODES = {
        "not-installed": 20,
        "library-missing": -67068,
        "library-unsigned": 22,
        "library-other-maker": 22,
        "library-ad-hoc": 2,
        "library-not-loadable": 35,
        "library-without-get-instance": 14,
        "library-without-release-instance": 14,
        "get-instance-fails": 13,
        "register-fails": 45,
        "run-refused": 45,
        "run-again-for-ever": 45,
    }

    def test_every_early_end(self):
        for scenario, code in self.CODES.items():
            for word, capital, _ in SCANS:
                with self.subTest(scenario=scenario, scan=word):
                    with self.endpoint(scenario) as endpoint:
                        run = self.run_script_on(
                            endpoint, f"timeout 1 $FAST $TOOL -start{capital}Scan 5")
                    self.assert_answer(run, code % 256, "")
                    self.assertEqual(run.main_log[:4], self.begun(word, capital, True))
                    self.assertEqual(run.main_log[-1],
                                     f"Could not execute method. Error code: {code}")
