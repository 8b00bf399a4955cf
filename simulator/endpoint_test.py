"""Tests the launcher's command line, its endpoints and its clean-up."""

import contextlib
import fcntl
import os
import pathlib
import pty
import re
import select
import shlex
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


def launch(*words, command="run", **options):
    """Runs the launcher. Returns its exit status, standard output and standard error, without the
    messages about endpoints in place."""
    run = subprocess.run([*LAUNCHER, command, "--build", str(BUILD), *words], capture_output=True,
                         text=True, timeout=60, check=False, **options)
    return run.returncode, run.stdout, re.sub("(?m)^endpoint: .*\n", "", run.stderr)


def wait_until(condition):
    """Waits until a condition holds."""
    deadline = time.monotonic() + 30
    while not condition():
        if time.monotonic() > deadline:
            raise AssertionError("the condition does not hold after 30 seconds")
        time.sleep(0.01)


def shell_wait(condition):
    """A shell loop that waits until the command `condition` succeeds."""
    return f"for _ in $(seq 600); do sleep 0.05; {condition} && break; done; "


class CommandLine(unittest.TestCase):
    """What the launcher passes on, and its messages."""

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

    def test_refused_words_are_explained(self):
        for words, hint in (
                ([], "the tool needs an option, such as -getProductVersion; see ./kx run --help"),
                (["-help"], "the tool rejected these arguments: Invalid arguments for running RMM tool; "
                 "docs/contract.md lists its options"),
                (["-startFullScan", "1m"], "the tool rejected these arguments: Bad arguments.; "
                 "docs/contract.md lists its options"),
                (["-getFeatureStatus", "--scenario=healthy"], "--scenario=healthy is an option of "
                 "./kx run and belongs before -getFeatureStatus"),
                (["-detect"] * 9, "the tool takes at most 8 words")):
            with self.subTest(words=words):
                self.assertEqual(launch(*words), (22, "", f"kx: {hint}\n"))
        refused = launch("--scenario", "library-unsigned", "-getProductVersion")
        self.assertEqual(refused, (22, "", ""))

    def test_scenario_from_a_file(self):
        with tempfile.TemporaryDirectory() as directory:
            path = pathlib.Path(directory) / "mine.json"
            path.write_text('{"description": "mine", "product": {"layout": null}}')
            self.assertEqual(launch("--scenario", str(path), "-detect")[:2], (0, "0|||"))
            self.assertEqual(launch("--scenario=./mine.json", "--", "-detect", cwd=directory)[:2],
                             (0, "0|||"))

    def test_list_of_scenarios(self):
        self.assertEqual(launch("--list-scenarios"), (0, scenario.listing(), ""))
        self.assertEqual(launch("--list-scenarios", "installer"),
                         (0, scenario.listing("installer"), ""))
        run = subprocess.run(f"{shlex.join(RUN)} --list-scenarios | head -n 1", shell=True,
                             capture_output=True, text=True, check=True)
        self.assertEqual(run.stderr, "")

    def test_help_is_asked_for_before_anything_else(self):
        for words in (["--help"], ["-h"], ["--layout", "2", "--help", "-detect"]):
            status, output, errors = launch(*words)
            self.assertEqual((status, errors), (0, ""))
            self.assertIn("--scenario NAME", output)

    def test_mistakes(self):
        usage = "; see ./kx run --help\n"
        for words, message in (
                (["--layout", "4", "-detect"], f"'4' is not a number from 1 to 3{usage}"),
                (["--layout"], f"--layout needs a value{usage}"),
                (["--log=yes"], f"--log takes no value{usage}"),
                (["--xyzzy=3"], f"there is no option --xyzzy{usage}"),
                (["--list-scenarios", "xyzzy"], f"there is no scenario about xyzzy{usage}"),
                (["--scenario", "helthy"], "there is no scenario helthy (did you mean healthy?); "
                 "./kx run --list-scenarios lists them\n"),
                (["--build", "/nowhere", "-detect"], "/nowhere/KXTool has not been built\n")):
            with self.subTest(words=words):
                self.assertEqual(launch(*words), (125, "", f"kx: {message}"))
        for words, message in ((["ls"], "a command must follow --"), (["--"], "a command must follow --"),
                               (["--list-scenarios"],
                                "./kx run --list-scenarios lists the scenarios")):
            with self.subTest(words=words):
                status, output, errors = launch(*words, command="endpoint")
                self.assertEqual((status, output), (125, ""))
                self.assertEqual(errors, f"kx: {message}; see ./kx endpoint --help\n")


