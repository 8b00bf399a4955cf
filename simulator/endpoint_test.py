"""The launcher: what it passes through, what it lays out, and what it leaves behind."""

import fcntl
import os
import pathlib
import pty
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import unittest

from simulator import endpoints, installation, sandbox, scenario

ROOT = pathlib.Path(__file__).resolve().parents[1]
BUILD = pathlib.Path(os.environ.get("KX_BUILD", ROOT / "build" / "release")).resolve()
LAUNCHER = [sys.executable, str(ROOT / "simulator" / "endpoint.py")]
RUN = [*LAUNCHER, "run", "--build", str(BUILD)]


def launch(*words, **options):
    """Runs the launcher and gives its exit status, standard output and standard error."""
    run = subprocess.run([*RUN, *words], capture_output=True, text=True, timeout=60, check=False,
                         **options)
    return run.returncode, run.stdout, run.stderr


def wait_until(condition):
    """Waits for something that will be so soon, if it ever is."""
    deadline = time.monotonic() + 30
    while not condition():
        if time.monotonic() > deadline:
            raise AssertionError("what was waited for did not happen")
        time.sleep(0.01)


def shell_wait(condition):
    """Shell commands that wait until the command `condition` succeeds."""
    return f"for _ in $(seq 600); do sleep 0.05; {condition} && break; done; "


class CommandLine(unittest.TestCase):
    """What is passed through, and what the launcher says itself."""

    def test_output_and_exit_status_are_passed_through(self):
        status, output, _ = launch("-getVersion")
        self.assertEqual((status, output), (0, "1.0.0.206"))
        status, output, _ = launch("--scenario", "critical-issues", "-hasCriticalIssues")
        self.assertEqual((status, output), (0, "ProtectionOff|LicenceExpired"))
        status, output, _ = launch("--scenario", "not-installed", "-getProductVersion")
        self.assertEqual((status, output), (20, ""))

    def test_words_of_the_tool_are_left_alone(self):
        words = ["-getInstallationLink", "-slUrl", "--log", "-apiKey", "", "-packageName", "a b\n"]
        self.assertEqual(launch(*words)[:2], (0, "--log||a b\n|1"))

    def test_end_by_a_signal(self):
        self.assertEqual(launch("-startFullScan", "")[0], 128 + signal.SIGABRT)

    def test_log_is_shown_on_standard_error(self):
        status, output, errors = launch("--log", "--layout", "2", "-getProductVersion")
        self.assertEqual((status, output), (0, "7.16.42.200137"))
        self.assertIn("Validate /Library/Corvane/XQP/enterprise.bundle/agentsdk.dylib binary\n",
                      errors)
        self.assertNotIn("Validate", launch("-getProductVersion")[2])

    def on_terminal(self, *words):
        """The exit status and standard error of a run whose output goes to a terminal."""
        own, terminal = pty.openpty()
        try:
            run = subprocess.run([*RUN, *words], stdout=terminal, stderr=subprocess.PIPE,
                                 check=False, timeout=60)
        finally:
            os.close(terminal)
            os.close(own)
        return run.returncode, run.stderr.decode()

    def test_terminal_gets_the_line_ended_and_the_status_named(self):
        status, errors = self.on_terminal("--scenario", "method-error", "-getProductVersion")
        self.assertEqual(status, 7)
        self.assertTrue(errors.endswith("\nexit status 7\n"), errors)

    def test_terminal_is_told_of_an_option_that_the_tool_does_not_have(self):
        for words, remark in ((["-getProductVersoin"], ": the tool has no option "
                               "-getProductVersoin (did you mean -getProductVersion?)"),
                              (["-xyzzy"], ": the tool has no option -xyzzy"),
                              (["-GETVERSION", "more"], "")):
            with self.subTest(words=words):
                status, errors = self.on_terminal(*words)
                self.assertEqual(status, 22)
                self.assertTrue(errors.endswith(f"\nexit status 22{remark}\n"), errors)

    def test_scenario_from_a_file(self):
        with tempfile.TemporaryDirectory() as directory:
            path = pathlib.Path(directory) / "mine.json"
            path.write_text('{"description": "mine", "product": {"layout": null}}')
            self.assertEqual(launch("--scenario", str(path), "-detect")[:2], (0, "0|||"))

    def test_list_of_scenarios(self):
        status, output, _ = launch("--list-scenarios")
        self.assertEqual(status, 0)
        self.assertEqual([line.split()[0] for line in output.splitlines()], scenario.names())
        self.assertIn(f" {scenario.describe('healthy')}\n", output)

    def test_mistakes(self):
        for words, message in (
                (["--layout", "4", "-detect"], "'4' is no number from 1 to 3\n"),
                (["--layout"], "--layout needs a value\n"),
                (["--xyzzy"], "unknown option --xyzzy; the options are --scenario, --layout, "
                 "--sleep-divisor, --build, --log, --list-scenarios\n"),
                (["--layuot", "1"], "unknown option --layuot (did you mean --layout?); the options "
                 "are --scenario, --layout, --sleep-divisor, --build, --log, --list-scenarios\n"),
                (["--scenario", "bogus"],
                 "endpoint: there is no scenario bogus; --list-scenarios names them all\n"),
                (["--scenario", "helthy"], "endpoint: there is no scenario helthy "
                 "(did you mean healthy?); --list-scenarios names them all\n"),
                (["--build", "/nowhere", "-detect"],
                 "endpoint: /nowhere/KXTool has not been built\n")):
            with self.subTest(words=words):
                status, output, errors = launch(*words)
                self.assertEqual((status, output), (125, ""))
                self.assertTrue(errors.endswith(message), errors)
        for words in ([], ["walk"]):
            run = subprocess.run([*LAUNCHER, *words], capture_output=True, text=True, check=False)
            self.assertEqual(run.returncode, 125)
            self.assertIn("--scenario NAME", run.stderr)

    def test_shell_is_on_the_endpoint(self):
        run = subprocess.run([*LAUNCHER, "shell", "--build", str(BUILD)], capture_output=True,
                             input=f"{installation.TOOL} -getVersion; exit 3", text=True,
                             check=False, timeout=60)
        self.assertEqual((run.returncode, run.stdout), (3, "1.0.0.206"))


