"""How the tool talks to the product's SDK: every way that it can end, as whole logs."""

from simulator import installation
from tests.end_to_end import transcripts as t
from tests.end_to_end.harness import EndToEndCase

REQUEST = '{"data":{"Product":[{"@name":"GetStatus","input":{}}]}}'
LIBRARY = installation.LAYOUTS[1].library
ANSWER = ('{"response":{"data":{"Product":[{"error":0,"output":'
          '{"Locations":{"Product":{"Version":"7.16.42"}}}}]}}}')


def refused(lines, status, code=None, api_error=0, sdk_error=0):
    """The log of a version query that ended with `status`.

    Its method logged `lines` and ended with the numbers that follow; without any, with `status`.
    """
    if code is None:
        code = 0 if api_error or sdk_error else status
    return ["Get product version", "Execute Product.GetStatus method",
            *t.wrapped(lines, code, api_error, sdk_error),
            f"Failed to execute method. Error code: {status}",
            f"Finished to get product version with error code:{status}"]


def found(lines, version="7.16.42"):
    """The log of a version query whose method was answered."""
    return ["Get product version", "Execute Product.GetStatus method", *t.wrapped(lines),
            f"Found product version: {version}",
            "Finished returning product version with error code: 0",
            "Finished to get product version with error code:0"]


def library(**members):
    """The SDK library is like this."""
    return {"product": {"library": members}}


def completed(*completions, **sdk):
    """The query is answered with ANSWER, by these completions."""
    return {"sdk": {**sdk, "answers": {t.GET_STATUS: {
        "text": ANSWER, "completions": list(completions)}}}}


LATE = completed({}, {"when": "afterUnregister"}, {"when": "afterUnregister", "delay": 60_000})


class InvocationCase(EndToEndCase):
    """Runs the version query."""

    def check_refusal(self, scenario, code, lines):
        """The query fails before the SDK is asked anything."""
        run = self.run_tool("-getProductVersion", scenario=scenario)
        self.assert_answer(run, code % 256, "")
        self.assert_log(run, refused(lines, code))
        self.assertEqual(run.calls, [])

    def query(self, scenario, status=0, output="7.16.42", **options):
        run = self.run_tool("-getProductVersion", scenario=scenario, **options)
        self.assert_answer(run, status, output)
        self.assert_balanced(run)
        return run


class Success(InvocationCase):
    """A query that is answered at once."""

    def test_whole_transcript_in_every_layout(self):
        for layout in (1, 2, 3):
            with self.subTest(layout=layout):
                run = self.query({"sdk": {"answers": {t.GET_STATUS: {"text": ANSWER}}}},
                                 layout=layout)
                self.assert_log(run, found(t.answered(layout=layout)),
                                t.on_ran(run.batch, ANSWER))

    def test_answer_after_two_seconds(self):
        run = self.query("completion-delayed")
        self.assert_log(run, found(t.answered()), t.on_ran(run.batch, ANSWER))

    def test_expired_certificate_is_as_good_as_another(self):
        self.query(library(signature="expired"), output="7.16.42.200137")

    def test_large_library(self):
        self.query(library(size=20_000_000), output="7.16.42.200137")

    def test_healthy_scenario(self):
        run = self.query("healthy", output="7.16.42.200137")
        answer = run.calls_of("completion")[0]["text"]
        self.assert_log(run, found(t.answered(), "7.16.42.200137"), t.on_ran(run.batch, answer))

    def test_calls_of_the_library(self):
        run = self.query("healthy", output="7.16.42.200137")
        callbacks = ("completion", "event")
        self.assertEqual([call["what"] for call in run.calls if call["what"] not in callbacks],
                         ["getInstance", "register", "run", "unregister", "release"])
        self.assertEqual(run.calls_of("getInstance")[0]["number"], 0)
        self.assertEqual(run.calls_of("run")[0]["request"], REQUEST)
        self.assertRegex(run.batch, "^[0-9a-f]{8}(-[0-9a-f]{4}){3}-[0-9a-f]{12}$")

    def test_without_log(self):
        run = self.query("healthy", output="7.16.42.200137", logging=False)
        self.assertIsNone(run.log)

    def test_first_directory_decides(self):
        run = self.query("layouts-first-is-a-file", output="7.16.42.200137")
        self.assertIn(f"Validate {installation.LAYOUTS[2].library} binary", run.main_log)
        run = self.query("layouts-first-is-a-link", output="7.16.42.200137")
        self.assertIn(f"Validate {LIBRARY} binary", run.main_log)


class ProductNotFound(InvocationCase):
    """Nothing of the library is touched."""

    def test_not_installed(self):
        self.check_refusal("not-installed", 20, t.product_missing())

    def test_library_missing(self):
        self.check_refusal("library-missing", -67068, [
            *t.find_product(), *t.check_without_code(LIBRARY, -67068),
            "Failed to validate binary. Error code : -67068"])


