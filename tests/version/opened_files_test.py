"""Which files the version query of the tool that ships opens.

Usage: opened_files_test.py TOOL [unittest argument...]
"""

import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

_TOOL = None
_OPENED = re.compile(r'^\d+ +open(?:at|at2)?\((?:AT_FDCWD, )?"([^"]*)".* = \d+$', re.MULTILINE)


class OpenedFilesTest(unittest.TestCase):
    """Nothing is opened but what the loader needs, the configuration and, if asked for, the log."""

    def setUp(self):
        place = tempfile.TemporaryDirectory()
        self.addCleanup(place.cleanup)
        self.place = pathlib.Path(place.name)
        self.tool = shutil.copy(_TOOL, self.place / "KXTool")
        self.record = self.place / "record"

    def opened(self):
        """The names of the files that the query has opened; those of libraries without folder."""
        run = subprocess.run(
            ["strace", "-f", "-e", "trace=open,openat,openat2,creat", "-e", "signal=none", "-o",
             self.record, self.tool, "-getVersion"], env={"TZ": "UTC0"}, capture_output=True,
            check=True, timeout=60)
        self.assertEqual(run.stderr, b"")
        names = _OPENED.findall(self.record.read_text(encoding="utf-8"))
        return [re.sub(r"^/(usr/)?lib.*/", "", name) for name in names]

    def test_without_configuration(self):
        self.assertEqual(self.opened(), ["/etc/ld.so.cache", "libc.so.6"])

    def test_with_configuration(self):
        configuration = self.place / "configfile.txt"
        log_file = str(self.place / "log.txt")
        # Once to see whether it can be written without waiting, then to write it.
        for logging, log in (("false", []), ("true", [log_file, log_file])):
            with self.subTest(logging=logging):
                configuration.write_text(f"Logging={logging}\n", encoding="utf-8")
                self.assertEqual(self.opened(),
                                 ["/etc/ld.so.cache", "libc.so.6", str(configuration), *log])


if __name__ == "__main__":
    _TOOL = sys.argv.pop(1)
    unittest.main()
