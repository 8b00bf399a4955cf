"""A Mac builds with the libraries that are tested on Linux: vcpkg.json pins the versions of Debian."""

import json
import re
import subprocess
import unittest
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
PACKAGES = {"rapidjson": "rapidjson-dev", "rapidxml": "librapidxml-dev", "gtest": "libgtest-dev"}


class DependenciesTest(unittest.TestCase):
    def test_versions_are_those_of_debian(self):
        manifest = json.loads((ROOT / "vcpkg.json").read_text(encoding="utf-8"))
        self.assertRegex(manifest["builtin-baseline"], "^[0-9a-f]{40}$")
        pinned = {entry["name"]: entry["version"] for entry in manifest["overrides"]}
        self.assertEqual(sorted(pinned), sorted(manifest["dependencies"]))
        for name, version in pinned.items():
            installed = subprocess.run(["dpkg-query", "--show", "--showformat=${Version}", PACKAGES[name]],
                                       check=True, capture_output=True, text=True).stdout
            self.assertEqual(re.match(r"[\d.]+", installed)[0].rstrip("."), version, name)


if __name__ == "__main__":
    unittest.main()
