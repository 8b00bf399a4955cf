"""Signing identities: made-up certificate chains in the form of Apple's Developer ID.

Sources: RFC 5280 (certificates); Apple's "Developer ID Certification Practice Statement" and the
certificates of publicly distributed software (names, marker extensions).
"""

import dataclasses
import datetime
import hashlib
import json
import pathlib
import secrets
import shutil
import ssl
import tempfile

from simulator.signing import der, host
from simulator.signing.host import SigningError

ECDSA_WITH_SHA256 = "1.2.840.10045.4.3.2"
SHA256_WITH_RSA = "1.2.840.113549.1.1.11"
EKU_CODE_SIGNING = "1.3.6.1.5.5.7.3.3"
EKU_TIME_STAMPING = "1.3.6.1.5.5.7.3.8"
EKU_SERVER_AUTH = "1.3.6.1.5.5.7.3.1"
DEVELOPER_ID_AUTHORITY = "1.2.840.113635.100.6.2.6"
DEVELOPER_ID_APPLICATION = "1.2.840.113635.100.6.1.13"
KEY_USAGE_BITS = {"digitalSignature": 0, "keyEncipherment": 2, "keyCertSign": 5, "cRLSign": 6}
NAME_TYPES = {
    "UID": "0.9.2342.19200300.100.1.1",
    "CN": "2.5.4.3",
    "OU": "2.5.4.11",
    "O": "2.5.4.10",
    "C": "2.5.4.6",
}


@dataclasses.dataclass(frozen=True)
class Profile:
    """What an identity is made of. Days count from the moment of creation and may be negative."""

    common_name: str | None = "Developer ID Application: Corvane SRL (QK7ZP2M9XD)"
    team_identifier: str | None = "QK7ZP2M9XD"
    organization: str = "Corvane SRL"
    root_name: str = "Simulated Root CA"
    key_type: str = "ec"
    valid_from_days: int = -1
    valid_to_days: int = 3652
    extended_key_usages: tuple[str, ...] = (EKU_CODE_SIGNING,)
    key_usages: tuple[str, ...] = ("digitalSignature",)
    authority: bool = True


# Profiles that a platform treats differently. The dates are those of the leaf; an empty tuple leaves
# the extension out.
VARIANTS = {
    "expired": {"valid_from_days": -800, "valid_to_days": -70},
    "not-yet-valid": {"valid_from_days": 70, "valid_to_days": 3652},
    "wrong-extended-key-usage": {"extended_key_usages": (EKU_SERVER_AUTH,)},
    "no-extended-key-usage": {"extended_key_usages": ()},
    "wrong-key-usage": {"key_usages": ("keyEncipherment",)},
    "no-key-usage": {"key_usages": ()},
    "no-team": {"team_identifier": None},
    "no-common-name": {"common_name": None},
    "issuer-no-authority": {"authority": False},
}


@dataclasses.dataclass(frozen=True)
class Certificate:
    """One certificate of an identity with its private key."""

    der: bytes
    key_path: pathlib.Path

    @property
    def issuer(self):
        """The issuer's Name, DER."""
        return self._field(3)

    @property
    def subject(self):
        """The subject's Name, DER."""
        return self._field(5)

    @property
    def serial_number(self):
        """The serial number as a DER INTEGER."""
        return self._field(1)

    def _field(self, number):
        return der.children(der.children(self.der)[0])[number]


class Identity:
    """A chain of three certificates with their keys, and a timestamp authority below the same root.

    `certificates` maps "root", "intermediate", "leaf" and "timestamp" to a Certificate.
    """

    def __init__(self, directory):
        """Opens what create() made in `directory`."""
        self.directory = pathlib.Path(directory)
        try:
            values = json.loads((self.directory / "identity.json").read_text())
            self.profile = _profile(values)
            self.certificates = {role: _load(self.directory, role) for role in _ROLES}
        except (OSError, ValueError, TypeError) as error:
            raise SigningError(f"{directory} holds no usable identity: {error}") from error

    @classmethod
    def create(cls, directory, **profile):
        """Opens the identity in `directory`, or makes it with the given fields of Profile.

        An identity with another profile in the directory is an error. Several processes may create
        the same one at once.
        """
        wanted = _profile(profile)
        directory = pathlib.Path(directory)
        if not (directory / "identity.json").exists():
            _make(directory, wanted)
        identity = cls(directory)
        if identity.profile != wanted:
            raise SigningError(f"{directory} holds an identity with another profile")
        return identity

    @property
    def anchor_path(self):
        """The root certificate's PEM file, which a verifier has to trust."""
        return self.directory / "root.pem"

    @property
    def team_identifier(self):
        return self.profile.team_identifier


def _load(directory, role):
    pem = (directory / f"{role}.pem").read_text()
    return Certificate(ssl.PEM_cert_to_DER_cert(pem), directory / f"{role}.key")


def _profile(values):
    values = {key: tuple(value) if isinstance(value, list) else value
              for key, value in values.items()}
    profile = Profile(**values)
    if profile.key_type not in host.KEY_TYPES:
        raise SigningError(f"unknown key type {profile.key_type}")
    for usage in profile.key_usages:
        if usage not in KEY_USAGE_BITS:
            raise SigningError(f"unknown key usage {usage}")
    return profile


