#!/usr/bin/env python3
"""Checks the finished macOS binary: check_binary.py BINARY [PROGRAM...]

Checks both slices, the macOS version that each needs, the libraries, every imported symbol and the
embedded property list, and checks that the binary is stripped. For each PROGRAM, which has one
architecture, checks only the property list. If MACOS_SYMBOL_LISTS names a directory with the symbol lists
of the oldest macOS, also compares the project's own lists with those.
"""

import os
import plistlib
import re
import struct
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
SYMBOLS = ROOT / "cmake" / "macos-symbols"
INFO_PLIST = ROOT / "app" / "Info.plist"
REQUIRED_KEYS = ("CFBundleIdentifier", "LSMinimumSystemVersion", "RMMToolVersion")

FAT_MAGIC = 0xCAFEBABE
MACHO_MAGIC = 0xFEEDFACF
ARCHITECTURES = {0x01000007: "x86_64", 0x0100000C: "arm64"}
MINIMUM_VERSIONS = {"x86_64": (10, 11), "arm64": (11, 0)}

LC_SYMTAB = 0x2
LC_LOAD_DYLIB = 0xC
LC_SEGMENT_64 = 0x19
LC_VERSION_MIN_MACOSX = 0x24
LC_BUILD_VERSION = 0x32
# Commands for weak, re-exported, upward and lazy libraries, which would hide that a library is missing.
OTHER_DYLIB_COMMANDS = {0x80000018, 0x8000001F, 0x80000023, 0x20}

N_STAB, N_TYPE, N_EXT, N_UNDF = 0xE0, 0x0E, 0x01, 0x00


class CheckFailed(Exception):
    """The binary is not as it should be."""


def require(condition, message):
    if not condition:
        raise CheckFailed(message)


def slices_of(data):
    """Yields (architecture, bytes) of each slice of a universal file."""
    magic, count = struct.unpack_from(">II", data)
    require(magic == FAT_MAGIC, "not a universal file")
    for index in range(count):
        cpu, _, offset, size, _ = struct.unpack_from(">IIIII", data, 8 + 20 * index)
        yield ARCHITECTURES.get(cpu, hex(cpu)), data[offset : offset + size]


def text_at(data, offset):
    return data[offset : data.index(b"\0", offset)].decode()


class Slice:
    """What a thin Mach-O file says about itself."""

    def __init__(self, data):
        self.data = data
        self.version = None
        self.libraries = []
        self.property_list = None
        self.symbols = []
        magic, _, _, _, count = struct.unpack_from("<5I", data)
        require(magic == MACHO_MAGIC, "is not a 64-bit Mach-O file")
        offset = 32
        for _ in range(count):
            command, size = struct.unpack_from("<II", data, offset)
            self._take(command, offset)
            offset += size

    def _take(self, command, offset):
        data = self.data
        if command == LC_LOAD_DYLIB:
            (name,) = struct.unpack_from("<I", data, offset + 8)
            self.libraries.append(text_at(data, offset + name))
        elif command in OTHER_DYLIB_COMMANDS:
            raise CheckFailed("has a library that is not linked with a plain LC_LOAD_DYLIB command")
        elif command == LC_VERSION_MIN_MACOSX:
            self.version = self._version(offset + 8)
        elif command == LC_BUILD_VERSION:
            require(struct.unpack_from("<I", data, offset + 8)[0] == 1, "is not built for macOS")
            self.version = self._version(offset + 12)
        elif command == LC_SEGMENT_64:
            self._take_sections(offset)
        elif command == LC_SYMTAB:
            self._take_symbols(*struct.unpack_from("<4I", data, offset + 8))

    def _version(self, offset):
        number = struct.unpack_from("<I", self.data, offset)[0]
        return number >> 16, number >> 8 & 0xFF

    def _take_sections(self, offset):
        count = struct.unpack_from("<I", self.data, offset + 64)[0]
        for section in range(offset + 72, offset + 72 + 80 * count, 80):
            names = struct.unpack_from("16s16s", self.data, section)
            if [name.rstrip(b"\0") for name in names] == [b"__info_plist", b"__TEXT"]:
                _, size, start = struct.unpack_from("<QQI", self.data, section + 32)
                self.property_list = self.data[start : start + size]

    def _take_symbols(self, table, count, strings, _):
        for index in range(count):
            entry = struct.unpack_from("<IBBHQ", self.data, table + 16 * index)
            name, kind, _, description, _ = entry
            self.symbols.append((text_at(self.data, strings + name), kind, description >> 8))

    def imports(self):
        """Yields (symbol, library)."""
        for name, kind, ordinal in self.symbols:
            if kind & N_TYPE == N_UNDF and kind & N_EXT:
                known = 0 < ordinal <= len(self.libraries)
                require(known, f"imports {name} without naming a library")
                yield name, self.libraries[ordinal - 1]


