"""How the tool talks to the product's SDK: every way that a call can end, as whole logs.

sdk/*_test.cc has the rules for tries, completions and answers.
"""

from simulator import installation
from tests.end_to_end import transcripts as t
from tests.end_to_end.harness import EndToEndCase

REQUEST = '{"data":{"Product":[{"@name":"GetStatus","input":{}}]}}'
LIBRARY = installation.LAYOUTS[1].library
HEALTHY = "7.16.42.200137"
ANSWER = ('{"response":{"data":{"Product":[{"error":0,"output":'
          '{"Locations":{"Product":{"Version":"7.16.42"}}}}]}}}')
NO_OBJECT = "Invalid JSON. Response has parse errors or is not an object"


def refused(lines, status, code=None, api_error=0, sdk_error=0):
    """The log of a version query that ended with `status` after its method logged `lines`.

    The other numbers describe the method. Without them, its code is `status`.
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
    """A scenario whose SDK library has these properties."""
    return {"product": {"library": members}}


def answering(**answer):
    """A scenario in which the query gets this answer."""
    return {"sdk": {"answers": {t.GET_STATUS: answer}}}


def completed(*completions, **sdk):
    """A scenario in which the query gets ANSWER through these completions."""
    return {"sdk": {**sdk, **answering(text=ANSWER, completions=list(completions))["sdk"]}}


class InvocationCase(EndToEndCase):
    """Runs the version query."""

    def check_refusal(self, scenario, code, lines):
        """The query fails before the SDK is called."""
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
    """The query is answered at once."""

    def test_whole_transcript_in_every_layout(self):
        for layout in (1, 2, 3):
            with self.subTest(layout=layout):
                run = self.query(answering(text=ANSWER), layout=layout)
                self.assert_log(run, found(t.answered(layout=layout)),
                                t.on_ran(run.batch, ANSWER))

    def test_expired_certificate_is_accepted(self):
        self.query(library(signature="expired"), output=HEALTHY)

    def test_large_library(self):
        self.query(library(size=20_000_000), output=HEALTHY)

    def test_calls_of_the_library(self):
        run = self.query("healthy", output=HEALTHY, logging=False)
        self.assertIsNone(run.log)
        callbacks = ("completion", "event")
        self.assertEqual([call["what"] for call in run.calls if call["what"] not in callbacks],
                         ["getInstance", "register", "run", "unregister", "release"])
        self.assertEqual(run.calls_of("getInstance")[0]["number"], 0)
        self.assertEqual(run.calls_of("run")[0]["request"], REQUEST)
        self.assertRegex(run.batch, "^[0-9a-f]{8}(-[0-9a-f]{4}){3}-[0-9a-f]{12}$")


class LibraryNotTrusted(InvocationCase):
    """The library is not loaded unless its signature is the vendor's."""

    def test_not_installed(self):
        self.check_refusal("not-installed", 20, t.product_missing())

    def test_library_missing(self):
        self.check_refusal("library-missing", -67068, [
            *t.find_product(), *t.check_without_code(LIBRARY, -67068),
            "Failed to validate binary. Error code : -67068"])

    def test_other_signatures(self):
        for scenario, outcome in (("library-unsigned", "invalid"),
                                  ("library-tampered", "invalid"),
                                  ("no-accepted-roots", "invalid"),
                                  ({"product": {"trust": "empty"}}, "invalid"),
                                  (library(signature="unknownRoot"), "invalid"),
                                  (library(signature="garbled"), "invalid"),
                                  ("library-other-vendor", "other signer"),
                                  ("library-other-team", "other signer")):
            with self.subTest(scenario=scenario):
                self.check_refusal(scenario, 22, [
                    *t.find_product(), *t.check(LIBRARY, outcome), "Binary is not valid"])

    def test_incomplete_signatures(self):
        for scenario, outcome in (("library-ad-hoc", "no certificate"),
                                  (library(signature="noTeam"), "no team")):
            with self.subTest(scenario=scenario):
                self.check_refusal(scenario, 2, [
                    *t.find_product(), *t.check(LIBRARY, outcome),
                    "Failed to validate binary. Error code : 2"])


