"""Signs whatever lies at a path, in the way that its kind asks for."""

import pathlib

from simulator.signing.bundle import sign_bundle
from simulator.signing.files import contents
from simulator.signing.macho import is_macho, sign_macho
from simulator.signing.plain import sign_file


def sign(path, identity=None, **options):
    """Signs a bundle, a Mach-O file, or any other file by a file beside it; see Options."""
    if pathlib.Path(path).is_dir():
        return sign_bundle(path, identity, **options)
    with contents(path) as data:
        macho = is_macho(data)
    return (sign_macho if macho else sign_file)(path, identity, **options)