class Sandbox(unittest.TestCase):
    """What is on an endpoint."""

    def setUp(self):
        if sandbox.refusal() is not None:
            self.skipTest("no sandbox here; endpoints are made in place")

    def run_on(self, command, **options):
        with tempfile.TemporaryFile() as output, endpoints.open_endpoint(
                BUILD, scenario.load("healthy"), **options) as endpoint:
            status = endpoint.run(command, stdout=output)
            output.seek(0)
            return status, output.read().decode()

    def test_nothing_of_the_machine_but_programs(self):
        _, listing = self.run_on(["ls", "/", "/etc", "/Library", "/tmp"])
        for absent in ("root", "home", "shadow", "Extensions"):
            self.assertNotIn(absent, listing.split())

    def test_process_table_has_the_services_and_nothing_of_the_machine(self):
        _, listing = self.run_on(["sh", "-c", "cat /proc/[0-9]*/comm"])
        names = set(listing.split())
        self.assertGreater(names, {"KXCoreIssues", "KXLDaemon", "KXUpdDaemon"})
        self.assertLess(len(names), 10)

    def test_programs_are_added_to_those_of_the_machine(self):
        with tempfile.TemporaryDirectory() as directory:
            program = pathlib.Path(directory) / "program"
            program.write_text("#!/bin/sh\necho \"$0 $*\"\n")
            program.chmod(0o755)
            status, output = self.run_on(
                ["sh", "-c", "/usr/sbin/installer -pkg; hdiutil x; /usr/bin/python3 -c 'print(1)'"],
                programs={"/usr/sbin/installer": program, "/usr/bin/hdiutil": program,
                          "/usr/bin/id": program})
        self.assertEqual((status, output), (0, "/usr/sbin/installer -pkg\n/usr/bin/hdiutil x\n1\n"))
        self.assertFalse(pathlib.Path("/usr/bin/hdiutil").exists())

    def test_nothing_runs_after_the_command(self):
        with endpoints.open_endpoint(BUILD, scenario.load("healthy")) as endpoint:
            lock = endpoint.path("/tmp/lock")
            for _ in range(10):
                endpoint.run(["sh", "-c", "flock /tmp/lock sleep 60 & until test -e /tmp/lock; do :; done"])
                with lock.open() as file:
                    fcntl.flock(file, fcntl.LOCK_EX | fcntl.LOCK_NB)
                lock.unlink()

    def test_nothing_is_left_after_an_interrupt(self):
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
            with self.subTest(signal=number), tempfile.TemporaryDirectory() as directory:
                with subprocess.Popen([*RUN, "--scenario", "no-completion", "-getProductVersion"],
                                      env={**os.environ, "TMPDIR": directory}) as process:
                    record = "Library/Corvane/XQP/simulator/calls.jsonl"
                    wait_until(lambda d=directory: list(pathlib.Path(d).glob(f"*/{record}")))
                    process.send_signal(number)
                    self.assertEqual(process.wait(timeout=30), 128 + number)
                self.assertEqual(os.listdir(directory), [])


