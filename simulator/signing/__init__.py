"""Signs code as Apple's platform does, with certificates of a made-up authority.

    identity = Identity.create("/some/directory")
    sign_file("agentsdk.dylib", identity)  # writes agentsdk.dylib.codesignature
    sign_macho("tool", identity)           # within the file, every slice
    sign_bundle("Agent.app", identity)     # the files of the bundle and its executable

The tool's own verifier checks the result. The two share neither code nor assumptions: each module
names the public sources of its formats. Every failure is a SigningError with a readable text.
"""

import pathlib

from simulator.signing.bundle import sign_bundle
from simulator.signing.cms import Timestamp
from simulator.signing.host import SigningError, contents
from simulator.signing.identity import VARIANTS, Identity
from simulator.signing.macho import is_macho, sign_macho
from simulator.signing.signature import Options, sign_file

__all__ = ["Identity", "Options", "SigningError", "Timestamp", "VARIANTS", "sign", "sign_bundle",
           "sign_file", "sign_macho"]


def sign(path, identity=None, **options):
    """Signs a bundle, a Mach-O file, or any other file, which gets a detached signature; see Options."""
    if pathlib.Path(path).is_dir():
        return sign_bundle(path, identity, **options)
    with contents(path) as data:
        macho = is_macho(data)
    return (sign_macho if macho else sign_file)(path, identity, **options)
