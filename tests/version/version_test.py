"""The version query of tools with other property lists in them.

Usage: version_test.py TOOL_WITH_OTHER_VERSION TOOL_WITHOUT_VERSION...
"""

import subprocess
import sys
import unittest

tools = []


class VersionTest(unittest.TestCase):
    def query(self, tool):
        done = subprocess.run([tool, "-getVersion"], capture_output=True, timeout=30)
        return done.returncode, done.stdout

    def test_other_version(self):
        self.assertEqual(self.query(tools[0]), (0, " 2.0 <ü> ".encode()))

    def test_lists_without_a_version(self):
        self.assertGreater(len(tools), 1)
        for tool in tools[1:]:
            with self.subTest(tool=tool):
                self.assertEqual(self.query(tool), (2, b""))


if __name__ == "__main__":
    tools = sys.argv[1:]
    unittest.main(argv=sys.argv[:1])
