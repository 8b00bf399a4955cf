"""Signatures of plain files, kept in a file beside them."""

import pathlib

from simulator.signing import signature
from simulator.signing.files import contents, write
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
