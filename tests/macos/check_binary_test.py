"""The check of the macOS binary finds each fault: it gets small binaries made for the purpose."""

import plistlib
import struct
import tempfile
import unittest
from pathlib import Path

from tests.macos import check_binary

CPU = {"x86_64": 0x01000007, "arm64": 0x0100000C}
UNDEFINED, LOCAL, DEBUGGING = 0x01, 0x0E, 0x64


def padded(data, size=8):
    return data + b"\0" * (-len(data) % size)


class SliceMaker:
    """The parts of one slice; a test changes some of them."""

    def __init__(self, architecture):
        self.architecture = architecture
        self.version = check_binary.MINIMUM_VERSIONS[architecture]
        self.libraries = sorted(check_binary.allowed_symbols(architecture))
        self.library_command = check_binary.LC_LOAD_DYLIB
        self.property_list = check_binary.INFO_PLIST.read_bytes()
        # Name, kind and number of the library, counted from 1.
        system = self.libraries.index("/usr/lib/libSystem.B.dylib") + 1
        self.symbols = [("_open", UNDEFINED, system), ("_close", UNDEFINED, system)]

    def _library(self, name):
        body = padded(name.encode() + b"\0")
        return struct.pack("<6I", self.library_command, 24 + len(body), 24, 0, 0, 0) + body

    def _version(self):
        number = self.version[0] << 16 | self.version[1] << 8
        if self.architecture == "x86_64":
            return struct.pack("<4I", check_binary.LC_VERSION_MIN_MACOSX, 16, number, 0)
        return struct.pack("<6I", check_binary.LC_BUILD_VERSION, 24, 1, number, 0, 0)

    def _segment(self, offset):
        section = struct.pack(
            "<16s16sQQ8I", b"__info_plist", b"__TEXT", 0, len(self.property_list), offset, *[0] * 7
        )
        header = struct.pack(
            "<II16s4Q4I", check_binary.LC_SEGMENT_64, 72 + len(section), b"__TEXT", *[0] * 4, 0, 0, 1, 0
        )
        return header + section

    def make(self):
        fixed = [self._library(name) for name in self.libraries] + [self._version()]
        commands_size = sum(map(len, fixed)) + 24 + (152 if self.property_list is not None else 0)
        data_start = 32 + commands_size
        data = b""
        if self.property_list is not None:
            fixed.append(self._segment(data_start))
            data = padded(self.property_list)
        strings, entries = b"\0", b""
        for name, kind, ordinal in self.symbols:
            entries += struct.pack("<IBBHQ", len(strings), kind, 0, ordinal << 8, 0)
            strings += name.encode() + b"\0"
        table = data_start + len(data)
        fixed.append(
            struct.pack("<6I", check_binary.LC_SYMTAB, 24, table, len(self.symbols),
                        table + len(entries), len(strings))
        )
        header = struct.pack("<8I", check_binary.MACHO_MAGIC, CPU[self.architecture], 0, 2,
                             len(fixed), commands_size, 0, 0)
        return header + b"".join(fixed) + data + entries + strings


def universal(makers):
    parts = [(CPU[maker.architecture], maker.make()) for maker in makers]
    header, body = struct.pack(">II", check_binary.FAT_MAGIC, len(parts)), b""
    start = 8 + 20 * len(parts)
    for cpu, part in parts:
        header += struct.pack(">5I", cpu, 0, start + len(body), len(part), 0)
        body += part
    return header + body


