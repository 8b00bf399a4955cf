"""Folders for temporary files that are removed with everything that uses them.

A folder is locked while it is used. One that is not locked was left by a command that was killed,
and the next command removes it.
"""

import contextlib
import fcntl
import os
import pathlib
import secrets
import shutil
import signal
import tempfile
import time
from collections.abc import Iterator

_MEMORY = "/dev/shm"
# The space that all endpoints of a test run need at the same time, in bytes.
_SPACE = 4 << 30
_PREFIX = f"kx-{os.getuid()}-"
# The seconds that a process has to clean up.
_GRACE = 10


@contextlib.contextmanager
def folder() -> Iterator[pathlib.Path]:
    """A new folder for the context; removes the folders of killed commands first."""
    remove_leftovers()
    place = _place()
    made = pathlib.Path(place, f"{_PREFIX}{secrets.token_hex(8)}")
    with contextlib.ExitStack() as lock:
        try:
            with _locked(place):
                made.mkdir(0o711)  # some tests switch to other users
                lock.enter_context(_locked(made))
            # Commands that get this folder as TMPDIR lock it, so it cannot be the folder that is locked here.
            inner = made / "files"
            inner.mkdir(0o711)
            yield inner
        finally:
            with signals_held():
                if made.exists():
                    remove_tree(made)


def remove_leftovers() -> None:
    """Removes the folders of killed commands, and ends the processes that still use them."""
    for place in {_place(), tempfile.gettempdir(), _MEMORY}:
        for path in pathlib.Path(place).glob(f"{_PREFIX}*"):
            with contextlib.suppress(OSError):  # in use, another user's, or removed
                with _locked(place):  # so that it cannot be a new one that is not locked yet
                    with _locked(path, wait=False):
                        if path.stat().st_uid == os.getuid():
                            end_processes((f"{path}/",))
                            remove_tree(path)


@contextlib.contextmanager
def signals_held() -> Iterator[set[signal.Signals]]:
    """Blocks signals during the context. Yields the signals that were blocked before."""
    before = signal.pthread_sigmask(signal.SIG_BLOCK, signal.valid_signals())
    try:
        yield before
    finally:
        signal.pthread_sigmask(signal.SIG_SETMASK, before)


def end_processes(folders: tuple[str, ...]) -> None:
    """Ends every process whose program or temporary files are in one of these folders."""
    deadline = time.monotonic() + _GRACE
    interrupted: set[int] = set()
    while processes := _processes(folders):
        late = time.monotonic() > deadline
        for process in processes - (set() if late else interrupted):
            with contextlib.suppress(ProcessLookupError):
                os.kill(process, signal.SIGKILL if late else signal.SIGINT)
        interrupted |= processes
        time.sleep(0.05)


def remove_tree(path: pathlib.Path) -> None:
    """Removes whatever is at `path`, including folders that their owner cannot enter."""
    if not path.is_dir() or path.is_symlink():
        path.unlink(missing_ok=True)
        return
    try:
        shutil.rmtree(path)
    except PermissionError:
        _let_owner_in(path)
        shutil.rmtree(path)


def _place() -> str:
    """The folder for new folders: in memory by default, since disks are slow."""
    if "TMPDIR" in os.environ or not os.access(_MEMORY, os.W_OK):
        return tempfile.gettempdir()
    return _MEMORY if shutil.disk_usage(_MEMORY).free > _SPACE else tempfile.gettempdir()


@contextlib.contextmanager
def _locked(path: str | pathlib.Path, wait: bool = True) -> Iterator[None]:
    """Locks a folder. Without waiting, raises BlockingIOError if another process has the lock."""
    descriptor = os.open(path, os.O_RDONLY | os.O_NOFOLLOW)
    try:
        fcntl.flock(descriptor, fcntl.LOCK_EX | (0 if wait else fcntl.LOCK_NB))
        yield
    finally:
        os.close(descriptor)


def _processes(folders: tuple[str, ...]) -> set[int]:
    found = set()
    for process in pathlib.Path("/proc").glob("[0-9]*"):
        with contextlib.suppress(OSError):  # ended, or another user's
            places = [os.readlink(process / "exe")]
            for variable in (process / "environ").read_bytes().split(b"\0"):
                if variable.startswith(b"TMPDIR="):
                    places.append(os.fsdecode(variable.removeprefix(b"TMPDIR=")))
            if any(f"{place}/".startswith(folders) for place in places):
                found.add(int(process.name))
    return found - {os.getpid()}


def _let_owner_in(path: pathlib.Path) -> None:
    path.chmod(0o700)
    for entry in list(os.scandir(path)):
        if entry.is_dir(follow_symlinks=False):
            _let_owner_in(pathlib.Path(entry.path))
