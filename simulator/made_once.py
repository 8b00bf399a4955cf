"""Things in the build folder that take time to make and are kept."""

import fcntl
import os
import pathlib
import shutil
from collections.abc import Callable


def make_once(made: pathlib.Path, make: Callable[[pathlib.Path], None]) -> None:
    """Has `make` fill the folder `made`, which appears complete or not at all, unless it exists.

    What a process that was killed had begun is removed.
    """
    if made.exists():
        return
    made.parent.mkdir(parents=True, exist_ok=True)
    parent = os.open(made.parent, os.O_RDONLY)
    try:
        fcntl.flock(parent, fcntl.LOCK_EX)
        begun = made.parent / ".begun"
        shutil.rmtree(begun, ignore_errors=True)
        if not made.exists():  # else another process was quicker
            begun.mkdir()
            make(begun)
            begun.rename(made)
    finally:
        os.close(parent)
