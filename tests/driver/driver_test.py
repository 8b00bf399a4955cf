"""./kx itself: its help, its error messages, its completions, and the folders in which it works."""

import os
import pathlib
import re
import shutil
import subprocess
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
DRIVER = [str(ROOT / "kx")]
COMMANDS = re.findall(r"^command_(\w+)\(\) {", (ROOT / "kx").read_text(encoding="utf-8"), re.MULTILINE)


def run(*words, driver=DRIVER, **options):
    """Returns the exit status, standard output and standard error of ./kx."""
    done = subprocess.run([*driver, *words], capture_output=True, text=True, check=False, timeout=60,
                          **options)
    return done.returncode, done.stdout, done.stderr


class Copy(unittest.TestCase):
    """A copy of the driver in which nothing has been built, in a folder with a difficult name."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.root = pathlib.Path(folder.name) / "für Übungen"
        for name in ("simulator", "bench"):
            shutil.copytree(ROOT / name, self.root / name)
        for name in ("kx", "CMakePresets.json"):
            shutil.copy(ROOT / name, self.root)
        self.driver = [str(self.root / "kx")]
        self.before = sorted(self.root.iterdir())

    def test_help_of_every_command_needs_no_build(self):
        status, usage, errors = run("help", driver=self.driver)
        self.assertEqual((status, errors), (0, ""))
        listed = dict.fromkeys(re.findall(r"^  (\w+)", usage, re.MULTILINE))
        self.assertEqual(sorted(listed), sorted(COMMANDS))
        for words in ([], ["-h"], ["--help"]):
            self.assertEqual(run(*words, driver=self.driver), (0, usage, ""))
        for command in COMMANDS:
            with self.subTest(command=command):
                status, text, errors = run(command, "--help", driver=self.driver)
                self.assertEqual((status, errors), (0, ""))
                self.assertIn(command, text)
                for words in (["-h"], ["--layout=1", "--help"]):
                    self.assertEqual(run(command, *words, driver=self.driver), (0, text, ""))
        self.assertEqual(sorted(self.root.iterdir()), self.before)

    def test_scenarios_are_listed_without_a_build_through_a_link_from_anywhere(self):
        elsewhere = self.root.parent / "elsewhere"
        elsewhere.mkdir()
        (elsewhere / "link").symlink_to(self.root / "kx")
        status, listed, errors = run("run", "--list-scenarios", driver=["./link"], cwd=elsewhere)
        self.assertEqual((status, errors), (0, ""))
        self.assertRegex(listed, "(?m)^  healthy  +[A-Z]")
        self.assertEqual(os.listdir(elsewhere), ["link"])
        self.assertEqual(sorted(self.root.iterdir()), self.before)

    def test_a_read_only_checkout_is_refused_in_one_sentence(self):
        read_only = ["bwrap", "--dev-bind", "/", "/", "--ro-bind", str(self.root), str(self.root)]
        if subprocess.run([*read_only, "true"], check=False, capture_output=True).returncode:
            self.skipTest("nothing can be mounted here")
        for command in ("run", "test", "build"):
            self.assertEqual(run(command, driver=[*read_only, *self.driver]), (
                1, "", f"kx: cannot write to {self.root}/build/release; "
                "clone the project to a folder that you can write to\n"))


class Launcher(unittest.TestCase):
    def test_paths_are_the_callers(self):
        with tempfile.TemporaryDirectory() as folder:
            pathlib.Path(folder, "mine.json").write_text(
                '{"description": "mine", "product": {"layout": null}}', encoding="utf-8")
            self.assertEqual(run("run", "--scenario=./mine.json", "-detect", cwd=folder)[:2],
                             (0, "0|||"))

    def test_closed_streams_do_no_harm(self):
        for closed in ("<&-", ">&-", "2>&-"):
            with self.subTest(closed=closed):
                done = subprocess.run(["bash", "-c", f'"$0" run -getVersion {closed}', *DRIVER],
                                      capture_output=True, text=True, check=False, timeout=60)
                self.assertEqual(done.returncode, 0, done.stderr)
                self.assertRegex(done.stderr, r"\A(endpoint: .*\n)*\Z")
                self.assertEqual(done.stdout, "" if closed == ">&-" else "1.0.0.206")


class Mistakes(unittest.TestCase):
    def test_each_names_the_command_that_helps(self):
        for words, message in (
                (["chekc"], "there is no command chekc; see ./kx help"),
                (["build test"], "there is no command build test; see ./kx help"),
                (["setup", "--bnech"], "unknown argument --bnech; see ./kx setup --help"),
                (["build", "debug"],
                 "build takes no argument, but got debug; see ./kx build --help"),
                (["test", "real-signature"],
                 "unknown argument real-signature; see ./kx test --help"),
                (["test", "--frobnicate=3"],
                 "unknown argument --frobnicate; see ./kx test --help"),
                (["test", "-R"], "-R needs a value; see ./kx test --help"),
                (["check", "spelling"], "check has no step spelling; see ./kx check --help"),
                (["completion"], "completion is for bash or zsh; see ./kx completion --help"),
                (["fuzz", "soon"], "fuzz needs a number of seconds; see ./kx fuzz --help"),
                (["soak", "long"], "soak needs a number of runs; see ./kx soak --help")):
            with self.subTest(words=words):
                self.assertEqual(run(*words), (1, "", f"kx: {message}\n"))


class Completion(unittest.TestCase):
    def offered(self, shell, *words):
        begin, end = {"bash": ("", ""), "zsh": ("autoload compinit; compinit -D; ", "emulate ksh; ")}[shell]
        script = (f'{begin}source <("$0" completion {shell}); COMP_WORDS=("$@"); '
                  f'COMP_CWORD=$(($# - 1)); {end}_kx; printf "%s\\n" "${{COMPREPLY[@]}}"')
        done = subprocess.run([shell, "-c", script, *DRIVER, "./kx", *words], capture_output=True,
                              text=True, check=False, timeout=60)
        self.assertEqual(done.stderr, "")
        # zsh itself drops the words that do not match.
        return [word for word in done.stdout.split() if word.startswith(words[-1])]

    def check(self, shell):
        self.assertEqual(sorted(self.offered(shell, "")), sorted(COMMANDS))
        self.assertEqual(self.offered(shell, "so"), ["soak"])
        self.assertEqual(self.offered(shell, "run", "--sc"), ["--scenario"])
        for words in (["--scenario", "health"], ["--scenario", "=", "health"]):
            self.assertEqual(self.offered(shell, "endpoint", *words), ["healthy"])
        self.assertEqual(self.offered(shell, "completion", "z"), ["zsh"])

    def test_bash(self):
        self.check("bash")

    @unittest.skipUnless(shutil.which("zsh"), "zsh is not installed")
    def test_zsh(self):
        self.check("zsh")


if __name__ == "__main__":
    unittest.main()
