"""Reading and writing whole files."""

import contextlib
import mmap
import os
import pathlib

from simulator.signing.errors import SigningError


@contextlib.contextmanager
def contents(path):
    """A file's octets while they are needed, mapped rather than read."""
    try:
        with open(path, "rb") as file:
            if os.fstat(file.fileno()).st_size == 0:
                yield b""
                return
            with mmap.mmap(file.fileno(), 0, access=mmap.ACCESS_READ) as mapped:
                with memoryview(mapped) as view:
                    yield view
    except OSError as error:
        raise SigningError(f"cannot read {path}: {error.strerror}") from error


def read(path):
    with contents(path) as data:
        return bytes(data)


def write(path, data):
    try:
        pathlib.Path(path).write_bytes(data)
    except OSError as error:
        raise SigningError(f"cannot write {path}: {error.strerror}") from error