class LibraryNotTrusted(InvocationCase):
    """The library is not loaded unless its signature is the maker's."""

    def check_not_valid(self, scenario, outcome):
        self.check_refusal(scenario, 22, [*t.find_product(), *t.check(LIBRARY, outcome),
                                          "Binary is not valid"])

    def check_not_checked(self, scenario, outcome):
        self.check_refusal(scenario, 2, [*t.find_product(), *t.check(LIBRARY, outcome),
                                         "Failed to validate binary. Error code : 2"])

    def test_signature_is_not_valid(self):
        for scenario in ("library-unsigned", "library-tampered", "no-accepted-roots",
                         {"product": {"trust": "empty"}}, library(signature="unknownRoot"),
                         library(signature="garbled")):
            with self.subTest(scenario=scenario):
                self.check_not_valid(scenario, "invalid")

    def test_signed_by_another_maker(self):
        for scenario in ("library-other-maker", "library-other-team"):
            with self.subTest(scenario=scenario):
                self.check_not_valid(scenario, "other signer")

    def test_no_certificates(self):
        self.check_not_checked("library-ad-hoc", "no certificate")

    def test_no_team(self):
        self.check_not_checked(library(signature="noTeam"), "no team")


class LibraryNotUsable(InvocationCase):
    """The library is the maker's, but not what it should be."""

    def test_cannot_be_loaded(self):
        self.check_refusal("library-not-loadable", 35,
                           [*t.find_product(), *t.load(), "Failed to load library"])

    def test_first_export_is_missing(self):
        self.check_refusal("library-without-get-instance", 14, [
            *t.find_product(), *t.load(), "Set AgentSDK get instance", "Failed to set get instance"])

    def test_second_export_is_missing(self):
        self.check_refusal("library-without-release-instance", 14, [
            *t.find_product(), *t.load(), *t.find_exports(), "Failed to set release instance"])


class RunRefused(InvocationCase):
    """Calls of the library that fail, and tries that follow them."""

    LOADED = [*t.find_product(), *t.load(), *t.find_exports(), *t.begin()]
    END_OF_TRY = "RunAsync unregister instance notifications"

    def check(self, scenario, lines, status, **numbers):
        """The query ends with `status`; its method with `numbers`, as refused() takes them."""
        run = self.query(scenario, status=status, output="")
        self.assert_log(run, refused([*self.LOADED, *lines], status, **numbers))
        return run

    def test_no_instance(self):
        self.check("get-instance-fails", [
            "Get AgentSDK instance", "Failed to get AgentSDK instance. Error code : 5"],
            status=5, code=13, api_error=5)

    def test_no_registration(self):
        self.check("register-fails", [
            *t.attempt(1, 0)[:3], "Failed to register instance notifications. Error code : 6"],
            status=6, code=45, api_error=6)

    def test_run_refused(self):
        run = self.check("run-refused", [
            *t.attempt(1, 7), *t.end_of_runs(7), "Failed to run instance. Error code : 7",
            "Instance unregistered with exit code : 0"], status=45)
        self.assertEqual(len(run.calls_of("run")), 1)

    def test_internal_error_is_tried_five_times_with_pauses(self):
        lines = []
        for number in range(1, 6):
            lines += [*t.attempt(number, 1), "AgentSDK error internal. Sleep 30 seconds"]
            lines += [self.END_OF_TRY] if number < 5 else []
        run = self.check("run-internal-error", [
            *lines, *t.end_of_runs(1), "Failed to run instance. Error code : 1",
            "Instance unregistered with exit code : 0"], status=45)
        self.assertEqual(len({call["batch"] for call in run.calls_of("run")}), 5)

    def test_try_again_is_tried_five_times_without_pauses(self):
        lines = []
        for number in range(1, 6):
            lines += [*t.attempt(number, 2), *([self.END_OF_TRY] if number < 5 else [])]
        self.check("run-again-for-ever", [
            *lines, *t.end_of_runs(2), "Failed to run instance. Error code : 2",
            "Instance unregistered with exit code : 0"], status=45)

    def test_unregistration_fails_between_tries(self):
        run = self.check({"sdk": {"run": [2], "unregister": [8, 0]}}, [
            *t.attempt(1, 2), self.END_OF_TRY,
            "Failed to unregister instance notifications. Error code : 8", *t.end_of_runs(2),
            "Failed to run instance. Error code : 2", "Instance unregistered with exit code : 0"],
            status=45)
        self.assertEqual(len(run.calls_of("release")), 1)

    def test_unregistration_fails_at_the_end(self):
        run = self.query("unregister-fails", status=8, output="")
        answer = run.calls_of("completion")[0]["text"]
        lines = [*t.started(), "Set run async timeout", *t.PARSE, *t.finish(8)]
        self.assert_log(run, refused(lines, 8, code=0, api_error=8), t.on_ran(run.batch, answer))

    def test_second_try_is_answered(self):
        for scenario, status, pause in (
                ("run-again-once", 2, []),
                ({"sdk": {"run": [1, 0]}}, 1, ["AgentSDK error internal. Sleep 30 seconds"])):
            with self.subTest(scenario=scenario):
                run = self.query(scenario, output="7.16.42.200137")
                lines = [*self.LOADED, *t.attempt(1, status), *pause, self.END_OF_TRY,
                         *t.attempt(2, 0), *t.end_of_runs(0), "Set run async timeout", *t.PARSE,
                         *t.finish()]
                answer = run.calls_of("completion")[0]["text"]
                self.assert_log(run, found(lines, "7.16.42.200137"), t.on_ran(run.batch, answer))
                self.assertEqual(len(run.calls_of("getInstance")), 2)


