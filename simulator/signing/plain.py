"""Signatures of plain files, kept in a file beside them."""

import contextlib
import mmap
import os
import pathlib

from simulator.signing import signature
from simulator.signing.errors import SigningError
from simulator.signing.signature import Options


def sign_file(path, identity=None, **options):
    """Signs the file as it is now and writes `<path>.codesignature`, an embedded signature.

    The options are those of Options. Returns the path of what was written.
    """
    path = pathlib.Path(path)
    chosen = Options(**options)
    with contents(path) as code:
        found = signature.components(code, identity, chosen, name=path.name)
    sidecar = path.with_name(path.name + ".codesignature")
    write(sidecar, signature.embedded(found))
    return sidecar


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


def write(path, data):
    try:
        pathlib.Path(path).write_bytes(data)
    except OSError as error:
        raise SigningError(f"cannot write {path}: {error.strerror}") from error