class InPlace(unittest.TestCase):
    """Endpoints where no namespaces can be made: a sandbox that forbids further ones."""

    TAKEN = ("/Library", "/Volumes", "/demo", "/etc/kxtool", "/opt", "/usr/bin/hdiutil",
             "/usr/sbin/installer", "/run/kxtool-endpoint/made")

    @classmethod
    def setUpClass(cls):
        if sandbox.refusal() is not None:
            raise unittest.SkipTest("no sandbox here to forbid further ones in")
        cls.programs = cls.own_program_folders()

    def in_place(self, script, user=0, timeout=120):
        """Runs a shell script in such a place, $RUN being the launcher's `run`.

        Gives the exit status, standard output and standard error.
        """
        words = ["bwrap", "--unshare-user", "--disable-userns", "--uid", str(user), "--unshare-pid",
                 "--die-with-parent", "--cap-drop", "ALL", "--ro-bind", "/usr", "/usr",
                 "--proc", "/proc", "--dev", "/dev", "--tmpfs", "/tmp", "--dir", "/run"]
        words += self.programs
        for link in ("/bin", "/sbin", "/lib", "/lib64"):
            words += ["--symlink", os.readlink(link), link]
        for path in {ROOT, BUILD}:
            words += ["--bind", str(path), str(path)]
        words += ["--setenv", "RUN", f"/usr/bin/python3 {ROOT}/simulator/endpoint.py run "
                  f"--build {BUILD}", "sh", "-c", script]
        run = subprocess.run(words, capture_output=True, text=True, timeout=timeout, check=False)
        return run.returncode, run.stdout, run.stderr

    @classmethod
    def own_program_folders(cls):
        """Makes the folders of programs writable: in their place come folders of links."""
        words = ["--ro-bind", "/usr", "/run/host/usr"]
        for name in ("bin", "sbin"):
            folder = tempfile.TemporaryDirectory()  # pylint: disable=consider-using-with
            cls.addClassCleanup(folder.cleanup)
            for program in os.listdir(f"/usr/{name}"):
                os.symlink(f"/run/host/usr/{name}/{program}", f"{folder.name}/{program}")
            words += ["--bind", folder.name, f"/usr/{name}"]
        return words

    def test_works_in_place_and_says_so(self):
        status, output, errors = self.in_place(
            "$RUN -getProductVersion; echo \" $?\"; $RUN --scenario not-installed -detect; "
            "ls -d " + " ".join(self.TAKEN))
        self.assertEqual(output, "7.16.42.200137 0\n0|||")
        self.assertIn("working in place\n", errors)
        self.assertEqual(errors.count("cannot access"), len(self.TAKEN))
        self.assertEqual(status, 2)

    def test_services_run(self):
        _, output, _ = self.in_place("$RUN --sleep-divisor 1000 -detect; cat /proc/[0-9]*/comm")
        record, _, names = output.partition("sh\n")
        self.assertRegex(record, r"^1\|.+\|.+\|.+")
        self.assertNotIn("KX", names)

    def test_installer_tools_are_there_for_the_time_of_a_run(self):
        _, output, _ = self.in_place(
            "$RUN --scenario installer --sleep-divisor 1000 -runInstaller "
            "/demo/package-image/Setup.iso; cat /proc/[0-9]*/comm; "
            "ls -d /Volumes /demo /usr/bin/hdiutil /usr/sbin/installer")
        record, _, rest = output.partition("sh\n")
        self.assertRegex(record, r"^1\|.+\|.+\|.+")
        self.assertNotIn("KX", rest)
        self.assertNotIn("/", rest)

    def test_taken_paths_are_left_alone(self):
        status, _, errors = self.in_place(
            "mkdir -p /Library/Corvane; $RUN -getVersion; code=$?; ls -d /Library/Corvane && "
            "exit $code")
        self.assertEqual(status, 125)
        self.assertIn("cannot work in place, as there is already /Library/Corvane\n", errors)

    def test_failure_half_way_leaves_nothing(self):
        status, output, errors = self.in_place(
            "mkdir /opt; chmod 500 /opt; $RUN -getVersion; echo $?; ls -d " + " ".join(self.TAKEN))
        self.assertEqual(output, "125\n/opt\n")
        self.assertIn("Permission denied", errors)
        self.assertEqual(status, 2)

    def test_folders_that_may_not_be_entered_are_removed(self):
        status, _, _ = self.in_place(
            "mkdir -p /tmp/a/b/c /tmp/d; touch /tmp/d/e; ln -s /tmp/d /tmp/a/b/d; chmod 0 /tmp/a/b; "
            f"cd {ROOT}; /usr/bin/python3 -c 'import pathlib; from simulator import sandbox; "
            "sandbox.remove_tree(pathlib.Path(\"/tmp/a\"))'; test ! -e /tmp/a && test -e /tmp/d/e")
        self.assertEqual(status, 0)

    def test_folders_that_were_there_stay(self):
        status, _, _ = self.in_place(
            "mkdir -p /Library/Fonts /opt; $RUN -getVersion && ls -d /Library/Fonts /opt && "
            "! ls -d '/Library/Application Support'")
        self.assertEqual(status, 0)

    def interrupted(self, number, then):
        """A run that gets a signal while it waits for an answer, and the commands `then`.

        Python starts it, since a shell's background commands ignore some signals.
        """
        start = ("import os, signal, sys; signal.signal(signal.SIGINT, signal.SIG_DFL); "
                 "os.execvp(sys.argv[1], sys.argv[1:])")
        return self.in_place(
            f"/usr/bin/python3 -c '{start}' $RUN --scenario no-completion -getProductVersion & "
            + shell_wait(f"test -e {installation.CALL_RECORD}") +
            f"kill -{int(number)} $!; wait $!; echo \" $?\"; {then}")[1]

    def test_nothing_is_left_after_an_interrupt(self):
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
            with self.subTest(signal=number):
                output = self.interrupted(number, "ls /")
                self.assertTrue(output.startswith(f" {128 + number}\n"), output)
                self.assertNotIn("Library", output)

    def test_next_run_removes_what_a_killed_one_left(self):
        output = self.interrupted(signal.SIGKILL, "ls -d /Library; $RUN -getVersion; echo; ls /")
        left, _, afterwards = output.partition("1.0.0.206\n")
        self.assertEqual(left, f" {128 + signal.SIGKILL}\n/Library\n")
        self.assertIn("usr\n", afterwards)
        self.assertNotIn("Library", afterwards)

    def test_runs_wait_for_each_other(self):
        _, output, errors = self.in_place(
            "$RUN --scenario no-completion -getProductVersion & first=$!; "
            + shell_wait(f"test -e {installation.CALL_RECORD}") +
            "for n in 1 2 3; do $RUN -getVersion & done 2>/tmp/said; "
            + shell_wait("test $(grep -c waiting /tmp/said) -eq 3") +
            "kill $first; wait; echo; ls /; cat /tmp/said >&2")
        self.assertEqual(output.partition("\n")[0], "1.0.0.206" * 3)
        self.assertNotIn("Library", output)
        self.assertEqual(errors.count("waiting for another run to end\n"), 3)

    def test_others_than_root_are_told_what_is_missing(self):
        status, output, errors = self.in_place("$RUN -getVersion", user=1000)
        self.assertEqual((status, output), (125, ""))
        self.assertIn("cannot make a sandbox: ", errors)
        self.assertIn("or root.\n", errors)


class Build(unittest.TestCase):
    """What the launcher needs of a build."""

    def test_missing_stand_ins_are_named(self):
        with tempfile.TemporaryDirectory() as directory:
            shutil.copy(BUILD / "KXTool", directory)
            with self.assertRaisesRegex(installation.BuildError, "fast_sleep.so has not been"):
                with endpoints.open_endpoint(pathlib.Path(directory), scenario.load("healthy")):
                    self.fail("an endpoint without stand-ins was made")


if __name__ == "__main__":
    unittest.main()
