"""Mach-O files: builds small ones and embeds signatures in any.

Sources: Apple's open `xnu` (EXTERNAL_HEADERS/mach-o/loader.h, fat.h). Offsets and sizes are octets.
"""

import dataclasses
import pathlib
import plistlib
import struct

from simulator.signing import blobs, signature
from simulator.signing.host import SigningError, read, write
from simulator.signing.signature import Options

FAT_MAGIC = 0xCAFEBABE
LC_SEGMENT, LC_SYMTAB, LC_ID_DYLIB, LC_SEGMENT_64, LC_CODE_SIGNATURE = 0x1, 0x2, 0xD, 0x19, 0x1D
CPU_TYPE_ARM64 = 0x0100000C

# Processor: type, subtype, whether 64-bit, byte order in the form of struct.
PROCESSORS = {
    "i386": (7, 3, False, "<"),
    "x86_64": (0x01000007, 3, True, "<"),
    "x86_64h": (0x01000007, 8, True, "<"),
    "arm": (12, 9, False, "<"),
    "arm64": (CPU_TYPE_ARM64, 0, True, "<"),
    "arm64e": (CPU_TYPE_ARM64, 0x80000002, True, "<"),
    "ppc": (18, 0, False, ">"),
    "ppc64": (0x01000012, 0, True, ">"),
}

FILE_TYPES = {"object": 1, "execute": 2, "core": 4, "preload": 5, "dylib": 6, "dylinker": 7,
              "bundle": 8, "dsym": 10, "kext": 11}

# The file types that carry code signatures.
SIGNABLE_FILE_TYPES = {2, 5, 6, 7, 8, 11}


@dataclasses.dataclass(frozen=True)
class Slice:
    """A file that build_thin() makes, with `code_size` octets of code, which differ by `seed`.

    `info_plist` is the contents of the `__info_plist` section; None for no such section.
    """

    processor: str = "arm64"
    file_type: str = "dylib"
    code_size: int = 5000
    info_plist: bytes | None = None
    seed: int = 0


def build_thin(piece=Slice()):
    """An unsigned Mach-O file of one slice, with room for the command that a signature needs."""
    cpu_type, cpu_subtype, wide, order = PROCESSORS[piece.processor]
    file_type = FILE_TYPES[piece.file_type]
    page = 0x4000 if cpu_type == CPU_TYPE_ARM64 else 0x1000
    sections = [("__text", bytes((number * 31 + piece.seed) % 253
                                 for number in range(piece.code_size)))]
    if piece.info_plist is not None:
        sections.append(("__info_plist", piece.info_plist))
    form = _Form(order, wide)
    data, placed = bytearray(0x400), []
    for name, body in sections:
        placed.append((name, len(data), len(body)))
        data += body + bytes(-len(body) % 16)
    data += bytes(-len(data) % page)
    strings = b"\0_agent\0" + bytes(8)
    commands = [
        form.segment("__TEXT", 0, len(data), page, placed),
        form.segment("__LINKEDIT", len(data), len(strings), page, []),
        struct.pack(order + "6I", LC_SYMTAB, 24, len(data), 0, len(data), len(strings)),
    ]
    if piece.file_type == "dylib":
        name = b"@rpath/agent.dylib\0".ljust(24, b"\0")
        commands.append(struct.pack(order + "6I", LC_ID_DYLIB, 48, 24, 1, 0x10000, 0x10000) + name)
    data += strings
    body = b"".join(commands)
    header = struct.pack(order + "7I", 0xFEEDFACF if wide else 0xFEEDFACE, cpu_type, cpu_subtype,
                         file_type, len(commands), len(body), 0) + bytes(4 if wide else 0)
    data[:len(header) + len(body)] = header + body
    return bytes(data)


@dataclasses.dataclass(frozen=True)
class _Form:
    """Segments in the form of one byte order and word size."""

    order: str
    wide: bool

    def segment(self, name, offset, size, page, sections):
        word = "Q" if self.wide else "I"
        memory = size + -size % page
        body = b"".join(
            struct.pack(f"{self.order}16s16s2{word}{'8I' if self.wide else '7I'}", part.encode(),
                        name.encode(), start, length, start, 4, *(0,) * (6 if self.wide else 5))
            for part, start, length in sections)
        head = struct.pack(f"{self.order}16s4{word}4I", name.encode(), offset, memory, offset, size,
                           5, 5, len(sections), 0)
        return struct.pack(self.order + "2I", LC_SEGMENT_64 if self.wide else LC_SEGMENT,
                           8 + len(head) + len(body)) + head + body


