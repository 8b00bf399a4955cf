"""How the product's answers are unpacked: every kind that is refused, and those that are not."""

from tests.end_to_end import transcripts as t
from tests.end_to_end.harness import EndToEndCase
from tests.end_to_end.invocation_test import found, refused

NO_OBJECT = "Invalid JSON. Response has parse errors or is not an object"
NO_RESPONSE = 'Invalid JSON. Response does not have "response" member'
NO_DATA = 'Invalid JSON. Response does not have "data" member'
NO_RESULTS = 'Invalid JSON. Response does not have "Product.GetStatus" key'
NO_ERROR = "Invalid JSON. Error is not found"
NO_NUMBER = "Invalid JSON. Error value is invalid"
NO_OUTPUT = 'Invalid JSON. Response does not have "output" member'
NO_OUTPUT_OBJECT = 'Invalid JSON. "output" member is invalid'

# By scenario: how many steps of the unpacking are logged, and the message that follows.
UNUSABLE = {
    "answer-not-json": (1, NO_OBJECT),
    "answer-truncated": (1, NO_OBJECT),
    "answer-with-trailing-text": (1, NO_OBJECT),
    "answer-not-an-object": (1, NO_OBJECT),
    "answer-without-response": (2, NO_RESPONSE),
    "answer-response-of-other-type": (2, NO_RESPONSE),
    "answer-without-data": (3, NO_DATA),
    "answer-data-of-other-type": (3, NO_DATA),
    "answer-without-results": (4, NO_RESULTS),
    "answer-results-of-other-type": (4, NO_RESULTS),
    "answer-with-no-results": (4, NO_RESULTS),
    "answer-result-of-other-type": (5, NO_ERROR),
    "answer-without-error": (5, NO_ERROR),
    "answer-error-as-text": (5, NO_NUMBER),
    "answer-error-as-fraction": (5, NO_NUMBER),
    "answer-error-too-large": (5, NO_NUMBER),
    "answer-without-output": (7, NO_OUTPUT),
    "answer-output-of-other-type": (7, NO_OUTPUT_OBJECT),
}


class Envelope(EndToEndCase):
    """The version query with answers of every form."""

    def query(self, scenario):
        run = self.run_tool("-getProductVersion", scenario=scenario)
        self.assert_balanced(run)
        return run, run.calls_of("completion")[0]["text"]

    def test_unusable_answers(self):
        for scenario, (steps, message) in UNUSABLE.items():
            with self.subTest(scenario=scenario):
                run, text = self.query(scenario)
                self.assert_answer(run, 3, "")
                lines = [*t.started(), "Set run async timeout", *t.PARSE[:steps], message,
                         *t.finish()]
                self.assert_log(run, refused(lines, 3, sdk_error=3), t.on_ran(run.batch, text))

    def test_empty_answer_is_not_parsed(self):
        run, _ = self.query("answer-empty")
        self.assert_answer(run, 3, "")
        lines = [*t.started(), "Set run async timeout",
                 "Failed to receive AgentSDK response. JSON is empty", *t.finish()]
        self.assertEqual([line for line in run.main_log if line],
                         [line for line in refused(lines, 3, sdk_error=3) if line])

    def test_error_of_the_method(self):
        for scenario, number, status in (("method-error", 7, 7),
                                         ("method-error-beyond-32-bits", 4294967299, 3)):
            with self.subTest(scenario=scenario):
                run, text = self.query(scenario)
                self.assert_answer(run, status, "")
                lines = [*t.started(), "Set run async timeout", *t.PARSE[:5],
                         f"Response error code : {number}", *t.finish()]
                self.assert_log(run, refused(lines, status, sdk_error=number),
                                t.on_ran(run.batch, text))

    def test_output_of_null_is_an_empty_object(self):
        run, text = self.query("answer-output-null")
        self.assert_answer(run, 0, "")
        expected = found(t.answered())
        expected.remove("Found product version: 7.16.42")
        self.assert_log(run, expected, t.on_ran(run.batch, text))

    def test_what_nobody_asked_for_is_ignored(self):
        for scenario in ("answer-with-more-results", "answer-with-other-members"):
            with self.subTest(scenario=scenario):
                run, text = self.query(scenario)
                self.assert_answer(run, 0, "7.16.42")
                self.assert_log(run, found(t.answered()), t.on_ran(run.batch, text))

    def test_nesting_and_size_overflow_nothing(self):
        depth = 200_000
        nested = '{"a":' * depth + "1" + "}" * depth
        long = '"' + "x" * 5_000_000 + '"'
        for output in (nested, f'{{"x":{long},"Locations":{{"Product":{{"Version":"7.16.42"}}}}}}'):
            scenario = {"sdk": {"answers": {"Product.GetStatus": {"outputText": output}}}}
            run = self.run_tool("-getProductVersion", scenario=scenario, logging=False)
            self.assert_answer(run, 0, "7.16.42" if output is not nested else "")
