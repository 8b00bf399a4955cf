"""./kx itself: its help, what it says to mistakes, and when it uses colours."""

import os
import pty
import re
import subprocess
import unittest
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
DRIVER = str(ROOT / "kx")
COLOUR = re.compile(r"\x1b\[[0-9;]*m")


def run(*words):
    """The exit status, standard output and standard error of ./kx, with no terminal in sight."""
    done = subprocess.run([DRIVER, *words], capture_output=True, text=True, check=False, timeout=60)
    return done.returncode, done.stdout, done.stderr


def errors_on_terminal(*words, **variables):
    """What ./kx writes to a terminal as its standard error."""
    own, terminal = pty.openpty()
    environment = {name: value for name, value in os.environ.items() if name != "NO_COLOR"}
    try:
        subprocess.run([DRIVER, *words], stdout=subprocess.DEVNULL, stderr=terminal, check=False,
                       timeout=60, env={**environment, "TERM": "xterm", **variables})
    finally:
        os.close(terminal)
    with open(own, "rb", closefd=True) as reader:
        return reader.read1(65536).decode()


class Help(unittest.TestCase):
    def test_lists_every_command(self):
        status, output, errors = run("help")
        self.assertEqual((status, errors), (0, ""))
        script = Path(DRIVER).read_text(encoding="utf-8")
        functions = re.findall(r"^command_(\w+)\(\) {", script, re.MULTILINE)
        self.assertGreater(len(functions), 5)
        listed = dict.fromkeys(re.findall(r"^  (\w+) ", output, re.MULTILINE))
        self.assertEqual(sorted(listed), sorted(functions))
        commands = re.search(r"^readonly commands=\((.*)\)$", script, re.MULTILINE)[1].split()
        self.assertEqual(commands, list(listed))

    def test_is_what_no_word_gives(self):
        self.assertEqual(run(), run("help"))


class Mistakes(unittest.TestCase):
    def test_each_is_answered_with_what_might_be_meant(self):
        for words, message in (
                (["chekc"], "there is no command chekc; did you mean check? (./kx help lists them)"),
                (["xyzzyx"], "there is no command xyzzyx (./kx help lists them)"),
                (["build test"],
                 "there is no command build test (./kx help lists them)"),
                (["setup", "--bnech"], "setup does not know --bnech; did you mean --bench?"),
                (["build", "debug"],
                 "build takes no argument, but was given debug; see ./kx help"),
                (["test", "real-signature"],
                 "test does not know real-signature; did you mean real-signatures? "
                 "(./kx test -R real-signature runs the tests named so)"),
                (["fuzz", "soon"], "usage: ./kx fuzz SECONDS"),
                (["fuzz"], "usage: ./kx fuzz SECONDS"),
                (["soak", "long"], "usage: ./kx soak RUNS")):
            with self.subTest(words=words):
                self.assertEqual(run(*words), (1, "", f"kx: {message}\n"))


class Colours(unittest.TestCase):
    def test_are_for_terminals(self):
        self.assertNotRegex(run("chekc")[2], COLOUR)
        shown = errors_on_terminal("chekc")
        self.assertRegex(shown, COLOUR)
        self.assertEqual(COLOUR.sub("", shown).replace("\r\n", "\n"), run("chekc")[2])

    def test_are_left_out_on_request(self):
        for name, value in (("NO_COLOR", "1"), ("TERM", "dumb")):
            self.assertNotRegex(errors_on_terminal("chekc", **{name: value}), COLOUR)

    def test_an_empty_request_is_none(self):
        self.assertRegex(errors_on_terminal("chekc", NO_COLOR=""), COLOUR)


if __name__ == "__main__":
    unittest.main()
