"""Scenarios: their schema's errors, what they leave out, and what the stand-ins make of them."""

import json
import pathlib
import tempfile
import unittest

from simulator import scenario, schema

STATUS = "Product.GetStatus"


class Mistakes(unittest.TestCase):
    """Every mistake is named with the path to it."""

    def check(self, given, *messages):
        with self.assertRaises(scenario.ScenarioError) as caught:
            scenario.load(given)
        expected = [f"the given scenario: {message}" for message in messages]
        self.assertEqual(str(caught.exception).split("\n"), expected)

    def test_unknown_members(self):
        self.check({"sdk": {"statuses": []}},
                   "sdk.statuses: unknown member; known are getInstance, register, run, "
                   "unregister, answers, events")

    def test_types(self):
        self.check({"sdk": []}, "sdk: must be of type object")
        self.check({"sdk": {"run": [0, "1", True, 0.5]}}, *(
            f"sdk.run[{index}]: must be of type integer" for index in (1, 2, 3)))
        self.check({"scanLogs": "none"}, "scanLogs: must be of type array or null")

    def test_choices(self):
        self.check({"product": {"layout": True, "trust": "pined"}},
                   "product.layout: true is not one of 1, 2, 3, null",
                   'product.trust: "pined" is not one of "pinned", "empty", "absent"')

    def test_limits_and_forms(self):
        self.check({"sdk": {"run": []}}, "sdk.run: needs at least 1 item")
        self.check({"sdk": {"events": [{"event": "e", "delay": 86400001, "repeat": 0}]}},
                   "sdk.events[0].delay: 86400001 is above 86400000",
                   "sdk.events[0].repeat: 0 is below 1")
        self.check({"files": [{"path": "/etc/passwd", "text": ""}]},
                   "files[0].path: '/etc/passwd' does not have the form ^(/Library/Corvane|"
                   "/Library/Application Support/Halvard|/etc/kxtool|/opt/kxtool)/")

    def test_members_that_must_be_there_or_exclude_each_other(self):
        self.check({"sdk": {"events": [{}]}}, "sdk.events[0]: lacks the member event")
        for answer in ({}, {"output": {}, "text": ""}):
            self.check({"sdk": {"answers": {STATUS: answer}}},
                       f"sdk.answers.{STATUS}: must have exactly one of output, outputText, "
                       "error, text")

    def test_alternatives(self):
        self.check({"scanLogs": [{"name": "a", "text": "", "modified": "now"}]},
                   'scanLogs[0].modified: must be seconds since the epoch or '
                   '{"$secondsFromNow": N}')

    def test_completions_that_would_block_the_tool(self):
        for completion, is_good in (
                ({"when": "insideRun"}, False),
                ({"when": "insideRun", "batch": "own"}, False),
                ({"when": "insideRun", "batch": "foreign"}, True),
                ({"when": "insideRun", "context": "none"}, True),
                ({"when": "duringRun"}, True)):
            given = {"sdk": {"answers": {STATUS: {"output": {}, "completions": [completion]}}}}
            with self.subTest(completion=completion):
                if is_good:
                    scenario.load(given)
                else:
                    self.check(given, f"sdk.answers.{STATUS}.completions[0]: insideRun is only "
                               "for completions whose batch or context is not the caller's own")

    def test_files(self):
        with tempfile.TemporaryDirectory() as directory:
            path = pathlib.Path(directory) / "mine.json"
            for content, message in (("{", "not JSON: "), ("[]", "must be of type object"),
                                     ("{}", "lacks the member description")):
                path.write_text(content)
                with self.assertRaisesRegex(scenario.ScenarioError, message):
                    scenario.load(str(path))
        with self.assertRaisesRegex(scenario.ScenarioError, "No such file"):
            scenario.load(str(path))
        with self.assertRaisesRegex(scenario.ScenarioError, "there is no scenario nothing"):
            scenario.load("nothing")

    def test_schema_keywords_that_nobody_checks(self):
        with self.assertRaises(schema.SchemaError):
            schema.mistakes({}, {"maxProperties": 1})


class Contents(unittest.TestCase):
    """What a scenario says, and what it takes over from healthy."""

    def test_every_scenario_is_complete_and_says_what_it_is(self):
        healthy = scenario.load("healthy")
        self.assertIn("healthy", scenario.names())
        self.assertEqual(len(set(scenario.names())), len(scenario.names()))
        for name in scenario.names():
            with self.subTest(scenario=name):
                complete = scenario.load(name)
                self.assertEqual(set(complete), set(healthy))
                self.assertEqual(set(complete["product"]), set(healthy["product"]))
                self.assertEqual(set(complete["sdk"]), set(healthy["sdk"]))
                json.dumps(scenario.stand_in_script(complete))
        descriptions = [scenario.describe(name) for name in scenario.names()]
        self.assertEqual(len(set(descriptions)), len(descriptions))

    def test_only_what_is_said_differs(self):
        healthy = scenario.load("healthy", now=1000)
        changed = scenario.load({"product": {"library": {"signature": "none"}},
                                 "sdk": {"answers": {STATUS: {"error": 1}}},
                                 "scanLogs": []}, now=1000)
        self.assertEqual(changed["product"]["library"],
                         {**healthy["product"]["library"], "signature": "none"})
        self.assertEqual(changed["sdk"]["answers"][STATUS], {"error": 1})
        self.assertEqual(changed["scanLogs"], [])
        for member in ("run", "events"):
            self.assertEqual(changed["sdk"][member], healthy["sdk"][member])
        self.assertEqual(changed["links"], healthy["links"])

    def test_relative_times(self):
        given = {"sdk": {"answers": {STATUS: {"output": {"a": [{"$secondsFromNow": -5}]}}}}}
        complete = scenario.load(given, now=1000.9)
        self.assertEqual(complete["sdk"]["answers"][STATUS]["output"], {"a": [995]})


class StandInScript(unittest.TestCase):
    """What the stand-in library is told."""

    def answer(self, answer, method=STATUS):
        script = scenario.stand_in_script(scenario.load({"sdk": {"answers": {method: answer}}}))
        return [delivery for delivery in script["deliveries"] if delivery.get("method") == method]

    def test_envelopes(self):
        for answer, text in (
                ({"output": {"ä": [1, None]}},
                 '{"response":{"data":{"Product":[{"error":0,"output":{"ä":[1,null]}}]}}}'),
                ({"outputText": "{ }"},
                 '{"response":{"data":{"Product":[{"error":0,"output":{ }}]}}}'),
                ({"error": 7}, '{"response":{"data":{"Product":[{"error":7}]}}}'),
                ({"text": "x"}, "x")):
            self.assertEqual([delivery["result"] for delivery in self.answer(answer)], [text])

    def test_namespace_is_the_method_without_its_name(self):
        text = self.answer({"output": 1}, "FileScan.OnDemand.RunScanTask")[0]["result"]
        self.assertEqual(list(json.loads(text)["response"]["data"]), ["FileScan.OnDemand"])

    def test_completions(self):
        self.assertEqual(self.answer({"output": {}, "completions": []}), [])
        first, second = self.answer(
            {"text": "x", "completions": [{"delay": 5}, {"result": "none", "errorNumber": 3}]})
        self.assertEqual((first["delay"], first["result"], first["batch"]), (5, "x", "own"))
        self.assertEqual((second["result"], second["errorNumber"]), (None, 3))


if __name__ == "__main__":
    unittest.main()
