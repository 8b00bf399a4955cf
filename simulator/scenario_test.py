"""Scenarios: their schema's errors, what they leave out, and what the stand-ins make of them."""

import json
import pathlib
import tempfile
import unittest
import unittest.mock

from simulator import scenario

STATUS = "Product.GetStatus"


class Mistakes(unittest.TestCase):
    """Every mistake is named with the path to it."""

    def check(self, given, *messages):
        with self.assertRaises(scenario.ScenarioError) as caught:
            scenario.load(given)
        found = str(caught.exception).split("\n")
        self.assertEqual(len(found), len(messages), found)
        for mistake, message in zip(found, messages):
            self.assertIn(f"the given scenario: {message}", mistake)

    def test_each_is_named_with_the_path_to_it(self):
        self.check({"sdk": {"statuses": [], "run": [0, "1", True, 0.5]}},
                   "$.sdk: Additional properties", "$.sdk.run[1]: '1' is not of type 'integer'",
                   "$.sdk.run[2]: ", "$.sdk.run[3]: ")
        self.check({"product": {"layout": True, "trust": "pined"}},
                   "$.product.layout: True is not one of", "$.product.trust: 'pined' is not one of")
        self.check({"files": [{"path": "/etc/passwd", "text": ""}]}, "$.files[0].path: ")
        self.check({"sdk": {"answers": {STATUS: {"output": {}, "text": ""}}}}, "$.sdk.answers")
        self.check({"scanLogs": [{"name": "a", "text": "", "modified": "now"}]},
                   "$.scanLogs[0].modified: ")

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
            for content, message in (("{", "not JSON: "), ("[]", "is not of type 'object'"),
                                     ("{}", "'description' is a required property")):
                path.write_text(content)
                with self.assertRaisesRegex(scenario.ScenarioError, message):
                    scenario.load(str(path))
        with self.assertRaisesRegex(scenario.ScenarioError, "No such file"):
            scenario.load(str(path))
        with self.assertRaisesRegex(scenario.ScenarioError, "there is no scenario nothing"):
            scenario.load("nothing")


class Contents(unittest.TestCase):
    """What a scenario says, and what it takes over from healthy."""

    def test_every_scenario_is_complete_and_says_what_it_is(self):
        healthy = scenario.load("healthy")
        files = list(scenario.DIRECTORY.rglob("*.json"))
        self.assertEqual(len(scenario.catalogue()), len(files))
        for name, path in scenario.catalogue().items():
            with self.subTest(scenario=name):
                scenario.check(json.loads(path.read_text(encoding="utf-8")), name)
                complete = scenario.load(name)
                self.assertEqual(set(complete), set(healthy))
                self.assertEqual(set(complete["product"]), set(healthy["product"]))
                self.assertEqual(set(complete["sdk"]), set(healthy["sdk"]))
                json.dumps(scenario.stand_in_script(complete))
        descriptions = [scenario.describe(name) for name in scenario.catalogue()]
        self.assertEqual(len(set(descriptions)), len(descriptions))

    def test_are_listed_by_folder(self):
        with tempfile.TemporaryDirectory() as directory:
            for path, text in (("b/late.json", "Comes late"), ("a.json", "Early"),
                               ("b/once.json", "Once only")):
                file = pathlib.Path(directory, path)
                file.parent.mkdir(exist_ok=True)
                file.write_text(json.dumps({"description": text}))
            scenario.catalogue.cache_clear()
            self.addCleanup(scenario.catalogue.cache_clear)
            with unittest.mock.patch.object(scenario, "DIRECTORY", pathlib.Path(directory)):
                self.assertEqual(scenario.listing(),
                                 "  a     Early\n\nb:\n  late  Comes late\n  once  Once only\n")
                for word in ("B", "LATE", "comes"):
                    self.assertIn("  late  Comes late\n", scenario.listing(word))
                self.assertEqual(scenario.listing("only"), "b:\n  once  Once only\n")
                self.assertEqual(scenario.listing("c l"), "")

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
