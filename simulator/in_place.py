"""Endpoints in the machine's own file system, for root where the kernel refuses namespaces.

Endpoints use only paths that do not exist, one run at a time, and everything is removed afterwards.
A journal lists what is about to be made, so that the next run can remove whatever a killed run left behind.
"""

import contextlib
import fcntl
import pathlib
import sys
from collections.abc import Iterator

from simulator import temporary

_STATE = pathlib.Path("/run/kxtool-endpoint")


class ClaimError(Exception):
    """Something else occupies a path that an endpoint needs."""


@contextlib.contextmanager
def claim(paths: list[str]) -> Iterator[None]:
    """Reserves absolute paths, which must not exist, and creates their parent folders.

    Nobody else has a claim during the context. At its end, whatever is at the paths is removed, and
    so are the folders that were made for them.
    """
    _STATE.mkdir(mode=0o700, parents=True, exist_ok=True)
    journal = _STATE / "made"
    with open(_STATE / "lock", "w", encoding="utf-8") as lock:
        try:
            fcntl.flock(lock, fcntl.LOCK_EX | fcntl.LOCK_NB)
        except BlockingIOError:
            print("endpoint: waiting for another run to end", file=sys.stderr)
            fcntl.flock(lock, fcntl.LOCK_EX)
        _remove_what_was_made(journal)
        try:
            _reserve([pathlib.Path(path) for path in paths], journal)
            yield
        finally:
            _remove_what_was_made(journal)


def _reserve(paths: list[pathlib.Path], journal: pathlib.Path) -> None:
    taken = [str(path) for path in paths if path.exists() or path.is_symlink()]
    if taken:
        raise ClaimError(f"cannot work in place, because something exists at {', '.join(taken)}")
    made: list[str] = []
    for path in paths:
        made += [f"folder {parent}" for parent in reversed(path.parents) if not parent.exists()]
        made.append(f"claim {path}")
    begun = journal.with_name("begun")
    begun.write_text("\n".join(made), encoding="utf-8")
    begun.rename(journal)
    for path in paths:
        path.parent.mkdir(parents=True, exist_ok=True)


def _remove_what_was_made(journal: pathlib.Path) -> None:
    if not journal.exists():
        return
    lines = [line.split(" ", 1) for line in journal.read_text(encoding="utf-8").splitlines()]
    temporary.end_processes(tuple(f"{name}/" for kind, name in lines if kind == "claim"))
    for kind, name in reversed(lines):
        path = pathlib.Path(name)
        if kind == "claim":
            if path.exists() or path.is_symlink():
                temporary.remove_tree(path)
        else:
            with contextlib.suppress(OSError):  # removed already, or replaced by others
                path.rmdir()
    journal.unlink()
