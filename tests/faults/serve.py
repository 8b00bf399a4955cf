"""Runs command after command inside the endpoint: a line of JSON asks for one, a line answers.

Started by session.py; it needs nothing but the standard library.
"""

import json
import os
import signal
import subprocess
import sys


def _processes():
    """The names of all processes but this one and the sandbox's own, by number."""
    found = {}
    for number in filter(str.isdigit, os.listdir("/proc")):
        if int(number) in (1, os.getpid(), os.getppid()):
            continue
        try:
            with open(f"/proc/{number}/stat", encoding="utf-8", errors="replace") as file:
                text = file.read()
        except OSError:
            continue
        name, state = text[text.index("(") + 1:text.rindex(")")], text[text.rindex(")") + 2]
        if state != "Z":
            found[int(number)] = name
    return found


def _start(services):
    null = subprocess.DEVNULL
    return [subprocess.Popen([path], stdin=null, stdout=null, stderr=null) for path in services]


def _shared_memory():
    """What there is of it, System V's and POSIX's."""
    with open("/proc/sysvipc/shm", encoding="utf-8") as file:
        return [*os.listdir("/dev/shm"), *file.read().split("\n")[1:-1]]


def _run(command, environment, directory, services, limit):
    running = _start(services)
    try:
        ended = subprocess.run(command, env=environment, cwd=directory, timeout=limit, check=False,
                               stdin=subprocess.DEVNULL, capture_output=True)
        status, output, errors = ended.returncode, ended.stdout, ended.stderr
    except subprocess.TimeoutExpired as late:
        status, output, errors = None, late.stdout or b"", late.stderr or b""
    finally:
        for service in running:
            service.kill()
            service.wait()
    left = _processes()
    for number in left:
        os.kill(number, signal.SIGKILL)
    return {
        "status": status,
        "output": output.decode(errors="surrogateescape"),
        "errors": errors.decode(errors="surrogateescape"),
        "processes": sorted(left.values()),
        "shared_memory": _shared_memory(),
        "descriptors": len(os.listdir("/proc/self/fd")),
    }


def main():
    """Serves until there is nothing more to read; the first line says that it begins."""
    print("{}", flush=True)
    for line in sys.stdin:
        print(json.dumps(_run(**json.loads(line))), flush=True)


if __name__ == "__main__":
    main()