class Commands(unittest.TestCase):
    """Commands, scripts and shells on an endpoint."""

    def test_a_production_script_runs_unchanged(self):
        guide = (ROOT / "docs" / "rmm-integration.md").read_text(encoding="utf-8")
        script, = re.findall(r"^```sh\n(.*?)^```$", guide, re.MULTILINE | re.DOTALL)
        with tempfile.TemporaryDirectory() as directory:
            path = pathlib.Path(directory) / "script.sh"
            path.write_text(f"#!/bin/sh\n{script}", encoding="utf-8")
            path.chmod(0o755)
            for words in (["./script.sh"], ["sh", str(path)]):
                with self.subTest(words=words):
                    self.assertEqual(
                        launch("--scenario=update-failed", "--", *words, command="endpoint",
                               cwd=directory),
                        (0, "not up to date\n", ""))

    def test_the_tool_is_at_its_place_and_on_the_path(self):
        script = "KXTool -getVersion; command -v KXTool; echo $0; exit 3"
        self.assertEqual(launch(command="endpoint", input=script),
                         (3, f"1.0.0.206{installation.TOOL}\n/bin/bash\n", ""))

    def test_the_log_is_shown_on_request(self):
        _, _, errors = launch("--log", "--", installation.TOOL, "-getVersion", command="endpoint")
        self.assertIn(" Get RMM tool version\n", errors)

    def test_the_status_is_the_commands(self):
        for words, status, errors in ((["false"], 1, ""), (["sh", "-c", "kill -9 $$"], 137, ""),
                                      (["xyzzy"], 127, "xyzzy: No such file or directory\n"),
                                      (["/tmp"], 126, "/tmp: Permission denied\n")):
            with self.subTest(words=words):
                self.assertEqual(launch("--", *words, command="endpoint"), (status, "", errors))

    def on_terminal(self, typed, *words):
        """The exit status of an endpoint on a terminal, and what is shown there. Each pair of
        `typed` has the text to wait for, and the text to type then.

        The status is 99 if the terminal has not been given back afterwards.
        """
        process, terminal = pty.fork()
        if process == 0:  # as a shell without job control
            run = subprocess.run([*LAUNCHER, "endpoint", "--build", str(BUILD), *words],
                                 check=False)
            os._exit(run.returncode if os.tcgetpgrp(0) == os.getpgrp() else 99)
        shown = seen = ""
        with contextlib.suppress(OSError):  # the terminal is closed
            while select.select([terminal], [], [], 60)[0]:
                text = os.read(terminal, 65536).decode()
                shown += text
                seen += text
                if typed and typed[0][0] in seen:
                    os.write(terminal, typed.pop(0)[1])
                    seen = ""
        os.close(terminal)
        return os.waitstatus_to_exitcode(os.waitpid(process, 0)[1]), shown

    def test_shell_on_a_terminal(self):
        prompt = "[critical-issues] /opt/kxtool/work"
        status, shown = self.on_terminal(
            [(prompt, b"sh -c 'echo h''ere; exec sleep 60'\r"), ("here", b"\x03"),
             (prompt, b"sh -c 'exit 5'\r"), (prompt, b"exit\r")],
            "--scenario", "critical-issues")
        self.assertEqual(status, 5, shown)
        self.assertNotRegex(shown, "process group|job control")

    def test_what_is_typed_is_for_the_command(self):
        script = "trap 'echo caught; exit 4' INT; echo ready; while :; do sleep 0.1; done"
        status, shown = self.on_terminal([("ready", b"\x1a\x03")], "--", "bash", "-c", script)
        self.assertEqual(status, 4, shown)
        self.assertIn("caught", shown)


class Sandbox(unittest.TestCase):
    """What is on an endpoint."""

    def setUp(self):
        if sandbox.refusal() is not None:
            self.skipTest("no sandbox here; endpoints are made in place")

    def run_on(self, *command):
        with tempfile.TemporaryFile() as output, endpoints.open_endpoint(
                BUILD, scenario.load("healthy")) as endpoint:
            status = endpoint.run(list(command), stdout=output)
            output.seek(0)
            return status, output.read().decode()

    def test_nothing_of_the_machine_but_programs(self):
        _, listing = self.run_on("ls", "/", "/etc", "/Library", "/tmp")
        for absent in ("root", "home", "shadow", "Extensions"):
            self.assertNotIn(absent, listing.split())

    def test_process_table_has_the_services_and_nothing_of_the_machine(self):
        _, listing = self.run_on("sh", "-c", "cat /proc/[0-9]*/comm")
        names = set(listing.split())
        self.assertGreater(names, {"KXCoreIssues", "KXLDaemon", "KXUpdDaemon"})
        self.assertLess(len(names), 10)

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
                    wait_until(lambda d=directory: list(pathlib.Path(d).glob(f"*/*/{record}")))
                    process.send_signal(number)
                    self.assertEqual(process.wait(timeout=30), 128 + number)
                self.assertEqual(os.listdir(directory), [])


