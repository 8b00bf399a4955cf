"""Signatures as sets of components, wherever those are kept, and the signatures of plain files."""

import dataclasses
import datetime
import pathlib
import plistlib

from simulator.signing import blobs, cms, der
from simulator.signing.cms import Timestamp
from simulator.signing.host import SigningError, contents, write

FROM_IDENTITY = "from the identity"


@dataclasses.dataclass(frozen=True)
class Options:
    """How to sign; the keyword arguments of every sign_ function.

    hashes: names of blobs.HASH_TYPES, the first for the CodeDirectory, the others for alternates.
        No platform accepts a name given twice, nor both kinds of SHA-256 under the second
        hash-agility attribute.
    page_size: logarithm to base 2 of a page's octets. 0 is one page of any size; empty code gets it.
    team_identifier: None leaves it out.
    version, flags: of the CodeDirectory. The flags that the form of the signature needs are added.
    adhoc: no certificates, an empty CMS. linker_signed: nothing but a CodeDirectory of version
        0x20400, as from a linker. Neither needs an identity.
    requirements: a requirement set such as blobs.EMPTY_REQUIREMENTS; None for no such slot.
    entitlements: a dictionary, sealed as XML and as DER; None for no such slots.
    certificates: which of the identity's the CMS carries, in this order.
    signing_time: an aware datetime; None is now. timestamp: a Timestamp; None for no token.
    agility: the numbers of the hash-agility attributes to write, 1 and 2.
    """

    hashes: tuple[str, ...] = ("sha256",)
    page_size: int = 12
    team_identifier: str | None = FROM_IDENTITY
    version: int = 0x20500
    flags: int = 0
    adhoc: bool = False
    linker_signed: bool = False
    requirements: bytes | None = blobs.EMPTY_REQUIREMENTS
    entitlements: dict | None = None
    certificates: tuple[str, ...] = ("intermediate", "root", "leaf")
    signing_time: datetime.datetime | None = None
    timestamp: Timestamp | None = None
    agility: tuple[int, ...] = (1, 2)

    def __post_init__(self):
        unknown = set(self.hashes) - set(blobs.HASH_TYPES)
        if unknown or not 0 < len(self.hashes) <= 6:
            raise SigningError(f"hashes must be one to six of {', '.join(blobs.HASH_TYPES)}")
        if not 0 <= self.page_size < 32:
            raise SigningError(f"a page size of 2^{self.page_size} is not possible")


def components(code, identity, options, *, name, special=None,
               executable_segment=blobs.ExecutableSegment()):
    """The components of a signature: a dictionary from slots to blobs.

    `code` is what the CodeDirectories cover, `name` the identifier, `special` what is sealed but kept
    elsewhere (slots 1 and 3).
    """
    if identity is None and not (options.adhoc or options.linker_signed):
        raise SigningError("only ad-hoc and linker-signed code needs no identity")
    parts = {} if options.linker_signed else _sealed_parts(options)
    sealed = {} if options.linker_signed else {**(special or {}), **parts}
    if len(code) == 0:
        options = dataclasses.replace(options, page_size=0)
    directories = [
        (hash_name, _directory(hash_name, identity, options, name, sealed,
                               executable_segment).encode(code))
        for hash_name in options.hashes]
    found = {blobs.SLOT_CODE_DIRECTORY: directories[0][1], **parts}
    for number, (_, encoding) in enumerate(directories[1:]):
        found[blobs.SLOT_ALTERNATE + number] = encoding
    if not options.linker_signed:
        message = b"" if options.adhoc else _message(directories, identity, options)
        found[blobs.SLOT_CMS] = blobs.blob(blobs.WRAPPER, message)
    return found


def sign_file(path, identity=None, **options):
    """Signs a plain file. Returns the path of the signature, `<path>.codesignature`."""
    path = pathlib.Path(path)
    chosen = Options(**options)
    with contents(path) as code:
        found = components(code, identity, chosen, name=path.name)
    sidecar = path.with_name(path.name + ".codesignature")
    write(sidecar, embedded(found))
    return sidecar


def embedded(found):
    """The SuperBlob of an embedded signature with these components."""
    return blobs.super_blob(blobs.EMBEDDED_SIGNATURE, found)


def _sealed_parts(options):
    parts = {}
    if options.requirements is not None:
        parts[blobs.SLOT_REQUIREMENTS] = options.requirements
    if options.entitlements is not None:
        encoding = blobs.der_entitlements(options.entitlements)
        text = plistlib.dumps(options.entitlements)
        parts[blobs.SLOT_ENTITLEMENTS] = blobs.blob(blobs.ENTITLEMENTS, text)
        parts[blobs.SLOT_DER_ENTITLEMENTS] = blobs.blob(blobs.DER_ENTITLEMENTS, encoding)
    return parts


def _directory(hash_name, identity, options, name, sealed, executable_segment):
    flags, version, team = options.flags, options.version, options.team_identifier
    if options.adhoc:
        flags |= blobs.FLAG_ADHOC
    if options.linker_signed:
        flags |= blobs.FLAG_ADHOC | blobs.FLAG_LINKER_SIGNED
        version = 0x20400
    if team == FROM_IDENTITY:
        anonymous = options.adhoc or options.linker_signed
        team = None if anonymous else identity.team_identifier
    if team is not None and version < 0x20200:
        raise SigningError("a CodeDirectory before version 0x20200 has no team identifier")
    return blobs.CodeDirectory(
        identifier=name, team_identifier=team, hash_name=hash_name,
        page_size=options.page_size, flags=flags, version=version, special=sealed,
        executable_segment=executable_segment)


def _message(directories, identity, options):
    when = options.signing_time or datetime.datetime.now(datetime.timezone.utc)
    agility = {1: cms.hash_agility, 2: cms.hash_agility_2}
    attributes = [cms.attribute(cms.ATTRIBUTE_SIGNING_TIME, der.time(when))]
    attributes += [agility[number](directories) for number in options.agility]
    token = None
    if options.timestamp is not None:
        authority = options.timestamp.authority or identity
        token = dataclasses.replace(options.timestamp, authority=authority).token
    return cms.signed_data(
        directories[0][1], identity.certificates["leaf"],
        [identity.certificates[name] for name in options.certificates], attributes,
        key_type=identity.profile.key_type, timestamp=token)
