"""Things in the build folder that take time to make and are kept."""

import os
import pathlib
import tempfile
from collections.abc import Callable


def make_once(made: pathlib.Path, make: Callable[[pathlib.Path], None]) -> None:
    """Has `make` fill the folder `made`, which appears complete or not at all, unless it exists."""
    if made.exists():
        return
    made.parent.mkdir(parents=True, exist_ok=True)
    with tempfile.TemporaryDirectory(dir=made.parent, prefix=".") as work:
        folder = pathlib.Path(work) / "made"
        folder.mkdir()
        make(folder)
        try:
            os.rename(folder, made)
        except OSError:
            if not made.exists():  # else another process was quicker
                raise
