"""Runs one command on the endpoint, with the product's services around it.

Inside a sandbox this file is the first program, so it needs nothing but the standard library:
`python3 inside.py FILE`, where FILE holds the arguments of run() but the last, as marshal writes
them. It loads only modules that are part of the interpreter, because it is run thousands of times:
others take several times as long as everything else that it does.
"""

import marshal
import os
import sys
from _signal import SIGKILL, SIGPIPE, SIGXFSZ

_STREAMS_TO_NOTHING = [(os.POSIX_SPAWN_OPEN, number, "/dev/null", os.O_RDWR, 0)
                       for number in range(3)]
# What Python ignores and other programs do not.
_IGNORED_SIGNALS = (SIGPIPE, SIGXFSZ)


def run(command: list[str], services: list[dict], directory: str, environment: dict[str, str],
        call) -> int:
    """Runs `command` in `directory` while `services` run, by call(command, directory, environment).

    `call` returns an exit status, or the negative number of the signal that ended the command.
    Returns the former; 128 and the signal's number for the latter, as shells do.
    """
    running: list[int] = []
    try:
        for service in services:
            running.append(_start(service))
        status = call(command, directory, environment)
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
    process = os.posix_spawnp(command[0], command, environment, setsigdef=_IGNORED_SIGNALS)
    return os.waitstatus_to_exitcode(os.waitpid(process, 0)[1])


if __name__ == "__main__":
    with open(sys.argv[1], "rb") as script:
        sys.exit(run(**marshal.load(script), call=_call))
