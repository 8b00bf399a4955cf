"""Runs, endpoints and jobs that are killed at various moments leave neither files nor processes behind. The
next command removes whatever kill -9 leaves behind."""

import os
import pathlib
import signal
import subprocess
import tempfile
import time
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
BUILD = pathlib.Path(os.environ.get("KX_BUILD", ROOT / "build" / "release")).resolve()
PYTHON = "/usr/bin/python3"
RUN = [PYTHON, str(ROOT / "simulator" / "endpoint.py"), "run", "--build", str(BUILD)]
ENDPOINT = [*RUN[:2], "endpoint", *RUN[3:], "--"]
JOB = [PYTHON, str(ROOT / "simulator" / "job.py"), "-"]
NEXT = [*RUN, "-getVersion"]
# Seconds after the start.
MOMENTS = (0.02, 0.1, 0.3, 1)
# A test that leaves a file behind if it is interrupted, and one on an endpoint that ignores the interrupt.
TESTS = f"""
add_test(files sh -c "mktemp; sleep 60")
add_test(endpoint {' '.join(ENDPOINT)} sh -c "trap '' INT; sleep 60")
"""


def wait_until(condition):
    """Waits until the condition is true."""
    deadline = time.monotonic() + 60
    while not condition():
        if time.monotonic() > deadline:
            raise AssertionError("the condition did not become true")
        time.sleep(0.05)


def processes_of(folder):
    """The processes that have the folder as TMPDIR, or have mounted a part of it."""
    found = []
    for process in pathlib.Path("/proc").glob("[0-9]*"):
        try:
            if (f"TMPDIR={folder}".encode() in (process / "environ").read_bytes()
                    or os.path.basename(folder) in (process / "mountinfo").read_text()):
                found.append((process / "cmdline").read_text().replace("\0", " "))
        except OSError:
            pass  # it has ended
    return found


class Leftovers(unittest.TestCase):
    def check(self, command, *numbers):
        for number in numbers:
            for moment in MOMENTS:
                with self.subTest(signal=number, moment=moment), \
                        tempfile.TemporaryDirectory(prefix="kx-leftovers-") as folder:
                    environment = {**os.environ, "TMPDIR": folder}
                    with subprocess.Popen(command, env=environment, stdin=subprocess.DEVNULL,
                                          stdout=subprocess.DEVNULL,
                                          stderr=subprocess.DEVNULL) as process:
                        time.sleep(moment)
                        process.send_signal(number)
                        self.assertNotEqual(process.wait(60), 0)
                    if command[0] == PYTHON and number == signal.SIGKILL:
                        subprocess.run(NEXT, env=environment, check=True, timeout=60,
                                       stdout=subprocess.DEVNULL)
                    if command[0] == PYTHON:
                        self.assertEqual(os.listdir(folder), [])
                    wait_until(lambda f=folder: not os.listdir(f) and not processes_of(f))

    def test_run(self):
        self.check([*RUN, "--scenario", "no-completion", "-getProductVersion"],
                   signal.SIGINT, signal.SIGTERM, signal.SIGHUP, signal.SIGKILL)

    def test_endpoint(self):
        self.check([*ENDPOINT, "sh", "-c", "trap '' INT; mktemp; sleep 60"],
                   signal.SIGINT, signal.SIGTERM, signal.SIGHUP, signal.SIGKILL)

    def test_tests(self):
        with tempfile.TemporaryDirectory() as build:
            pathlib.Path(build, "CTestTestfile.cmake").write_text(TESTS, encoding="utf-8")
            run = [*JOB, "ctest", "--test-dir", build, "--parallel", "2"]
            self.check(run, signal.SIGINT, signal.SIGTERM, signal.SIGHUP, signal.SIGKILL)
            # The driver that waits for the job is killed without a chance to clean up.
            self.check(["bash", "-c", 'KX_PARENT=$BASHPID "$@"; exit', "kx", *run],
                       signal.SIGTERM, signal.SIGKILL)


if __name__ == "__main__":
    unittest.main()
