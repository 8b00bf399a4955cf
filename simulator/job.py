#!/usr/bin/python3
"""Runs a command and removes its processes and its temporary files at the end.

    job.py LOG COMMAND...

Its output goes to the file LOG, and every 15 seconds the latest line is shown. A LOG of - leaves the
output where it is. When this program or its parent, whose process number is in KX_PARENT, exits, the
command is terminated, too.
"""

import ctypes
import os
import pathlib
import selectors
import signal
import subprocess
import sys
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent))

# pylint: disable=wrong-import-position
from simulator import temporary  # noqa: E402

_INTERVAL = 15
_PR_SET_PDEATHSIG = 1


class Ended(BaseException):
    """A signal asked this program to exit."""


def _end(number: int, _) -> None:
    for ending in (signal.SIGHUP, signal.SIGINT, signal.SIGTERM):
        signal.signal(ending, signal.SIG_IGN)
    raise Ended(number)


def _follow(output, log: pathlib.Path) -> None:
    """Copies the output to the log until it ends."""
    start = shown = time.monotonic()
    latest = b""
    with log.open("wb") as file, selectors.DefaultSelector() as selector:
        selector.register(output, selectors.EVENT_READ)
        while True:
            if selector.select(1):
                text = output.read1()
                if not text:
                    return
                file.write(text)
                file.flush()
                latest = ([latest] + [line for line in text.splitlines() if line.strip()])[-1]
            now = time.monotonic()
            if now - shown >= _INTERVAL:
                shown = now
                line = latest.decode(errors="replace").strip().removeprefix("kx: ")
                print(f"kx: {now - start:.0f} s: {line}", file=sys.stderr, flush=True)


def main(log: str, *command: str) -> int:
    """Runs the command; returns its exit status."""
    with temporary.folder() as folder:
        try:
            # The terminal does not signal a new session; at the end, all its processes get SIGINT.
            process = subprocess.Popen(
                command, stdin=subprocess.DEVNULL, start_new_session=True,
                env={**os.environ, "TMPDIR": str(folder), "TEST_TMPDIR": str(folder)},
                **({} if log == "-" else {"stdout": subprocess.PIPE, "stderr": subprocess.STDOUT}))
            if log != "-":
                _follow(process.stdout, pathlib.Path(log))
            status = process.wait()
        finally:
            temporary.end_processes((f"{folder}/",))
    return status if status >= 0 else 128 - status


if __name__ == "__main__":
    for ending_signal in (signal.SIGHUP, signal.SIGINT, signal.SIGTERM):
        if signal.getsignal(ending_signal) != signal.SIG_IGN:
            signal.signal(ending_signal, _end)
    try:
        ctypes.CDLL(None).prctl(_PR_SET_PDEATHSIG, signal.SIGTERM)
        if os.environ.pop("KX_PARENT", str(os.getppid())) != str(os.getppid()):
            raise Ended(signal.SIGTERM)  # the parent has already ended
        sys.exit(main(*sys.argv[1:]))
    except Ended as ended:
        signal.signal(ended.args[0], signal.SIG_DFL)
        os.kill(os.getpid(), ended.args[0])