class Completions(InvocationCase):
    """Completions at other times and with other contents than usual."""

    def answered(self, scenario, callbacks):
        """The query is answered; `callbacks` makes the completions' lines from the run."""
        run = self.query(scenario)
        self.assert_log(run, found(t.answered()), callbacks(run))
        return run

    def test_error_number_is_only_logged(self):
        self.answered(completed({"errorNumber": -17}),
                      lambda run: t.on_ran(run.batch, ANSWER, error=-17))

    def test_no_text(self):
        run = self.query(completed({"errorNumber": 4, "result": "none"}), status=3, output="")
        lines = [*t.started(), "Set run async timeout",
                 "Failed to receive AgentSDK response. JSON is empty", *t.finish()]
        self.assert_log(run, refused(lines, 3, sdk_error=3), t.on_ran(run.batch, None, error=4))

    def test_foreign_batch_inside_the_run_call(self):
        run = self.answered(completed({"batch": "foreign", "when": "insideRun"}, {}), lambda run: [
            *t.on_ran("f", ANSWER, accepted=False), *t.on_ran(run.batch, ANSWER)])
        self.assertLess(run.log.index("Start OnRan"), run.log.index("Inner apiError = 0"))

    def test_foreign_batch_during_registration(self):
        run = self.query(completed({"batch": "foreign", "when": "duringRegister"}, {}))
        self.assertEqual(sorted(run.callback_log), sorted([
            *t.on_ran("f", ANSWER, accepted=False), *t.on_ran(run.batch, ANSWER)]))
        self.assertEqual(run.main_log, found(t.answered()))

    def test_no_batch(self):
        self.answered(completed({"batch": "none", "when": "insideRun"}, {}), lambda run: [
            *t.on_ran(None, ANSWER, accepted=False), *t.on_ran(run.batch, ANSWER)])

    def test_no_context(self):
        self.answered(completed({"context": "none", "when": "insideRun"}, {}), lambda run: [
            *t.on_ran(run.batch, ANSWER, accepted=False), *t.on_ran(run.batch, ANSWER)])

    def test_foreign_context(self):
        self.answered(completed({"context": "foreign", "when": "insideRun"}, {}), lambda run: [
            *t.on_ran(run.batch, ANSWER, accepted=False), *t.on_ran(run.batch, ANSWER)])

    def test_before_the_run_call_returns(self):
        self.answered(completed({"when": "duringRun"}), lambda run: t.on_ran(run.batch, ANSWER))

    def test_previous_batch(self):
        run = self.query(completed(
            {"batch": "previous", "when": "insideRun", "try": 2}, {"try": 2}, run=[2, 0]))
        first = run.calls_of("run")[0]["batch"]
        self.assertEqual(run.callback_log, [*t.on_ran(first, ANSWER, accepted=False),
                                            *t.on_ran(run.batch, ANSWER)])

    def test_doubled_late_and_from_many_threads(self):
        for scenario in (completed({"repeat": 2}), completed(*[{}] * 8),
                         completed({}, {"when": "duringUnregister"}), LATE):
            with self.subTest(scenario=scenario):
                run = self.query(scenario)
                self.assertEqual(run.main_log, found(t.answered()))
                self.assert_stored_while_waiting(run)

    def test_late_ones_come_even_when_the_tool_is_gone(self):
        run = self.query(LATE)
        self.assertEqual([call["batch"] for call in run.calls_of("completion")], [run.batch] * 3)


class TimeOuts(InvocationCase):
    """The limit of ten seconds passes in real time, once for each."""

    def check(self, scenario, callbacks):
        run = self.query(scenario, status=60, output="")
        lines = [*t.started(), "Set run async timeout", "Failed to run instance due to timeout",
                 "Instance unregistered with exit code : 0"]
        self.assert_log(run, refused(lines, 60), callbacks)

    def test_no_completion_takes_ten_seconds(self):
        self.check("no-completion", [])

    def test_foreign_batch_only_takes_ten_seconds(self):
        self.check(completed({"batch": "foreign"}), t.on_ran("f", ANSWER, accepted=False))