class InPlace(unittest.TestCase):
    """Endpoints on a system that forbids namespaces. A sandbox that forbids nested ones stands in."""

    TAKEN = ("/Library", "/Volumes", "/demo", "/etc/kxtool", "/opt", "/usr/bin/hdiutil",
             "/usr/local/libexec", "/usr/sbin/installer", "/run/kxtool-endpoint/made")

    @classmethod
    def setUpClass(cls):
        if sandbox.refusal() is not None:
            raise unittest.SkipTest("this test needs a sandbox")
        cls.programs = cls.own_program_folders()

    def in_place(self, script, user=0, timeout=120):
        """Runs a shell script in such a sandbox. $RUN is the launcher's `run` command.

        Returns the exit status, standard output and standard error.
        """
        words = ["bwrap", "--unshare-user", "--disable-userns", "--uid", str(user), "--unshare-pid",
                 "--die-with-parent", "--cap-drop", "ALL", "--ro-bind", "/usr", "/usr",
                 "--proc", "/proc", "--dev", "/dev", "--tmpfs", "/tmp", "--dir", "/run",
                 "--tmpfs", "/usr/local"]
        words += self.programs
        for link in ("/bin", "/sbin", "/lib", "/lib64"):
            words += ["--symlink", os.readlink(link), link]
        words += ["--bind", str(ROOT), "/project", "--bind", str(BUILD), "/build", "--setenv", "RUN",
                  "/usr/bin/python3 /project/simulator/endpoint.py run --build /build",
                  "sh", "-c", script]
        run = subprocess.run(words, capture_output=True, text=True, timeout=timeout, check=False)
        return run.returncode, run.stdout, run.stderr

    @classmethod
    def own_program_folders(cls):
        """Makes the folders of programs writable by replacing them with folders of links."""
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
            "LC_ALL=C ls -d " + " ".join(self.TAKEN))
        self.assertEqual(output, "7.16.42.200137 0\n0|||")
        self.assertIn("working in place\n", errors)
        self.assertEqual(errors.count("cannot access"), len(self.TAKEN))
        self.assertEqual(status, 2)

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
        self.assertIn("cannot work in place, because something exists at /Library/Corvane\n", errors)

    def test_failure_half_way_leaves_nothing(self):
        status, output, errors = self.in_place(
            "mkdir /opt; chmod 500 /opt; $RUN -getVersion; echo $?; ls -d " + " ".join(self.TAKEN))
        self.assertEqual(output, "125\n/opt\n")
        self.assertIn("Permission denied", errors)
        self.assertEqual(status, 2)

    def test_folders_that_cannot_be_entered_are_removed(self):
        status, _, _ = self.in_place(
            "mkdir -p /tmp/a/b/c /tmp/d; touch /tmp/d/e; ln -s /tmp/d /tmp/a/b/d; chmod 0 /tmp/a/b; "
            "cd /project; /usr/bin/python3 -c 'import pathlib; from simulator import temporary; "
            "temporary.remove_tree(pathlib.Path(\"/tmp/a\"))'; test ! -e /tmp/a && test -e /tmp/d/e")
        self.assertEqual(status, 0)

    def test_folders_that_were_there_stay(self):
        status, _, _ = self.in_place(
            "mkdir -p /Library/Fonts /opt; $RUN -getVersion && ls -d /Library/Fonts /opt && "
            "! ls -d '/Library/Application Support'")
        self.assertEqual(status, 0)

    def interrupted(self, number, then):
        """Sends a signal to a run that waits for an answer, and then runs the commands in `then`.

        Returns the output. Python starts it, since a shell's background commands ignore some signals.
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

    def test_users_other_than_root_are_told_what_is_missing(self):
        status, output, errors = self.in_place("$RUN -getVersion", user=1000)
        self.assertEqual((status, output), (125, ""))
        self.assertIn("cannot make a sandbox: ", errors)
        self.assertIn("or root.\n", errors)


if __name__ == "__main__":
    unittest.main()
