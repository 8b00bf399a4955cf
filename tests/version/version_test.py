"""The version query of tools with other property lists in them.

Usage: version_test.py TOOL_WITHOUT_VERSION TOOL_WITH_OTHER_VERSION [unittest argument...]
"""

import subprocess
import sys
import unittest

without_version = None
other_version = None


class VersionTest(unittest.TestCase):
    def query(self, tool):
        done = subprocess.run([tool, "-getVersion"], capture_output=True, timeout=30)
        return done.returncode, done.stdout

    def test_list_without_the_key(self):
        self.assertEqual(self.query(without_version), (2, b""))

    def test_other_version(self):
        self.assertEqual(self.query(other_version), (0, " 2.0 <ü> ".encode()))


if __name__ == "__main__":
    without_version = sys.argv.pop(1)
    other_version = sys.argv.pop(1)
    unittest.main()