def read_stub(text, target):
    """Returns the install name of a text-based stub (version 4), and the symbols of one target."""
    install_name = re.search(r"^install-name:\s*'([^']+)'", text, re.M).group(1)
    symbols = set()
    for targets, names in re.findall(
        r"- targets:\s*\[(.*?)\]\s*symbols:\s*\[(.*?)\]", text, re.S
    ):
        if target in re.split(r"[\s,]+", targets.strip()):
            symbols.update(name.strip("'") for name in re.split(r"[\s,]+", names.strip()))
    return install_name, symbols


def allowed_symbols(architecture):
    """Returns the symbols that a slice may import, by the library's install name."""
    stubs = (stub.read_text() for stub in sorted(SYMBOLS.glob("*.tbd")))
    return dict(read_stub(stub, f"{architecture}-macos") for stub in stubs)


def check_property_list(part):
    require(part.property_list is not None, "has no property list")
    embedded = plistlib.loads(part.property_list)
    for key in REQUIRED_KEYS:
        require(key in embedded, f"has a property list without {key}")
    require(embedded == plistlib.loads(INFO_PLIST.read_bytes()), "has another property list")


def check_slice(architecture, data):
    part = Slice(data)
    wanted = MINIMUM_VERSIONS[architecture]
    require(part.version == wanted, f"is for macOS {part.version}, not {wanted}")
    allowed = allowed_symbols(architecture)
    require(
        sorted(part.libraries) == sorted(allowed),
        f"is linked to {sorted(part.libraries)}, not to {sorted(allowed)}",
    )
    unknown = [name for name, library in part.imports() if name not in allowed[library]]
    require(not unknown, "imports what the oldest macOS may not have: " + ", ".join(unknown))
    check_property_list(part)
    leftovers = [name for name, kind, _ in part.symbols if kind & N_STAB or not kind & N_EXT]
    require(not leftovers, "is not stripped: " + ", ".join(leftovers[:5]))


def check(data):
    found = dict(slices_of(data))
    require(sorted(found) == sorted(MINIMUM_VERSIONS), f"has the slices {sorted(found)}")
    for architecture, part in found.items():
        try:
            check_slice(architecture, part)
        except CheckFailed as failure:
            raise CheckFailed(f"the {architecture} slice {failure}") from None


def names_in_lists(directory):
    """Returns every x86_64 symbol in the symbol lists (version 1) below a directory."""
    prefixes = {"objc-classes": "_OBJC_CLASS_$"}
    names = set()
    for path in Path(directory).rglob("*.tbd"):
        for block in re.split(r"\n  - (?=archs:)", path.read_text()):
            if "x86_64" not in block.split("]", 1)[0]:
                continue
            for kind, listed in re.findall(
                r"(symbols|weak-def-symbols|objc-classes):\s*\[(.*?)\]", block, re.S
            ):
                for name in re.split(r",\s+", listed.strip()):
                    names.add(prefixes.get(kind, "") + name.strip().strip("'"))
    return names


def check_lists(directory):
    """Verifies that each x86_64 name of the project's lists is in the lists of the oldest macOS."""
    known = names_in_lists(directory)
    require(known, f"no symbol lists in {directory}")
    own = set().union(*allowed_symbols("x86_64").values())
    require(own <= known, "not in the symbol lists: " + ", ".join(sorted(own - known)))


def main(arguments):
    if len(arguments) < 2:
        print(__doc__, file=sys.stderr)
        return 2
    for path in arguments[1:]:
        data = Path(path).read_bytes()
        try:
            if path == arguments[1]:
                check(data)
                if os.environ.get("MACOS_SYMBOL_LISTS"):
                    check_lists(os.environ["MACOS_SYMBOL_LISTS"])
            else:
                check_property_list(Slice(data))
        except (CheckFailed, struct.error, ValueError) as failure:
            print(f"{path}: {failure}", file=sys.stderr)
            return 1
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
