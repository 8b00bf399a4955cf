"""Simulated endpoints: a laid-out installation and a way to run commands on it.

    with endpoints.open_endpoint(build, scenario.load("healthy"), logging=True) as endpoint:
        status = endpoint.run_tool(["-getProductVersion"])
        log = endpoint.path(installation.LOG).read_text()

Normally an endpoint is a sandbox with its own file system and process table. If the kernel refuses
namespaces and the user is root, it is made in place, see in_place.py.
"""

import contextlib
import json
import os
import pathlib
import shutil
import subprocess
import sys
from collections.abc import Callable, Iterator
from typing import Any

from simulator import in_place, inside, installation, sandbox, temporary
from simulator.installers import images

Json = Any

# The variables of the caller's environment that commands on the endpoint inherit.
_KEPT_VARIABLES = ("LANG", "LC_ALL", "TERM", "TZ")
_SANITIZER_OPTIONS = "SAN_OPTIONS"
_PATH = (f"{installation.TOOL_DIRECTORY}:{installation.PROGRAM_DIRECTORY}:"
         "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin")


class EndpointError(Exception):
    """No endpoint can be made here; the text is the reason."""


class Endpoint:
    """An endpoint on which commands are run one after the other."""

    def __init__(self, installed: installation.Installation, services: list[Json],
                 run: Callable[..., int], belongs_to_machine: Callable[[str], bool]):
        self._installed = installed
        self._services = services
        self._run = run
        self._belongs_to_machine = belongs_to_machine

    def path(self, absolute: str) -> pathlib.Path:
        """Maps a path of the endpoint to this machine."""
        return self._installed.path(absolute)

    def copy_in(self, word: str) -> None:
        """Copies the file that `word` names to the same path on the endpoint, together with an
        installer configuration beside it."""
        source = pathlib.Path(word)
        destination = os.path.normpath(os.path.join(installation.WORKING_DIRECTORY, word))
        target = self.path(destination)
        if not source.is_file() or target.exists() or self._belongs_to_machine(destination):
            return
        target.parent.mkdir(parents=True, exist_ok=True)
        for name in (source.name, images.CONFIGURATION_NAME):
            if source.with_name(name).is_file():
                shutil.copy(source.with_name(name), target.with_name(name))

    def run_tool(self, words: list[str], sleep_divisor: int | None = None, **streams: Any) -> int:
        """Runs the tool with `words` while the services of the product run.

        `sleep_divisor` divides its sleeps. `streams` are stdin, stdout, stderr and timeout as for
        subprocess.run(). Returns the exit status, or 128 plus the number of the signal that ended
        the tool.
        """
        environment = {} if sleep_divisor is None else faster_sleeps(sleep_divisor)
        return self.run([installation.TOOL, *words], environment, **streams)

    def run(self, command: list[str], environment: dict[str, str] | None = None,
            terminal: bool = False, **streams: Any) -> int:
        """Like run_tool(), for any command; `terminal` says whether it gets the terminal."""
        kept = {name: value for name, value in os.environ.items()
                if name in _KEPT_VARIABLES or name.endswith(_SANITIZER_OPTIONS)}
        script = {
            "command": command,
            "services": self._services,
            "directory": installation.WORKING_DIRECTORY,
            "environment": {"PATH": _PATH, "TMPDIR": installation.TEMPORARY,
                            "HOME": installation.TEMPORARY, **kept, **(environment or {})},
        }
        file = f"{installation.STAND_INS}/command.json"
        self.path(file).write_text(json.dumps(script), encoding="utf-8")
        first = ["/usr/bin/python3", "-I", "-S", f"{installation.STAND_INS}/inside.py", file]
        return self._run([*first, "terminal"] if terminal else first, **streams)


def faster_sleeps(divisor: int) -> dict[str, str]:
    """The environment variables that divide the sleeps of a command on an endpoint."""
    # The address sanitizer must accept a library that is loaded before it.
    given = os.environ.get("ASAN_OPTIONS")
    return {"LD_PRELOAD": installation.FAST_SLEEP,
            "KX_SLEEP_DIVISOR": str(divisor),
            "ASAN_OPTIONS": ":".join(([given] if given else []) + ["verify_asan_link_order=0"])}


@contextlib.contextmanager
def open_endpoint(build: pathlib.Path, scenario: dict[str, Json], logging: bool = False,
                  programs: dict[str, pathlib.Path | None] | None = None,
                  volumes: dict[str, int] | None = None) -> Iterator[Endpoint]:
    """An endpoint for a complete scenario; it is removed when the context ends.

    `build` is the build folder with the tool; `logging` switches the tool's log on. `programs`
    replace the stand-ins for system programs or are added to them, by absolute path; None leaves a
    program out. `volumes` are separate file systems by absolute path, with their sizes in bytes;
    their files are visible on the endpoint only. Raises EndpointError, and what
    Installation.write() raises.
    """
    refusal = sandbox.refusal()
    chosen = {**installation.PROGRAMS, **(programs or {})}
    if refusal is None:
        opened = _open_sandbox(build, scenario, logging, chosen, volumes or {})
    elif os.geteuid() == 0 and not volumes:
        print(f"endpoint: no sandbox ({refusal}); working in place", file=sys.stderr)
        opened = _open_in_place(build, scenario, logging, chosen)
    else:
        raise EndpointError(
            f"cannot make a sandbox: {refusal}\n"
            "An endpoint needs bubblewrap and a kernel that allows user namespaces "
            "(sysctl kernel.unprivileged_userns_clone, user.max_user_namespaces), or root.")
    with opened as endpoint:
        yield endpoint


def _lay_out(root, build, scenario, logging):
    installed = installation.Installation(root, build)
    installed.write(scenario, logging)
    images.Media(build).place(scenario["media"], installed.path(installation.DEMONSTRATIONS))
    shutil.copy(inside.__file__, installed.path(installation.STAND_INS))
    return installed


@contextlib.contextmanager
def _open_sandbox(build, scenario, logging, programs, volumes):
    with temporary.folder() as root:
        root.chmod(0o755)
        installed = _lay_out(root, build, scenario, logging)
        for folder in ("/tmp", "/run", "/var/tmp"):
            installed.path(folder).mkdir(parents=True)
        covers = sandbox.cover_programs(root, programs, build / "simulator" / "programs")

        def run(first: list[str], **streams: Any) -> int:
            return sandbox.run(sandbox.command(root, covers, volumes, first),
                               env=_environment(str(root)), **streams)

        yield Endpoint(installed, installed.services(scenario["product"]), run,
                       sandbox.belongs_to_machine)


def _run_in_place(first: list[str], **streams: Any) -> int:
    return subprocess.run(first, env=_environment(installation.TEMPORARY), check=False,
                          **streams).returncode


def _environment(temporary_files: str) -> dict[str, str]:
    """With this TMPDIR, the next command can find a process that was left behind."""
    return {**os.environ, "TMPDIR": temporary_files}


@contextlib.contextmanager
def _open_in_place(build, scenario, logging, programs):
    own = tuple(f"{directory}/" for directory in installation.OWN_DIRECTORIES)
    temporary.remove_leftovers()  # they can hold a claim
    with in_place.claim([*installation.OWN_DIRECTORIES, *programs]):
        installed = _lay_out(pathlib.Path("/"), build, scenario, logging)
        for path, program in programs.items():
            if program is not None:
                shutil.copy(program, path)
        yield Endpoint(installed, installed.services(scenario["product"]), _run_in_place,
                       lambda path: not path.startswith(own))
