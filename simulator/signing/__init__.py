"""Signs code the way Apple's platform does, with certificates of a made-up authority.

    identity = Identity.create("/some/directory")
    sign_file("agentsdk.dylib", identity)  # writes agentsdk.dylib.codesignature
    sign_macho("tool", identity)           # within the file, every slice
    sign_bundle("Agent.app", identity)     # the files of the bundle and its executable

What is written here is judged by the tool's own verifier, so the two share no code and no author's
assumptions: the formats come from public sources only, named in each module. Needs nothing but the
standard library and the `openssl` command. Every failure is a SigningError with a readable text.
"""

from simulator.signing.bundle import sign_bundle
from simulator.signing.errors import SigningError
from simulator.signing.identity import VARIANTS, Identity
from simulator.signing.kinds import sign
from simulator.signing.macho import sign_macho
from simulator.signing.plain import sign_file
from simulator.signing.signature import Options
from simulator.signing.timestamp import Timestamp

__all__ = ["Identity", "Options", "SigningError", "Timestamp", "VARIANTS", "sign", "sign_bundle",
           "sign_file", "sign_macho"]
