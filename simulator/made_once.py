"""Keeps, in the build folder, things that take time to make."""

import fcntl
import os
import pathlib
import shutil
from collections.abc import Callable


def make_once(made: pathlib.Path, make: Callable[[pathlib.Path], None]) -> None:
    """Lets `make` fill the folder `made` unless it exists. The folder is never seen incomplete.

    Removes whatever a killed process left behind.
    """
    if made.exists():
        return
    made.parent.mkdir(parents=True, exist_ok=True)
    parent = os.open(made.parent, os.O_RDONLY)
    try:
        fcntl.flock(parent, fcntl.LOCK_EX)
        begun = made.parent / ".begun"
        shutil.rmtree(begun, ignore_errors=True)
        if not made.exists():  # otherwise another process was faster
            begun.mkdir()
            make(begun)
            begun.rename(made)
    finally:
        os.close(parent)
