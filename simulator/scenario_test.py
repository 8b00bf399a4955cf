"""Scenarios: the error messages for their authors, and the catalogue."""

import json
import pathlib
import tempfile
import unittest
import unittest.mock

from simulator import scenario

STATUS = "Product.GetStatus"


class Mistakes(unittest.TestCase):
    """Every mistake is reported with its path."""

    def check(self, given, *messages):
        with self.assertRaises(scenario.ScenarioError) as caught:
            scenario.load(given)
        found = str(caught.exception).split("\n")
        self.assertEqual(len(found), len(messages), found)
        for mistake, message in zip(found, messages):
            self.assertIn(f"the given scenario: {message}", mistake)

    def test_all_are_reported(self):
        self.check({"sdk": {"statuses": [], "run": [0, "1", True, 0.5]}},
                   "$.sdk: Additional properties", "$.sdk.run[1]: '1' is not of type 'integer'",
                   "$.sdk.run[2]: ", "$.sdk.run[3]: ")
        self.check({"product": {"layout": True, "trust": "pined"}},
                   "$.product.layout: True is not one of", "$.product.trust: 'pined' is not one of")
        self.check({"files": [{"path": "/etc/passwd", "text": ""}]}, "$.files[0].path: ")

    def test_completions_that_would_block_the_tool(self):
        for completion, is_good in (
                ({"when": "insideRun"}, False),
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


class Catalogue(unittest.TestCase):
    """The scenarios that come with the simulator."""

    def test_every_scenario_is_valid_and_has_its_own_description(self):
        files = list(scenario.DIRECTORY.rglob("*.json"))
        self.assertEqual(len(scenario.catalogue()), len(files))
        for name, path in scenario.catalogue().items():
            with self.subTest(scenario=name):
                scenario.check(json.loads(path.read_text(encoding="utf-8")), name)
                scenario.load(name)
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


if __name__ == "__main__":
    unittest.main()