class LibraryNotUsable(InvocationCase):
    """The library is the vendor's, but cannot be used."""

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
    """Calls to the library that fail, and further tries."""

    LOADED = [*t.find_product(), *t.load(), *t.find_exports(), *t.begin()]
    PAUSE = "AgentSDK error internal. Sleep 30 seconds"
    END_OF_TRY = "RunAsync unregister instance notifications"

    def check(self, scenario, lines, status, **numbers):
        """The query ends with `status`; its method with `numbers`, as refused() takes them."""
        run = self.query(scenario, status=status, output="")
        self.assert_log(run, refused([*self.LOADED, *lines], status, **numbers))
        return run

    @staticmethod
    def given_up(status):
        """The lines after the last try."""
        return [*t.end_of_runs(status), f"Failed to run instance. Error code : {status}",
                "Instance unregistered with exit code : 0"]

    def test_no_instance(self):
        self.check("get-instance-fails", [
            "Get AgentSDK instance", "Failed to get AgentSDK instance. Error code : 5"],
            status=5, code=13, api_error=5)

    def test_no_registration(self):
        self.check("register-fails", [
            *t.attempt(1, 0)[:3], "Failed to register instance notifications. Error code : 6"],
            status=6, code=45, api_error=6)

    def test_run_refused(self):
        self.check("run-refused", [*t.attempt(1, 7), *self.given_up(7)], status=45)

    def test_five_tries(self):
        for scenario, status, pause in (("run-internal-error", 1, [self.PAUSE]),
                                        ("run-again-for-ever", 2, [])):
            with self.subTest(scenario=scenario):
                lines = []
                for number in range(1, 6):
                    lines += [*t.attempt(number, status), *pause, self.END_OF_TRY]
                run = self.check(scenario, [*lines[:-1], *self.given_up(status)], status=45)
                self.assertEqual(len({call["batch"] for call in run.calls_of("run")}), 5)

    def test_second_try_is_answered(self):
        run = self.query("run-again-once", output=HEALTHY)
        lines = [*self.LOADED, *t.attempt(1, 2), self.END_OF_TRY, *t.attempt(2, 0),
                 *t.end_of_runs(0), "Set run async timeout", *t.PARSE, *t.finish()]
        answer = run.calls_of("completion")[0]["text"]
        self.assert_log(run, found(lines, HEALTHY), t.on_ran(run.batch, answer))
        self.assertEqual(len(run.calls_of("getInstance")), 2)

    def test_unregistration_fails_between_tries(self):
        run = self.check({"sdk": {"run": [2], "unregister": [8, 0]}}, [
            *t.attempt(1, 2), self.END_OF_TRY,
            "Failed to unregister instance notifications. Error code : 8", *self.given_up(2)],
            status=45)
        self.assertEqual(len(run.calls_of("release")), 1)

    def test_unregistration_fails_at_the_end(self):
        run = self.query("unregister-fails", status=8, output="")
        answer = run.calls_of("completion")[0]["text"]
        lines = [*t.started(), "Set run async timeout", *t.PARSE, *t.finish(8)]
        self.assert_log(run, refused(lines, 8, code=0, api_error=8), t.on_ran(run.batch, answer))


