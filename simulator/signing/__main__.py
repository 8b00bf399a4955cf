"""`python3 -m simulator.signing`: signs files from the command line."""

import argparse
import pathlib
import sys

from simulator.signing import blobs, openssl
from simulator.signing.errors import SigningError
from simulator.signing.identity import VARIANTS, Identity
from simulator.signing.kinds import sign
from simulator.signing.signature import FROM_IDENTITY
from simulator.signing.timestamp import Timestamp


def _parser():
    parser = argparse.ArgumentParser(
        prog="python3 -m simulator.signing",
        description="Signs code with a made-up certificate chain: bundles, after the code nested "
                    "in them, Mach-O files within, every slice of a universal one, and any other "
                    "file by FILE.codesignature beside it.")
    parser.add_argument("paths", nargs="*", metavar="PATH",
                        help="what to sign; with none, only the identity is made")
    parser.add_argument("--identity", required=True, metavar="DIRECTORY",
                        help="where the chain is kept; made on first use, root.pem is its anchor")
    _add_identity_options(parser.add_argument_group("a new identity"))
    _add_signature_options(parser.add_argument_group("the signature"))
    return parser


def _add_identity_options(group):
    group.add_argument("--variant", choices=sorted(VARIANTS), help="a chain with this peculiarity")
    group.add_argument("--common-name", help="of the signing certificate")
    group.add_argument("--certificate-team", metavar="TEAM", dest="team_identifier",
                       help="the signing certificate's team")
    group.add_argument("--root-name", help="common name of the root")
    group.add_argument("--key-type", choices=sorted(openssl.KEY_TYPES))


def _add_signature_options(group):
    group.add_argument("--adhoc", action="store_true", help="without certificates")
    group.add_argument("--linker-signed", action="store_true", help="as a linker signs")
    group.add_argument("--hash", action="append", choices=blobs.HASH_TYPES, dest="hashes",
                       help="may be given several times (default: sha256)")
    group.add_argument("--page-size", type=int, default=12, metavar="LOG2",
                       help="0 is one page of any size (default: %(default)s)")
    group.add_argument("--identifier", help="what the code is called (default: its name)")
    group.add_argument("--team-identifier", dest="code_team", default=FROM_IDENTITY, metavar="TEAM",
                       help="the code's team (default: the certificate's; empty: none)")
    group.add_argument("--timestamp", action="store_true", help="add a timestamp token")


def _identity(arguments):
    profile = dict(VARIANTS.get(arguments.variant, {}))
    for name in ("common_name", "team_identifier", "root_name", "key_type"):
        if getattr(arguments, name) is not None:
            profile[name] = getattr(arguments, name)
    if not profile and (pathlib.Path(arguments.identity) / "identity.json").exists():
        return Identity(arguments.identity)
    return Identity.create(arguments.identity, **profile)


def main(words):
    arguments = _parser().parse_args(words)
    try:
        identity = _identity(arguments)
        for path in arguments.paths:
            sign(
                path, identity, adhoc=arguments.adhoc, linker_signed=arguments.linker_signed,
                hashes=tuple(arguments.hashes or ("sha256",)), page_size=arguments.page_size,
                identifier=arguments.identifier, team_identifier=arguments.code_team or None,
                timestamp=Timestamp() if arguments.timestamp else None)
    except SigningError as error:
        print(f"signing: {error}", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