class CheckBinaryTest(unittest.TestCase):
    def setUp(self):
        self.intel, self.arm = SliceMaker("x86_64"), SliceMaker("arm64")

    def assert_fails(self, message):
        with self.assertRaisesRegex(check_binary.CheckFailed, message):
            check_binary.check(universal([self.intel, self.arm]))

    def test_a_binary_as_it_should_be_passes(self):
        check_binary.check(universal([self.intel, self.arm]))

    def test_what_other_compilers_import_passes(self):
        library = self.arm.libraries.index
        system = library("/usr/lib/libSystem.B.dylib") + 1
        runtime = library("/usr/lib/libobjc.A.dylib") + 1
        for maker in (self.intel, self.arm):
            maker.symbols += [(name, UNDEFINED, system) for name in ("_setbuf", "_memset_pattern16")]
            maker.symbols += [(name, UNDEFINED, runtime) for name in ("_objc_alloc", "_objc_retain")]
        self.arm.symbols += [(f"_objc_{name}", UNDEFINED, runtime) for name in (
            "alloc_init", "opt_class", "opt_isKindOfClass", "opt_new", "opt_respondsToSelector", "opt_self")]
        check_binary.check(universal([self.intel, self.arm]))

    def test_a_thin_file_fails(self):
        with self.assertRaisesRegex(check_binary.CheckFailed, "not a universal file"):
            check_binary.check(self.intel.make())

    def test_a_missing_slice_fails(self):
        with self.assertRaisesRegex(check_binary.CheckFailed, r"slices \['x86_64'\]"):
            check_binary.check(universal([self.intel]))

    def test_a_newer_symbol_fails(self):
        for name in ("_clock_gettime", "_utimensat", "__ZNSt3__112__libcpp_verbose_abort"):
            self.setUp()
            self.intel.symbols.append((name, UNDEFINED, self.intel.symbols[0][2]))
            self.assert_fails(f"the x86_64 slice imports .*{name}")

    def test_a_symbol_of_the_other_architecture_fails(self):
        runtime = self.intel.libraries.index("/usr/lib/libobjc.A.dylib") + 1
        for maker in (self.intel, self.arm):
            maker.symbols.append(("_objc_opt_class", UNDEFINED, runtime))
        self.assert_fails("the x86_64 slice imports .*_objc_opt_class")

    def test_a_symbol_of_another_library_fails(self):
        self.arm.symbols.append(("_objc_msgSend", UNDEFINED, self.arm.symbols[0][2]))
        self.assert_fails("the arm64 slice imports .*_objc_msgSend")

    def test_a_symbol_of_no_particular_library_fails(self):
        self.arm.symbols.append(("_open", UNDEFINED, 0xFE))
        self.assert_fails("looks _open up in no particular library")

    def test_another_macos_version_fails(self):
        self.intel.version = (10, 12)
        self.assert_fails(r"the x86_64 slice is for macOS \(10, 12\)")
        self.setUp()
        self.arm.version = (14, 0)
        self.assert_fails(r"the arm64 slice is for macOS \(14, 0\)")

    def test_a_library_too_many_or_too_few_fails(self):
        self.intel.libraries.append("/usr/local/lib/libuuid.dylib")
        self.assert_fails("is linked to .*libuuid")
        self.setUp()
        self.arm.libraries.remove("/usr/lib/libobjc.A.dylib")
        self.assert_fails("the arm64 slice is linked to")

    def test_a_library_that_may_be_missing_fails(self):
        self.intel.library_command = 0x80000018
        self.assert_fails("not loaded in the plain way")

    def test_a_missing_or_changed_property_list_fails(self):
        self.arm.property_list = None
        self.assert_fails("the arm64 slice has no property list")
        for key in check_binary.REQUIRED_KEYS:
            self.setUp()
            embedded = plistlib.loads(self.arm.property_list)
            del embedded[key]
            self.arm.property_list = plistlib.dumps(embedded)
            self.assert_fails(f"a property list without {key}")
        self.setUp()
        self.intel.property_list = self.intel.property_list.replace(b"10.11", b"10.12")
        self.assert_fails("the x86_64 slice has another property list")

    def test_an_unstripped_binary_fails(self):
        for kind in (LOCAL, DEBUGGING):
            self.setUp()
            self.intel.symbols.append(("leftover", kind, 0))
            self.assert_fails("not stripped: leftover")

    def test_a_name_outside_the_symbol_lists_fails(self):
        names = sorted(set().union(*check_binary.allowed_symbols("x86_64").values()))
        classes = [name for name in names if name.startswith("_OBJC_CLASS_$")]
        plain = [f"'{name}'" for name in names if name not in classes]
        with tempfile.TemporaryDirectory() as directory:
            def write(listed):
                Path(directory, "list.tbd").write_text(
                    "---\narchs: [ i386, x86_64 ]\nexports:\n  - archs: [ i386 ]\n"
                    "    symbols: [ _other ]\n  - archs: [ i386, x86_64 ]\n"
                    f"    symbols: [ {', '.join(listed)} ]\n    objc-classes: [ "
                    f"{', '.join(name[len('_OBJC_CLASS_$'):] for name in classes)} ]\n...\n"
                )
            write(plain)
            check_binary.check_lists(directory)
            write([name for name in plain if name != "'_open'"])
            with self.assertRaisesRegex(check_binary.CheckFailed, "not in the symbol lists: _open$"):
                check_binary.check_lists(directory)
        with self.assertRaisesRegex(check_binary.CheckFailed, "no symbol lists"):
            check_binary.check_lists(directory)


if __name__ == "__main__":
    unittest.main()