class Completions(InvocationCase):
    """When completions arrive and what they bring."""

    def answered(self, scenario, callbacks):
        """The query is answered; `callbacks` makes the completions' lines from the run."""
        run = self.query(scenario)
        self.assert_log(run, found(t.answered()), callbacks(run))
        return run

    def test_answer_after_two_seconds(self):
        self.answered("completion-delayed", lambda run: t.on_ran(run.batch, ANSWER))

    def test_error_number_is_only_logged(self):
        self.answered(completed({"errorNumber": -17}),
                      lambda run: t.on_ran(run.batch, ANSWER, error=-17))

    def test_no_text(self):
        run = self.query(completed({"errorNumber": 4, "result": "none"}), status=3, output="")
        lines = [*t.started(), "Set run async timeout",
                 "Failed to receive AgentSDK response. JSON is empty", *t.finish()]
        self.assert_log(run, refused(lines, 3, sdk_error=3), t.on_ran(run.batch, None, error=4))

    def test_foreign_ones_inside_the_run_call_are_ignored(self):
        for foreign, batch in (({"batch": "foreign"}, lambda run: "f"),
                               ({"batch": "none"}, lambda run: None),
                               ({"context": "none"}, lambda run: run.batch),
                               ({"context": "foreign"}, lambda run: run.batch)):
            with self.subTest(completion=foreign):
                run = self.answered(
                    completed({**foreign, "when": "insideRun"}, {}),
                    lambda run, batch=batch: [*t.on_ran(batch(run), ANSWER, accepted=False),
                                              *t.on_ran(run.batch, ANSWER)])
                self.assertLess(run.log.index("Start OnRan"), run.log.index("Inner apiError = 0"))

    def test_before_the_run_call_returns(self):
        self.answered(completed({"when": "duringRun"}), lambda run: t.on_ran(run.batch, ANSWER))

    def test_previous_batch(self):
        run = self.query(completed(
            {"batch": "previous", "when": "insideRun", "try": 2}, {"try": 2}, run=[2, 0]))
        first = run.calls_of("run")[0]["batch"]
        self.assertEqual(run.callback_log, [*t.on_ran(first, ANSWER, accepted=False),
                                            *t.on_ran(run.batch, ANSWER)])

    def test_doubled_late_and_from_many_threads(self):
        late = [{"when": "afterUnregister"}, {"when": "afterUnregister", "delay": 60_000}]
        for completions in ([{"repeat": 2}], [{}] * 8, [{}, {"when": "duringUnregister"}],
                            [{}, *late]):
            with self.subTest(completions=completions):
                run = self.query(completed(*completions))
                self.assertEqual(run.main_log, found(t.answered()))
                self.assert_stored_while_waiting(run)
        self.assertEqual([call["batch"] for call in run.calls_of("completion")], [run.batch] * 3)


class Answers(InvocationCase):
    """Answers of several forms."""

    def check_refusal_of(self, answer, status, lines, sdk_error):
        run = self.query(answering(**answer), status=status, output="")
        lines = [*t.started(), "Set run async timeout", *lines, *t.finish()]
        self.assert_log(run, refused(lines, status, sdk_error=sdk_error),
                        t.on_ran(run.batch, run.calls_of("completion")[0]["text"]))

    def test_unusable(self):
        self.check_refusal_of({"text": "{} and more"}, 3, [*t.PARSE[:1], NO_OBJECT], 3)
        self.check_refusal_of({"outputText": "[1]"}, 3,
                              [*t.PARSE, 'Invalid JSON. "output" member is invalid'], 3)

    def test_error_of_the_method(self):
        for number, status in ((7, 7), (4294967299, 3)):
            with self.subTest(error=number):
                self.check_refusal_of({"error": number}, status, [
                    *t.PARSE[:5], f"Response error code : {number}"], number)

    def test_size_and_nesting(self):
        long = '"' + "x" * 5_000_000 + '"'
        nested = '{"a":' * 200_000 + "1" + "}" * 200_000
        version = '"Locations":{"Product":{"Version":"7.16.42"}}'
        self.query(answering(outputText=f'{{"x":{long},"y":{nested},{version}}}'), logging=False)


class TimeOuts(InvocationCase):
    """The limit of ten seconds, which passes in real time."""

    def check(self, scenario, callbacks):
        run = self.query(scenario, status=60, output="")
        lines = [*t.started(), "Set run async timeout", "Failed to run instance due to timeout",
                 "Instance unregistered with exit code : 0"]
        self.assert_log(run, refused(lines, 60), callbacks)

    def test_no_completion_takes_ten_seconds(self):
        self.check("no-completion", [])

    def test_foreign_batch_only_takes_ten_seconds(self):
        self.check(completed({"batch": "foreign"}), t.on_ran("f", ANSWER, accepted=False))
