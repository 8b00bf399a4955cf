"""The version query: its answers for tools with other property lists, and the files that it opens.

Usage: version_test.py TOOL TOOL_WITH_OTHER_VERSION TOOL_WITHOUT_VERSION... -- TEST...
"""

import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

_tools = []
_OPENED = re.compile(r'^\d+ +open(?:at|at2)?\((?:AT_FDCWD, )?"([^"]*)".* = \d+$', re.MULTILINE)


class VersionTest(unittest.TestCase):
    def query(self, tool):
        done = subprocess.run([tool, "-getVersion"], capture_output=True, timeout=30)
        return done.returncode, done.stdout

    def test_is_printed_exactly_as_stored(self):
        self.assertEqual(self.query(_tools[1]), (0, " 2.0 <ü> ".encode()))

    def test_lists_without_a_version(self):
        self.assertEqual([self.query(tool) for tool in _tools[2:]], [(2, b"")] * 3)


class OpenedFilesTest(unittest.TestCase):
    """Opens only what the loader needs, the configuration and, if requested, the log."""

    def setUp(self):
        place = tempfile.TemporaryDirectory()
        self.addCleanup(place.cleanup)
        self.place = pathlib.Path(place.name)
        self.tool = shutil.copy(_tools[0], self.place / "KXTool")

    def opened(self):
        """The names of the files that the query opens; those of libraries without their folder."""
        record = self.place / "record"
        run = subprocess.run(
            ["strace", "-f", "-e", "trace=open,openat,openat2,creat", "-e", "signal=none", "-o",
             record, self.tool, "-getVersion"], env={"TZ": "UTC0"}, capture_output=True,
            check=True, timeout=60)
        self.assertEqual(run.stderr, b"")
        names = _OPENED.findall(record.read_text(encoding="utf-8"))
        return [re.sub(r"^/(usr/)?lib.*/", "", name) for name in names]

    def test_with_and_without_configuration(self):
        loaded = ["/etc/ld.so.cache", "libc.so.6"]
        self.assertEqual(self.opened(), loaded)
        configuration = self.place / "configfile.txt"
        log = str(self.place / "log.txt")
        # Opened once to see whether it can be written without blocking, then to write it.
        for logging, logs in (("false", []), ("true", [log, log])):
            with self.subTest(logging=logging):
                configuration.write_text(f"Logging={logging}\n", encoding="utf-8")
                self.assertEqual(self.opened(), [*loaded, str(configuration), *logs])


if __name__ == "__main__":
    separator = sys.argv.index("--")
    _tools = sys.argv[1:separator]
    unittest.main(argv=[sys.argv[0], *sys.argv[separator + 1:]])
