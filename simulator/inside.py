"""Runs one command on the endpoint while the services of the product run.

This file is the first program in a sandbox, so it can use only the standard library:
`python3 inside.py FILE [terminal]`, where FILE has the arguments of run() in JSON. With `terminal`,
the command has the terminal to itself.
"""

import json
import os
import sys
import time
from signal import SIG_IGN, SIGCONT, SIGINT, SIGKILL, SIGPIPE, SIGTSTP, SIGTTOU, SIGXFSZ, signal

_STREAMS_TO_NOTHING = [(os.POSIX_SPAWN_OPEN, number, "/dev/null", os.O_RDWR, 0)
                       for number in range(3)]
# The signals that Python ignores and other programs do not.
_IGNORED_SIGNALS = (SIGPIPE, SIGXFSZ)
# The signals that a terminal sends to the command, and those that arise when the terminal is handed over.
_TERMINAL_SIGNALS = (SIGINT, SIGTSTP, SIGTTOU)


def run(command: list[str], services: list[dict], directory: str,
        environment: dict[str, str]) -> int:
    """Runs `command` in `directory` while `services` run.

    Returns its exit status, or 128 plus the number of the signal that ended it, as shells do.
    """
    running: list[int] = []
    try:
        for service in services:
            running.append(_start(service))
        status = _call(command, directory, environment)
    finally:
        for process in running:
            os.kill(process, SIGKILL)
            os.waitpid(process, 0)
    return status if status >= 0 else 128 - status


def _start(service: dict) -> int:
    """Starts a service; on return, it is in the process table as the scenario says."""
    path = service["path"]
    process = os.posix_spawn(path, [path], os.environ, file_actions=_STREAMS_TO_NOTHING,
                             setsigdef=_IGNORED_SIGNALS)
    # posix_spawn() can return just before the kernel names the process after its program.
    name = os.fsencode(os.path.basename(path))[:15]
    while _name_of(process) != name:
        time.sleep(0.001)
    if service.get("deleted"):
        os.unlink(path)
    elif "renamedTo" in service:
        os.rename(path, os.path.join(os.path.dirname(path), service["renamedTo"]))
    if service.get("ended"):
        os.kill(process, SIGKILL)
        os.waitid(os.P_PID, process, os.WEXITED | os.WNOWAIT)
    return process


def _name_of(process: int) -> bytes:
    with open(f"/proc/{process}/comm", "rb") as name:
        return name.read().rstrip(b"\n")


def _call(command: list[str], directory: str, environment: dict[str, str]) -> int:
    os.chdir(directory)
    os.environ["PATH"] = environment["PATH"]
    try:
        process = os.posix_spawnp(command[0], command, environment,
                                  setsigdef=(*_IGNORED_SIGNALS, *_TERMINAL_SIGNALS))
    except OSError as error:  # with the exit statuses of shells
        print(f"{command[0]}: {error.strerror}", file=sys.stderr)
        return 127 if isinstance(error, FileNotFoundError) else 126
    while True:
        status = os.waitpid(process, os.WUNTRACED)[1]
        if not os.WIFSTOPPED(status):
            return os.waitstatus_to_exitcode(status)
        os.killpg(os.getpgrp(), SIGCONT)  # there is no other job to switch to


def _take_terminal() -> None:
    """Puts this process and the command into a process group that gets the terminal's input.

    A shell with job control returns the terminal to the group that had it, and cannot name a group
    from outside the sandbox.
    """
    for number in _TERMINAL_SIGNALS:
        signal(number, SIG_IGN)
    os.setpgid(0, 0)
    os.tcsetpgrp(0, os.getpgrp())


if __name__ == "__main__":
    if sys.argv[2:] == ["terminal"]:
        _take_terminal()
    with open(sys.argv[1], encoding="utf-8") as script:
        sys.exit(run(**json.load(script)))
