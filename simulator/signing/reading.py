"""Reads signatures back, for the seal of the bundle around the code."""

import dataclasses
import pathlib
import re
import struct

from simulator.signing import blobs, macho
from simulator.signing.host import SigningError, contents
from simulator.signing.layout import find_layout

# The hash types in the order in which a platform prefers their CodeDirectories.
PREFERENCE = ("sha384", "sha256", "sha256-truncated", "sha1")


@dataclasses.dataclass(frozen=True)
class Signed:
    """The best CodeDirectory of one slice. `cdhash` has 20 octets."""

    cdhash: bytes
    identifier: str
    team_identifier: str | None
    adhoc: bool

    def requirement(self):
        """The text of a requirement that only this code meets."""
        if self.adhoc:
            return f'cdhash H"{self.cdhash.hex()}"'
        text = f'identifier "{self.identifier}"'
        if self.team_identifier is not None:
            text += (" and certificate 1[field.1.2.840.113635.100.6.2.6] /* exists */"
                     " and certificate leaf[field.1.2.840.113635.100.6.1.13] /* exists */"
                     f" and certificate leaf[subject.OU] = {_word(self.team_identifier)}")
        return text


def _word(text):
    return text if re.fullmatch(r"[A-Za-z][A-Za-z0-9]*", text) else f'"{text}"'


def read_signed(path):
    """Returns one Signed for each slice of a file or bundle, beginning with the native one (arm64, else
    the first); an empty list when it is not signed code."""
    try:
        return [_describe(parts) for parts in _components(pathlib.Path(path)) if parts]
    except (SigningError, OSError, struct.error, LookupError, ValueError):
        return []


def _components(path):
    """The components of the signature of every slice; none for a slice that is not signed."""
    bundle = path.is_dir()
    if bundle:
        layout = find_layout(path)
        if (layout.signature_directory / "CodeDirectory").exists():
            return [_component_files(layout.signature_directory)]
        path = layout.executable
    with contents(path) as data:
        if macho.is_macho(data):
            return [_macho_components(piece) for piece in _slices(data)]
    sidecar = path.with_name(path.name + ".codesignature")
    return [blobs.split_super_blob(sidecar.read_bytes())] if not bundle and sidecar.exists() else []


def requirement(signed):
    """The requirement text for code whose slices are `signed`."""
    if signed[0].adhoc:
        return " or ".join(each.requirement() for each in signed)
    return signed[0].requirement()


def _component_files(directory):
    found = {blobs.SLOT_CODE_DIRECTORY: (directory / "CodeDirectory").read_bytes()}
    for number in range(5):
        alternate = directory / f"CodeRequirements-{number + 1}"
        if alternate.exists():
            found[blobs.SLOT_ALTERNATE + number] = alternate.read_bytes()
    return found


def _slices(data):
    if struct.unpack_from(">I", data)[0] != macho.FAT_MAGIC:
        return [data]
    entries, _ = macho.split_fat(data)
    return [entry.data for entry in sorted(
        entries, key=lambda entry: entry.cpu_type != macho.CPU_TYPE_ARM64)]


def _macho_components(data):
    image = macho.Image(data)
    command = image.find(macho.LC_CODE_SIGNATURE)
    if command is None:
        return {}
    offset, size = struct.unpack_from(image.order + "8x2I", data, command)
    return blobs.split_super_blob(bytes(data[offset:offset + size]))


def _describe(parts):
    directories = {}
    for slot, encoding in parts.items():
        if slot == blobs.SLOT_CODE_DIRECTORY or 0 <= slot - blobs.SLOT_ALTERNATE < 5:
            directories[encoding[37]] = encoding
    kinds = [blobs.HASH_TYPES[name] for name in PREFERENCE
             if blobs.HASH_TYPES[name].number in directories]
    kind, encoding = kinds[0], directories[kinds[0].number]
    version, flags, identifier = struct.unpack_from(">8x2I4xI", encoding)
    team = struct.unpack_from(">48xI", encoding)[0] if version >= 0x20200 else 0
    return Signed(kind.digest(encoding)[:20], _text(encoding, identifier),
                  _text(encoding, team) if team else None, bool(flags & blobs.FLAG_ADHOC))


def _text(data, offset):
    return data[offset:data.index(b"\0", offset)].decode()