def _make(directory, profile):
    """Creates everything in a sibling directory and renames it, so that the identity is never incomplete."""
    try:
        directory.parent.mkdir(parents=True, exist_ok=True)
        work = pathlib.Path(tempfile.mkdtemp(prefix=f".{directory.name}.", dir=directory.parent))
    except OSError as error:
        raise SigningError(f"cannot make an identity in {directory}: {error}") from error
    try:
        work.chmod(0o755)
        _make_chain(work, profile)
        (work / "identity.json").write_text(json.dumps(dataclasses.asdict(profile), indent=2))
        try:
            work.rename(directory)
        except OSError as error:
            if not (directory / "identity.json").exists():
                raise SigningError(f"cannot make an identity in {directory}: {error}") from error
    finally:
        shutil.rmtree(work, ignore_errors=True)


def _make_chain(directory, profile):
    for role, make in _ROLES.items():
        host.make_key(directory / f"{role}.key", profile.key_type)
        certificate = make(directory, profile)
        (directory / f"{role}.pem").write_text(ssl.DER_cert_to_PEM_cert(certificate))


def _root(directory, profile):
    name = _name(CN=profile.root_name, OU="Simulated Certification Authority", O="Simulated Inc.",
                 C="US")
    return _certificate(directory, profile, "root", "root", name, name, _authority_extensions())


def _intermediate(directory, profile):
    name = _name(CN=f"{profile.root_name} Developer ID", OU="Simulated Certification Authority",
                 O="Simulated Inc.", C="US")
    extensions = _authority_extensions() if profile.authority else []
    marker = _extension(DEVELOPER_ID_AUTHORITY, der.null())
    return _certificate(directory, profile, "intermediate", "root", _load(directory, "root").subject,
                        name, [*extensions, marker])


def _leaf(directory, profile):
    name = _name(UID=profile.team_identifier, CN=profile.common_name, OU=profile.team_identifier,
                 O=profile.organization, C="US")
    extensions = _leaf_extensions(profile.extended_key_usages, profile.key_usages)
    marker = _extension(DEVELOPER_ID_APPLICATION, der.null(), critical=True)
    return _certificate(directory, profile, "leaf", "intermediate",
                        _load(directory, "intermediate").subject, name, [*extensions, marker],
                        days=(profile.valid_from_days, profile.valid_to_days))


def _timestamp(directory, profile):
    name = _name(CN="Simulated Timestamp Signer", O="Simulated Inc.", C="US")
    extensions = _leaf_extensions((EKU_TIME_STAMPING,), ("digitalSignature",))
    return _certificate(directory, profile, "timestamp", "root", _load(directory, "root").subject,
                        name, extensions)


_ROLES = {"root": _root, "intermediate": _intermediate, "leaf": _leaf, "timestamp": _timestamp}


def _certificate(directory, profile, role, issuer_role, issuer, subject, extensions,
                 days=(-3652, 7305)):
    """One signed certificate, valid between the two `days` counted from now."""
    now = datetime.datetime.now(datetime.timezone.utc)
    algorithm = signature_algorithm(profile.key_type)
    public_key = host.public_key(directory / f"{role}.key")
    issuer_key = host.public_key(directory / f"{issuer_role}.key")
    extensions = [
        *extensions,
        _extension("2.5.29.14", der.octet_string(_key_identifier(public_key))),
        _extension("2.5.29.35", der.sequence(der.element(0x80, _key_identifier(issuer_key)))),
    ]
    body = der.sequence(
        der.explicit(0, der.integer(2)),
        der.integer(secrets.randbits(62) + 1),
        algorithm,
        issuer,
        der.sequence(*(der.time(now + datetime.timedelta(days=count)) for count in days)),
        subject,
        public_key,
        der.explicit(3, der.sequence(*extensions)))
    signature = host.sign_digest(directory / f"{issuer_role}.key", body)
    return der.sequence(body, algorithm, der.bit_string(signature))


def signature_algorithm(key_type):
    """The AlgorithmIdentifier of signatures by a key of one of host.KEY_TYPES with SHA-256."""
    if key_type == "ec":
        return der.sequence(der.oid(ECDSA_WITH_SHA256))
    return der.sequence(der.oid(SHA256_WITH_RSA), der.null())


def _name(**parts):
    """A Name of these parts in their order, without those that are None."""
    encodings = []
    for kind, text in parts.items():
        if text is not None:
            value = der.printable_string(text) if kind == "C" else der.utf8_string(text)
            encodings.append(der.set_of(der.sequence(der.oid(NAME_TYPES[kind]), value)))
    return der.sequence(*encodings)


def _key_identifier(public_key):
    """SHA-1 of the key's bits, without the octet that counts the unused bits."""
    bits = der.contents(der.children(public_key)[1])
    return hashlib.sha1(bits[1:]).digest()


def _extension(dotted, value, critical=False):
    flag = [der.boolean(True)] if critical else []
    return der.sequence(der.oid(dotted), *flag, der.octet_string(value))


def _authority_extensions():
    return [_extension("2.5.29.19", der.sequence(der.boolean(True)), critical=True),
            _key_usage(("keyCertSign", "cRLSign"))]


def _leaf_extensions(extended_key_usages, key_usages):
    extensions = [_extension("2.5.29.19", der.sequence(), critical=True)]
    if key_usages:
        extensions.append(_key_usage(key_usages))
    if extended_key_usages:
        extensions.append(_extension(
            "2.5.29.37", der.sequence(*map(der.oid, extended_key_usages)), critical=True))
    return extensions


def _key_usage(names):
    """A KeyUsage is a named bit list: no trailing zero bits."""
    bits = sum(0x80 >> KEY_USAGE_BITS[name] for name in names)
    unused = (bits & -bits).bit_length() - 1
    return _extension("2.5.29.15", der.bit_string(bytes([bits]), unused), critical=True)
