"""The binary pieces of an embedded code signature.

Everything is big-endian. Sources: Apple's open `xnu` (osfmk/kern/cs_blobs.h) and `Security`
(libsecurity_codesigning, libsecurity_utilities).
"""

import dataclasses
import hashlib
import struct

from simulator.signing import der
from simulator.signing.host import SigningError

REQUIREMENT_SET = 0xFADE0C01
CODE_DIRECTORY = 0xFADE0C02
EMBEDDED_SIGNATURE = 0xFADE0CC0
WRAPPER = 0xFADE0B01
ENTITLEMENTS = 0xFADE7171
DER_ENTITLEMENTS = 0xFADE7172

SLOT_CODE_DIRECTORY = 0
SLOT_INFO_PLIST = 1
SLOT_REQUIREMENTS = 2
SLOT_RESOURCES = 3
SLOT_ENTITLEMENTS = 5
SLOT_DER_ENTITLEMENTS = 7
SLOT_ALTERNATE = 0x1000
SLOT_CMS = 0x10000

FLAG_ADHOC = 0x2
FLAG_LINKER_SIGNED = 0x20000


@dataclasses.dataclass(frozen=True)
class HashType:
    """A digest of CodeDirectories: its number in them, and how many octets of it are kept.

    `dotted` is its object identifier in the hash-agility attribute.
    """

    number: int
    algorithm: str
    size: int
    dotted: str

    def digest(self, data):
        return hashlib.new(self.algorithm, data).digest()[:self.size]


HASH_TYPES = {
    "sha1": HashType(1, "sha1", 20, "1.3.14.3.2.26"),
    "sha256": HashType(2, "sha256", 32, "2.16.840.1.101.3.4.2.1"),
    "sha256-truncated": HashType(3, "sha256", 20, "2.16.840.1.101.3.4.2.1"),
    "sha384": HashType(4, "sha384", 48, "2.16.840.1.101.3.4.2.2"),
}


def blob(magic, payload):
    return struct.pack(">II", magic, 8 + len(payload)) + payload


def super_blob(magic, entries):
    """A blob of blobs; `entries` maps the type of each to its encoding."""
    offset = 12 + 8 * len(entries)
    index, body = b"", b""
    for kind, encoding in entries.items():
        index += struct.pack(">II", kind, offset + len(body))
        body += encoding
    return blob(magic, struct.pack(">I", len(entries)) + index + body)


def split_super_blob(data):
    """The encodings in a blob of blobs, by type."""
    count, = struct.unpack_from(">8xI", data)
    found = {}
    for number in range(count):
        kind, offset = struct.unpack_from(">2I", data, 12 + 8 * number)
        length, = struct.unpack_from(">4xI", data, offset)
        found[kind] = data[offset:offset + length]
    return found


EMPTY_REQUIREMENTS = super_blob(REQUIREMENT_SET, {})


def der_entitlements(values):
    """The DER form of an entitlements dictionary (booleans, integers, strings, lists, dicts)."""
    return der.element(0x70, der.integer(1), _der_value(values))


def _der_value(value):
    if isinstance(value, bool):
        return der.boolean(value)
    if isinstance(value, int):
        return der.integer(value)
    if isinstance(value, str):
        return der.utf8_string(value)
    if isinstance(value, (list, tuple)):
        return der.sequence(*map(_der_value, value))
    if isinstance(value, dict):
        return der.element(0xB0, *(der.sequence(der.utf8_string(key), _der_value(value[key]))
                                   for key in sorted(value)))
    raise SigningError(f"entitlements cannot hold a {type(value).__name__}")


@dataclasses.dataclass(frozen=True)
class ExecutableSegment:
    """Where `__TEXT` lies in the file (octets), and whether it is a main binary's."""

    base: int = 0
    limit: int = 0
    main_binary: bool = False


@dataclasses.dataclass(frozen=True)
class CodeDirectory:
    """What a CodeDirectory says.

    `page_size` is the logarithm to base 2 of a page's octets; 0 is one page of any size.
    `special` maps slot numbers to what they seal. `version` decides which fields are written.
    """

    identifier: str
    team_identifier: str | None
    hash_name: str
    page_size: int
    flags: int
    version: int
    special: dict[int, bytes]
    executable_segment: ExecutableSegment = ExecutableSegment()

    @property
    def hash_type(self):
        return HASH_TYPES[self.hash_name]

    def encode(self, code):
        """Returns the blob. `code` is all the code that it covers, as a memoryview or bytes."""
        slots = max(self.special, default=0)
        sealed = [self._special_hash(slot) for slot in range(slots, 0, -1)]
        pages = self._page_hashes(code)
        extension_size = sum(struct.calcsize(form) for version, form, _ in self._extensions(0, 0)
                             if self.version >= version)
        names = self.identifier.encode() + b"\0"
        identifier_offset = 44 + extension_size
        team_offset = 0
        if self.team_identifier is not None:
            team_offset = identifier_offset + len(names)
            names += self.team_identifier.encode() + b"\0"
        hash_offset = identifier_offset + len(names) + len(sealed) * self.hash_type.size
        limit = len(code)
        header = struct.pack(
            ">IIIIIIIBBBBI", self.version, self.flags, hash_offset, identifier_offset, slots,
            len(pages), min(limit, 0xFFFFFFFF), self.hash_type.size, self.hash_type.number, 0,
            self.page_size, 0)
        for version, form, values in self._extensions(team_offset, limit):
            if self.version >= version:
                header += struct.pack(form, *values)
        return blob(CODE_DIRECTORY, header + names + b"".join(sealed) + b"".join(pages))

    def _extensions(self, team_offset, limit):
        """The later parts of the header: the version that introduced each, its form and its values."""
        segment = self.executable_segment
        return (
            (0x20100, ">I", (0,)),
            (0x20200, ">I", (team_offset,)),
            (0x20300, ">IQ", (0, limit if limit > 0xFFFFFFFF else 0)),
            (0x20400, ">QQQ", (segment.base, segment.limit, int(segment.main_binary))),
            (0x20500, ">II", (0, 0)),
            (0x20600, ">BBHII", (0, 0, 0, 0, 0)),
        )

    def _special_hash(self, slot):
        if slot in self.special:
            return self.hash_type.digest(self.special[slot])
        return bytes(self.hash_type.size)

    def _page_hashes(self, code):
        step = 1 << self.page_size if self.page_size else max(len(code), 1)
        return [self.hash_type.digest(code[start:start + step])
                for start in range(0, len(code), step)]
