"""Runs one command on the endpoint, with the product's services around it.

Inside a sandbox this file is the first program, so it needs nothing but the standard library:
`python3 inside.py FILE`, where FILE holds the arguments of run() as JSON.
"""

import json
import os
import pathlib
import subprocess
import sys
from typing import Any


def run(command: list[str], services: list[dict[str, Any]], directory: str,
        environment: dict[str, str], **streams: Any) -> int:
    """Runs `command` in `directory` while `services` run; `streams` are subprocess.run()'s.

    Returns its exit status; 128 and the signal's number if a signal ended it, as shells do.
    """
    running: list[subprocess.Popen] = []
    try:
        for service in services:
            running.append(_start(service))
        status = subprocess.run(command, cwd=directory, env=environment, check=False,
                                **streams).returncode
    finally:
        for process in running:
            process.kill()
            process.wait()
    return status if status >= 0 else 128 - status


def _start(service: dict[str, Any]) -> subprocess.Popen:
    """Starts a service; when this returns, the process table has it as the scenario wants it."""
    path = pathlib.Path(service["path"])
    null = subprocess.DEVNULL
    process = subprocess.Popen([str(path)], stdin=null, stdout=null, stderr=null)
    if service.get("deleted"):
        path.unlink()
    elif "renamedTo" in service:
        path.rename(path.with_name(service["renamedTo"]))
    if service.get("ended"):
        process.kill()
        os.waitid(os.P_PID, process.pid, os.WEXITED | os.WNOWAIT)
    return process


if __name__ == "__main__":
    sys.exit(run(**json.loads(pathlib.Path(sys.argv[1]).read_text())))
