"""Signs whatever lies at a path, in the way that its kind asks for."""

from simulator.signing.files import contents
from simulator.signing.macho import is_macho, sign_macho
from simulator.signing.plain import sign_file


def sign(path, identity=None, **options):
    """Signs a Mach-O file in place and any other file by a file beside it; see Options."""
    with contents(path) as data:
        macho = is_macho(data)
    return (sign_macho if macho else sign_file)(path, identity, **options)
