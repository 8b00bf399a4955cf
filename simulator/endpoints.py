"""Simulated endpoints: a laid-out installation and a way to run commands on it.

    with endpoints.open_endpoint(build, scenario.load("healthy"), logging=True) as endpoint:
        status = endpoint.run_tool(["-getProductVersion"])
        log = endpoint.path(installation.LOG).read_text()

Normally an endpoint is a sandbox with a file system and a process table of its own. Where the
kernel refuses namespaces and the user is root, it is made in place, see in_place.py.
"""

import contextlib
import json
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
from collections.abc import Callable, Iterator
from typing import Any

from simulator import in_place, inside, installation, sandbox

Json = Any

# What the commands on the endpoint get of the caller's environment.
_KEPT_VARIABLES = ("LANG", "LC_ALL", "TERM", "TZ")
_SANITIZER_OPTIONS = "SAN_OPTIONS"
_PATH = "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin"


class EndpointError(Exception):
    """No endpoint can be made here; the text says why."""


class Endpoint:
    """An endpoint on which commands can be run one after the other."""

    def __init__(self, installed: installation.Installation, services: list[Json],
                 run: Callable[..., int]):
        self._installed = installed
        self._services = services
        self._run = run

    def path(self, absolute: str) -> pathlib.Path:
        """Where a path of the endpoint lies on this machine."""
        return self._installed.path(absolute)

    def run_tool(self, words: list[str], sleep_divisor: int | None = None, **streams: Any) -> int:
        """Runs the tool with `words`, and with the product's services around it.

        `sleep_divisor` makes its sleeps that many times shorter. `streams` are subprocess.run()'s
        stdin, stdout, stderr and timeout. Returns the exit status, or 128 and the number of the
        signal that ended the tool.
        """
        environment = {}
        if sleep_divisor is not None:
            environment = {"LD_PRELOAD": installation.FAST_SLEEP,
                           "KX_SLEEP_DIVISOR": str(sleep_divisor)}
        return self.run([installation.TOOL, *words], environment, **streams)

    def run(self, command: list[str], environment: dict[str, str] | None = None,
            **streams: Any) -> int:
        """Runs any command on the endpoint. The rest is as for run_tool()."""
        kept = {name: value for name, value in os.environ.items()
                if name in _KEPT_VARIABLES or name.endswith(_SANITIZER_OPTIONS)}
        script = {
            "command": command,
            "services": self._services,
            "directory": installation.WORKING_DIRECTORY,
            "environment": {"PATH": _PATH, "TMPDIR": "/tmp", "HOME": "/tmp", **kept,
                            **(environment or {})},
        }
        return self._run(script, **streams)


@contextlib.contextmanager
def open_endpoint(build: pathlib.Path, scenario: dict[str, Json], logging: bool = False,
                  programs: dict[str, pathlib.Path] | None = None) -> Iterator[Endpoint]:
    """An endpoint for a complete scenario; it is gone when the context ends.

    `build` is the build folder with the tool, `logging` switches the tool's log on, `programs` are
    put in the place of system programs or added to them, by absolute path. Raises EndpointError,
    and what Installation.write() raises.
    """
    refusal = sandbox.refusal()
    if refusal is None:
        opened = _open_sandbox(build, scenario, logging, programs or {})
    elif os.geteuid() == 0:
        print(f"endpoint: no sandbox ({refusal}); working in place", file=sys.stderr)
        opened = _open_in_place(build, scenario, logging, programs or {})
    else:
        raise EndpointError(
            f"cannot make a sandbox: {refusal}\n"
            "An endpoint needs bubblewrap and a kernel that allows user namespaces "
            "(sysctl kernel.unprivileged_userns_clone, user.max_user_namespaces), or root.")
    with opened as endpoint:
        yield endpoint


@contextlib.contextmanager
def _open_sandbox(build, scenario, logging, programs):
    root = pathlib.Path(tempfile.mkdtemp(prefix="kx-endpoint-"))
    try:
        root.chmod(0o755)
        installed = installation.Installation(root, build)
        installed.write(scenario, logging)
        for folder in ("/tmp", "/run", "/var/tmp"):
            installed.path(folder).mkdir(parents=True)
        launcher = installed.path(f"{installation.STAND_INS}/inside.py")
        shutil.copy(inside.__file__, launcher)

        def run(script: Json, **streams: Any) -> int:
            file = f"{installation.STAND_INS}/command.json"
            installed.path(file).write_text(json.dumps(script))
            first = ["/usr/bin/python3", "-I", "-S", f"{installation.STAND_INS}/inside.py", file]
            command = sandbox.command(root, programs, first)
            return subprocess.run(command, check=False, **streams).returncode

        yield Endpoint(installed, installed.services(scenario), run)
    finally:
        sandbox.remove_tree(root)


@contextlib.contextmanager
def _open_in_place(build, scenario, logging, programs):
    with in_place.claim([*installation.OWN_DIRECTORIES, *programs]):
        installed = installation.Installation(pathlib.Path("/"), build)
        installed.write(scenario, logging)
        for path, program in programs.items():
            shutil.copy(program, path)
        yield Endpoint(installed, installed.services(scenario), inside.run)