@dataclasses.dataclass(frozen=True)
class FatEntry:
    """One slice of a universal file; `align` is the logarithm to base 2 of its alignment."""

    cpu_type: int
    cpu_subtype: int
    align: int
    data: bytes


def build_fat(pieces, *, align=14, hidden_arm64=False):
    """A universal file. `pieces` are Slice or finished thin files.

    With `hidden_arm64` the last slice, an arm64 one, is in the table but not counted.
    """
    thin = [build_thin(piece) if isinstance(piece, Slice) else bytes(piece) for piece in pieces]
    entries = []
    for data in thin:
        cpu_type, cpu_subtype = struct.unpack_from(Image(data).order + "4x2I", data)
        entries.append(FatEntry(cpu_type, cpu_subtype, align, data))
    return _join_fat(entries, len(entries) - hidden_arm64)


def _join_fat(entries, counted):
    table = struct.pack(">2I", FAT_MAGIC, counted)
    body = bytearray(8 + 20 * max(len(entries), counted + 1))
    for entry in entries:
        body += bytes(-len(body) % (1 << entry.align))
        table += struct.pack(">5I", entry.cpu_type, entry.cpu_subtype, len(body), len(entry.data),
                             entry.align)
        body += entry.data
    body[:len(table)] = table
    return bytes(body)


def split_fat(data):
    """The FatEntry of every slice of a universal file, and how many of them its header counts."""
    counted, = struct.unpack_from(">4xI", data)
    rows = []
    for number in range(counted + 1):
        row = struct.unpack_from(">5I", data, 8 + 20 * number)
        if number < counted or row[0] == CPU_TYPE_ARM64:
            rows.append(row)
    entries = [FatEntry(cpu_type, cpu_subtype, align, bytes(data[offset:offset + size]))
               for cpu_type, cpu_subtype, offset, size, align in rows]
    return entries, counted


class Image:
    """The header and load commands of a thin Mach-O file."""

    def __init__(self, data):
        self.data = data
        magics = {order: struct.unpack_from(order + "I", data)[0] for order in "<>"}
        self.order = next((order for order, magic in magics.items()
                           if magic in (0xFEEDFACE, 0xFEEDFACF)), None)
        if self.order is None:
            raise SigningError("not a Mach-O slice")
        self.wide = magics[self.order] == 0xFEEDFACF
        self.file_type, self.count, self.size = struct.unpack_from(self.order + "12x3I", data)
        self.start = 32 if self.wide else 28

    def commands(self):
        """The kind and the offset of every load command."""
        offset = self.start
        for _ in range(self.count):
            kind, size = struct.unpack_from(self.order + "2I", self.data, offset)
            yield kind, offset
            offset += size

    def find(self, wanted):
        """The offset of the first load command of a kind, None when there is none."""
        return next((offset for kind, offset in self.commands() if kind == wanted), None)

    def segment(self, name):
        """The offset of a segment's load command, None when there is no such segment."""
        wanted = LC_SEGMENT_64 if self.wide else LC_SEGMENT
        return next((offset for kind, offset in self.commands()
                     if kind == wanted and self.name_at(offset + 8) == name), None)

    def name_at(self, offset):
        return bytes(self.data[offset:offset + 16]).rstrip(b"\0").decode("ascii", "replace")

    def file_range(self, segment):
        """The file offset and size of the segment whose command is at `segment`."""
        form, skip = ("2Q", 40) if self.wide else ("2I", 32)
        return struct.unpack_from(self.order + form, self.data, segment + skip)

    def sections(self, segment):
        """Name, file offset and size of every section of a segment."""
        head, each, size_at, offset_at = (72, 80, 40, 48) if self.wide else (56, 68, 36, 40)
        count, = struct.unpack_from(self.order + "I", self.data, segment + head - 8)
        for number in range(count):
            at = segment + head + number * each
            size, = struct.unpack_from(self.order + ("Q" if self.wide else "I"), self.data,
                                       at + size_at)
            offset, = struct.unpack_from(self.order + "I", self.data, at + offset_at)
            yield self.name_at(at), offset, size

    def info_plist(self):
        """The contents of the `__info_plist` section, None when there is none."""
        text = self.segment("__TEXT")
        if text is not None:
            for name, offset, size in self.sections(text):
                if name == "__info_plist":
                    return bytes(self.data[offset:offset + size])
        return None

    def executable_segment(self):
        text = self.segment("__TEXT")
        base, size = self.file_range(text) if text is not None else (0, 0)
        return blobs.ExecutableSegment(base, size, self.file_type == FILE_TYPES["execute"])


