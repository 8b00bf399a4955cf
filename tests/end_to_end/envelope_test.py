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


def envelope(results):
    """An answer with the text of its results."""
    return f'{{"response":{{"data":{{"Product":[{results}]}}}}}}'


# By the answer's text: how many steps of the unpacking are logged, and the message that follows.
UNUSABLE = {
    "no JSON": (1, NO_OBJECT),
    '{"response":{"data":{"Product":[{"error":0,"output":{"Locations":': (1, NO_OBJECT),
    envelope('{"error":0,"output":{}}') + " and more": (1, NO_OBJECT),
    "[]": (1, NO_OBJECT),
    '{"data":{"Product":[{"error":0,"output":{}}]}}': (2, NO_RESPONSE),
    '{"response":"data"}': (2, NO_RESPONSE),
    '{"response":{}}': (3, NO_DATA),
    '{"response":{"data":[{"error":0,"output":{}}]}}': (3, NO_DATA),
    '{"response":{"data":{"Products":[{"error":0,"output":{}}]}}}': (4, NO_RESULTS),
    '{"response":{"data":{"Product":{"error":0,"output":{}}}}}': (4, NO_RESULTS),
    envelope(""): (4, NO_RESULTS),
    envelope("0"): (5, NO_ERROR),
    envelope('{"output":{}}'): (5, NO_ERROR),
    envelope('{"error":"0","output":{}}'): (5, NO_NUMBER),
    envelope('{"error":0.0,"output":{}}'): (5, NO_NUMBER),
    envelope('{"error":9223372036854775808,"output":{}}'): (5, NO_NUMBER),
    envelope('{"error":0}'): (7, NO_OUTPUT),
    envelope('{"error":0,"output":[1]}'): (7, NO_OUTPUT_OBJECT),
}
# Each has something that nobody reads.
WITH_MORE = (
    envelope('{"error":0,"output":{"Locations":{"Product":{"Version":"7.16.42"}}}},{"error":9}'),
    '{"version":2,"response":{"id":"x","data":{"Update":[],"Product":[{"@name":"GetStatus",'
    '"error":0,"output":{"Locations":{"Product":{"Version":"7.16.42"}}},"took":3}]}}}',
)


class Envelope(EndToEndCase):
    """The version query with answers of every form."""

    def query(self, text):
        return self.query_on({"text": text})[0]

    def query_on(self, answer):
        """The run, and the text that the query was answered with."""
        run = self.run_tool("-getProductVersion",
                            scenario={"sdk": {"answers": {t.GET_STATUS: answer}}})
        self.assert_balanced(run)
        return run, run.calls_of("completion")[0]["text"]

    def test_unusable_answers(self):
        for text, (steps, message) in UNUSABLE.items():
            with self.subTest(text=text):
                run = self.query(text)
                self.assert_answer(run, 3, "")
                lines = [*t.started(), "Set run async timeout", *t.PARSE[:steps], message,
                         *t.finish()]
                self.assert_log(run, refused(lines, 3, sdk_error=3), t.on_ran(run.batch, text))

    def test_empty_answer_is_not_parsed(self):
        run = self.query("")
        self.assert_answer(run, 3, "")
        lines = [*t.started(), "Set run async timeout",
                 "Failed to receive AgentSDK response. JSON is empty", *t.finish()]
        self.assertEqual([line for line in run.main_log if line],
                         [line for line in refused(lines, 3, sdk_error=3) if line])

    def test_error_of_the_method(self):
        for number, status in ((7, 7), (4294967299, 3)):
            with self.subTest(error=number):
                run, text = self.query_on({"error": number})
                self.assert_answer(run, status, "")
                lines = [*t.started(), "Set run async timeout", *t.PARSE[:5],
                         f"Response error code : {number}", *t.finish()]
                self.assert_log(run, refused(lines, status, sdk_error=number),
                                t.on_ran(run.batch, text))

    def test_output_of_null_is_an_empty_object(self):
        text = envelope('{"error":0,"output":null}')
        run = self.query(text)
        self.assert_answer(run, 0, "")
        expected = found(t.answered())
        expected.remove("Found product version: 7.16.42")
        self.assert_log(run, expected, t.on_ran(run.batch, text))

    def test_what_nobody_asked_for_is_ignored(self):
        for text in WITH_MORE:
            with self.subTest(text=text):
                run = self.query(text)
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
