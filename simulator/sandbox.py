"""A bubblewrap sandbox around a laid-out file tree.

The root is an empty file system in memory. The folders of the tree and, read-only, the files of the
machine that programs need are bound into it. The sandbox has its own process table.
"""

import contextlib
import functools
import hashlib
import json
import os
import pathlib
import select
import shutil
import signal
import subprocess
from typing import Any

from simulator import temporary
from simulator.made_once import make_once

# A second mount of the machine's /usr. Folders that get additional programs contain links to it.
_HOST_USR = "/run/host/usr"
# The folders with those programs.
_PROGRAMS = "/run/programs"
_ISOLATION = (
    "--unshare-user-try", "--unshare-pid", "--unshare-ipc", "--die-with-parent", "--cap-drop", "ALL")
# The files of /etc that programs need.
_ETC = ("alternatives", "group", "hosts", "ld.so.cache", "ld.so.conf", "ld.so.conf.d", "localtime",
        "nsswitch.conf", "passwd", "ssl", "timezone")
# The folders that contain folders of both the machine and the endpoint.
_SHARED = ("dev", "etc", "usr")
_USR_LINKS = ("/bin", "/sbin", "/lib", "/lib32", "/lib64", "/libx32")


@functools.cache
def refusal() -> str | None:
    """Why no sandbox can be made on this machine; None if one can."""
    if shutil.which("bwrap") is None:
        return "bubblewrap (bwrap) is not installed"
    probe = subprocess.run(
        ["bwrap", *_ISOLATION, "--ro-bind", "/", "/", "--proc", "/proc", "--dev", "/dev", "true"],
        stdin=subprocess.DEVNULL, capture_output=True, text=True, check=False)
    return None if probe.returncode == 0 else probe.stderr.strip()


def belongs_to_machine(path: str) -> bool:
    """Whether an absolute path belongs to the machine inside a sandbox, too."""
    return (f"/{path.split('/')[1]}" in ("/usr", "/proc", "/dev", "/etc", "/run", *_USR_LINKS)
            and not path.startswith(("/usr/local/", "/dev/shm/")))


def command(root: pathlib.Path, covers: dict[str, pathlib.Path], volumes: dict[str, int],
            first: list[str]) -> list[str]:
    """The command that runs `first` in a sandbox with the folders of `root`.

    Whole folders are bound: those in the root and, in /dev, /etc and /usr, those one level deeper.
    Read-only `covers` hide folders of the machine. `volumes` are empty file systems in memory with
    their sizes in bytes.
    """
    words = ["bwrap", *_ISOLATION, *_machine()]
    for folder in sorted(root.iterdir()):
        for bound in sorted(folder.iterdir()) if folder.name in _SHARED else [folder]:
            words += ["--bind", str(bound), f"/{bound.relative_to(root)}"]
    words += ["--ro-bind", "/usr", _HOST_USR]
    for path, folder in covers.items():
        words += ["--ro-bind", str(folder), path]
    for path, size in volumes.items():
        words += ["--size", str(size), "--tmpfs", path]
    return [*words, "--chdir", "/", "--", *first]


def run(sandboxed: list[str], timeout: float | None = None, **streams: Any) -> int:
    """Runs a command that command() has returned; returns its exit status. `streams` are as for subprocess.Popen().

    When this returns or raises, no process of the sandbox is left.
    """
    reader, writer = os.pipe()
    info = bytearray()
    process, first, is_told = None, None, False
    try:
        with temporary.signals_held() as held:  # a signal during Popen() would lose the process
            process = subprocess.Popen(
                [sandboxed[0], "--info-fd", str(writer), *sandboxed[1:]], pass_fds=(writer,),
                preexec_fn=lambda: signal.pthread_sigmask(signal.SIG_SETMASK, held), **streams)
            os.close(writer)
        _read(reader, info)
        first, is_told = _first_process(info), True
        return process.wait(timeout)
    finally:
        if process is None:
            os.close(writer)
        else:
            if not is_told:  # a signal arrived while bwrap was starting
                _read(reader, info)
                first = _first_process(info)
            process.kill()
            process.wait()
            if first is not None:
                with contextlib.suppress(ProcessLookupError):
                    signal.pidfd_send_signal(first, signal.SIGKILL)
                select.select([first], [], [])  # the last process to end, see pid_namespaces(7)
                os.close(first)
        os.close(reader)


def _read(descriptor: int, whole: bytearray) -> None:
    while part := os.read(descriptor, 4096):
        whole += part


def _first_process(info: bytes) -> int | None:
    """A descriptor of the first process of the sandbox that `info` is about. None if the process has
    ended, or if the kernel does not support such descriptors.

    bwrap itself ends with the command, and leaves the first process behind to end what still runs.
    """
    try:
        return os.pidfd_open(json.loads(info)["child-pid"])
    except (ValueError, OSError):
        return None


def cover_programs(root: pathlib.Path, programs: dict[str, pathlib.Path | None],
                   kept: pathlib.Path) -> dict[str, pathlib.Path]:
    """Puts `programs`, which belong below /usr, into `root`; None leaves one out.

    /usr is bound read-only, so nothing can be added to its folders. Each affected folder is covered
    by a folder of links to the machine's programs and to `programs`, which replace or extend them.
    These covers are kept in the folder `kept`. Returns a map from each covered folder to its cover.
    """
    covers = {}
    for folder in sorted({os.path.dirname(path) for path in programs}):
        own = {os.path.basename(path): program for path, program in programs.items()
               if os.path.dirname(path) == folder}
        links = {name: f"{_HOST_USR}{folder.removeprefix('/usr')}/{name}"
                 for name in os.listdir(folder)}
        links.update((name, f"{_PROGRAMS}{folder}/{name}") for name in own)
        version = hashlib.sha256("\n".join(sorted(links.values())).encode()).hexdigest()[:32]
        covers[folder] = kept / version
        make_once(covers[folder], lambda made, links=links: _make_links(made, links))
        target = root / f"{_PROGRAMS}{folder}".lstrip("/")
        target.mkdir(parents=True)
        for name, program in own.items():
            if program is not None:
                shutil.copy(program, target / name)
    return covers


def _make_links(folder: pathlib.Path, links: dict[str, str]) -> None:
    for name, destination in links.items():
        os.symlink(destination, folder / name)


def _machine() -> list[str]:
    words = ["--ro-bind", "/usr", "/usr", "--proc", "/proc", "--dev", "/dev"]
    for link in _USR_LINKS:
        path = pathlib.Path(link)
        if path.is_symlink():
            words += ["--symlink", os.readlink(path), link]
        elif path.exists():
            words += ["--ro-bind", link, link]
    for name in _ETC:
        words += ["--ro-bind-try", f"/etc/{name}", f"/etc/{name}"]
    return words
