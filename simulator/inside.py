"""Runs one command on the endpoint, with the product's services around it.

It is the first program of a sandbox, so it needs nothing but the standard library:
`python3 inside.py FILE [terminal]`, where FILE holds the arguments of run() in JSON. With
`terminal`, the command has the terminal to itself.
"""

import json
import os
import sys
from signal import SIG_IGN, SIGCONT, SIGINT, SIGKILL, SIGPIPE, SIGTSTP, SIGTTOU, SIGXFSZ, signal

_STREAMS_TO_NOTHING = [(os.POSIX_SPAWN_OPEN, number, "/dev/null", os.O_RDWR, 0)
                       for number in range(3)]
# What Python ignores and other programs do not.
_IGNORED_SIGNALS = (SIGPIPE, SIGXFSZ)
# What is typed on a terminal for the command, and what comes of giving the terminal away.
_TERMINAL_SIGNALS = (SIGINT, SIGTSTP, SIGTTOU)


def run(command: list[str], services: list[dict], directory: str,
        environment: dict[str, str]) -> int:
    """Runs `command` in `directory` while `services` run.

    Returns its exit status, or 128 and the number of the signal that ended it, as shells do.
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
    """Starts a service; when this returns, the process table has it as the scenario wants it."""
    path = service["path"]
    process = os.posix_spawn(path, [path], os.environ, file_actions=_STREAMS_TO_NOTHING,
                             setsigdef=_IGNORED_SIGNALS)
    if service.get("deleted"):
        os.unlink(path)
    elif "renamedTo" in service:
        os.rename(path, os.path.join(os.path.dirname(path), service["renamedTo"]))
    if service.get("ended"):
        os.kill(process, SIGKILL)
        os.waitid(os.P_PID, process, os.WEXITED | os.WNOWAIT)
    return process


def _call(command: list[str], directory: str, environment: dict[str, str]) -> int:
    os.chdir(directory)
    os.environ["PATH"] = environment["PATH"]
    try:
        process = os.posix_spawnp(command[0], command, environment,
                                  setsigdef=(*_IGNORED_SIGNALS, *_TERMINAL_SIGNALS))
    except OSError as error:  # with the statuses of shells
        print(f"{command[0]}: {error.strerror}", file=sys.stderr)
        return 127 if isinstance(error, FileNotFoundError) else 126
    while True:
        status = os.waitpid(process, os.WUNTRACED)[1]
        if not os.WIFSTOPPED(status):
            return os.waitstatus_to_exitcode(status)
        os.killpg(os.getpgrp(), SIGCONT)  # there is no other job to turn to


def _take_terminal() -> None:
    """Puts this process and the command into a group of the sandbox's own, which gets what is typed.

    A shell that controls jobs returns the terminal to the group that had it, and cannot name one
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