def is_macho(data):
    """Whether a file with these contents carries its signature within. The file type decides; in a
    universal file, the type of the first slice."""
    try:
        if struct.unpack_from(">I", data)[0] == FAT_MAGIC:
            offset, = struct.unpack_from(">16xI", data)
            return is_macho(data[offset:]) if offset else False
        return Image(data).file_type in SIGNABLE_FILE_TYPES
    except (struct.error, SigningError):
        return False


def sign_macho(path, identity=None, *, slices=None, special=None, **options):
    """Signs a Mach-O file in place.

    `slices` are the numbers of the slices to sign, None for all; the others stay as they are. An
    earlier signature is replaced. `special` is what a bundle around the file seals (slots 1 and 3).
    The options are those of Options.
    """
    path = pathlib.Path(path)
    chosen = Options(**options)
    data = read(path)
    try:
        if struct.unpack_from(">I", data)[0] == FAT_MAGIC:
            entries, counted = split_fat(data)
            signed = _join_fat([
                dataclasses.replace(entry, data=_sign_slice(entry.data, identity, chosen, path.name,
                                                            special))
                if slices is None or number in slices else entry
                for number, entry in enumerate(entries)], counted)
        else:
            signed = _sign_slice(data, identity, chosen, path.name, special)
    except struct.error:
        raise SigningError(f"cannot sign {path}: its Mach-O headers are cut off") from None
    except SigningError as error:
        raise SigningError(f"cannot sign {path}: {error}") from None
    write(path, signed)
    return path


def _sign_slice(data, identity, options, name, special):
    """Signs a slice twice, because its first page contains the size of the signature."""
    plist = Image(data).info_plist()
    sealed = dict(special or {})
    if plist is not None:
        sealed.setdefault(blobs.SLOT_INFO_PLIST, plist)
    name = bundle_identifier(sealed.get(blobs.SLOT_INFO_PLIST)) or name
    size = 0
    for _ in range(2):
        image, limit = _make_room(data, size)
        found = signature.components(
            image[:limit], identity, options, name=name, special=sealed,
            executable_segment=Image(image).executable_segment())
        encoding = signature.embedded(found)
        size = (len(encoding) + 64 + 15) // 16 * 16
    return image[:limit] + encoding.ljust(len(image) - limit, b"\0")


def bundle_identifier(plist):
    """CFBundleIdentifier of an information property list, None when it has none."""
    try:
        identifier = plistlib.loads(plist or b"").get("CFBundleIdentifier")
    except (plistlib.InvalidFileException, ValueError, AttributeError):
        return None
    return identifier if isinstance(identifier, str) else None


def _make_room(data, size):
    """Returns the slice with `size` octets for a signature at its end, and the signature's offset."""
    image = Image(data)
    command = image.find(LC_CODE_SIGNATURE)
    if command is None:
        limit = (len(data) + 15) // 16 * 16
        command = image.start + image.size
        result = bytearray(data.ljust(limit, b"\0"))
        if any(result[command:command + 16]):
            raise SigningError("there is no room for another load command")
        struct.pack_into(image.order + "2I", result, 16, image.count + 1, image.size + 16)
    else:
        limit, = struct.unpack_from(image.order + "8xI", data, command)
        result = bytearray(data[:limit])
    result += bytes(size)
    struct.pack_into(image.order + "4I", result, command, LC_CODE_SIGNATURE, 16, limit, size)
    _extend_link_edit(Image(result), len(result))
    return bytes(result), limit


def _extend_link_edit(image, end):
    segment = image.segment("__LINKEDIT")
    if segment is None:
        raise SigningError("there is no __LINKEDIT segment")
    start, _ = image.file_range(segment)
    size = end - start
    word, memory_at, size_at = ("Q", 32, 48) if image.wide else ("I", 28, 36)
    struct.pack_into(image.order + word, image.data, segment + memory_at, (size + 0x3FFF) & ~0x3FFF)
    struct.pack_into(image.order + word, image.data, segment + size_at, size)
