"""Tests of Mach-O files: the made ones are read back, the signed ones judged, slice by slice."""

import plistlib
import struct
import unittest

from simulator.signing import SigningError, blobs, macho, sign_macho
from simulator.signing.macho import Slice, build_fat, build_thin
from simulator.signing.test_kit import SigningTestCase, digest, read_directory, read_super_blob

PLIST = plistlib.dumps({"CFBundleIdentifier": "com.example.agent"})


class Thin:
    """A thin Mach-O file as the test reads it."""

    def __init__(self, data):
        self.data = data
        self.order = "<" if data[0] in (0xCE, 0xCF) else ">"
        wide = data[0 if self.order == "<" else 3] == 0xCF
        (self.magic, self.cpu_type, self.cpu_subtype, self.file_type, count, size,
         _) = struct.unpack_from(self.order + "7I", data)
        start = offset = 32 if wide else 28
        self.commands, self.segments = [], {}
        for _ in range(count):
            kind, length = struct.unpack_from(self.order + "2I", data, offset)
            self.commands.append(kind)
            if kind in (0x1, 0x19):
                name = data[offset + 8:offset + 24].rstrip(b"\0").decode()
                self.segments[name] = struct.unpack_from(
                    self.order + ("2Q" if wide else "2I"), data, offset + (40 if wide else 32))
            if kind == 0x1D:
                self.signature_at, self.signature_room = struct.unpack_from(
                    self.order + "2I", data, offset + 8)
            offset += length
        assert offset == start + size

    def signature(self):
        """The components; checks that what follows the signature is zero."""
        end = self.signature_at + self.signature_room
        assert end == len(self.data) and self.signature_at % 16 == 0
        length, = struct.unpack_from(">4xI", self.data, self.signature_at)
        assert not any(self.data[self.signature_at + length:end])
        return read_super_blob(self.data[self.signature_at:self.signature_at + length])

    def code(self):
        return self.data[:self.signature_at]


def split(data):
    """The thin files in a universal file, by its table."""
    magic, count = struct.unpack_from(">2I", data)
    assert magic == 0xCAFEBABE
    rows = [struct.unpack_from(">5I", data, 8 + 20 * number) for number in range(count)]
    assert all(row[2] % (1 << row[4]) == 0 for row in rows)
    return [Thin(data[row[2]:row[2] + row[3]]) for row in rows]


class MachOTestCase(SigningTestCase):
    def make(self, data):
        path = self.directory / "agent.dylib"
        path.write_bytes(data)
        return path

    def assert_signed(self, thin):
        """Checks the pages, the special slots and the message of one slice; returns its parts."""
        found = thin.signature()
        for slot in (0, 0x1000, 0x1001):
            if slot in found:
                directory = read_directory(found[slot])
                self.assert_pages(directory, thin.code())
                for kind in (2, 5, 7):
                    if kind in found:
                        self.assertEqual(directory.special[kind],
                                         digest(directory.hash_type, found[kind]))
        if len(found.get(0x10000, b"")) > 8:
            self.assertTrue(self.cms_verifies(found[0x10000][8:], found[0]))
        return found


class BuilderTest(unittest.TestCase):
    def test_every_processor(self):
        magics = {"<": (0xFEEDFACE, 0xFEEDFACF), ">": (0xFEEDFACE, 0xFEEDFACF)}
        for name, (cpu_type, cpu_subtype, wide, order) in macho.PROCESSORS.items():
            with self.subTest(name=name):
                thin = Thin(build_thin(Slice(name)))
                self.assertEqual(
                    (thin.order, thin.magic, thin.cpu_type, thin.cpu_subtype, thin.file_type),
                    (order, magics[order][wide], cpu_type, cpu_subtype, 6))
                start, size = thin.segments["__LINKEDIT"]
                self.assertEqual(start + size, len(thin.data))
                self.assertEqual(thin.segments["__TEXT"], (0, start))
                self.assertNotIn(0x1D, thin.commands)

    def test_information_section_is_found(self):
        for name in ("i386", "arm64", "ppc"):
            data = build_thin(Slice(name, info_plist=PLIST))
            self.assertIn(PLIST, data)
            self.assertEqual(macho.Image(data).info_plist(), PLIST)
        self.assertIsNone(macho.Image(build_thin()).info_plist())

    def test_universal_file(self):
        slices = [Slice("x86_64"), Slice("arm64", file_type="execute"), Slice("ppc")]
        parts = split(build_fat(slices, align=12))
        self.assertEqual([part.data for part in parts], [build_thin(each) for each in slices])

    def test_hidden_slice_is_not_counted(self):
        data = build_fat([Slice("arm"), Slice("arm64")], hidden_arm64=True)
        self.assertEqual(struct.unpack_from(">I", data, 4)[0], 1)
        self.assertEqual(struct.unpack_from(">I", data, 28)[0], 0x0100000C)

    def test_what_counts_as_macho(self):
        for file_type, expected in (("execute", True), ("dylib", True), ("object", False),
                                    ("core", False), ("dsym", False), ("kext", True)):
            data = build_thin(Slice(file_type=file_type))
            self.assertEqual(macho.is_macho(data), expected, file_type)
            self.assertEqual(macho.is_macho(build_fat([data])), expected, file_type)
        for data in (b"", b"\x7fELF" + bytes(60), bytes.fromhex("cafebabe00000034") + bytes(64)):
            self.assertFalse(macho.is_macho(data))


class SignMachOTest(MachOTestCase):
    def test_every_processor(self):
        for name in macho.PROCESSORS:
            with self.subTest(name=name):
                path = self.make(build_thin(Slice(name)))
                sign_macho(path, self.identity)
                thin = Thin(path.read_bytes())
                found = self.assert_signed(thin)
                directory = read_directory(found[0])
                self.assertEqual(
                    (directory.identifier, directory.team, directory.limit, directory.flags),
                    ("agent.dylib", "QK7ZP2M9XD", thin.signature_at, 0))
                start, size = thin.segments["__LINKEDIT"]
                self.assertEqual(start + size, len(thin.data))

    def test_executable_segment(self):
        for file_type, main_binary in (("execute", 1), ("dylib", 0)):
            path = self.make(build_thin(Slice(file_type=file_type)))
            sign_macho(path, self.identity)
            thin = Thin(path.read_bytes())
            base, limit, flags = struct.unpack_from(">3Q", thin.signature()[0], 64)
            self.assertEqual((base, limit), thin.segments["__TEXT"])
            self.assertEqual(flags, main_binary)

    def test_information_section_is_sealed_and_names_the_code(self):
        path = self.make(build_thin(Slice(info_plist=PLIST)))
        sign_macho(path, self.identity)
        directory = read_directory(self.assert_signed(Thin(path.read_bytes()))[0])
        self.assertEqual(directory.special[1], digest(2, PLIST))
        self.assertEqual(directory.identifier, "com.example.agent")

    def test_every_slice_is_signed(self):
        path = self.make(build_fat([Slice("i386"), Slice("x86_64", seed=1), Slice("arm64")]))
        sign_macho(path, self.identity, hashes=("sha1", "sha256"), entitlements={"flag": True},
                   requirements=blobs.identifier_requirements("agent"))
        parts = split(path.read_bytes())
        self.assertEqual(len(parts), 3)
        for part in parts:
            self.assertEqual(sorted(self.assert_signed(part)), [0, 2, 5, 7, 0x1000, 0x10000])

    def test_chosen_slices_only(self):
        path = self.make(build_fat([Slice("x86_64"), Slice("arm64"), Slice("arm64e")]))
        before = split(path.read_bytes())[0].data
        sign_macho(path, self.identity, slices=(1,), page_size=14)
        sign_macho(path, adhoc=True, slices=(2,))
        unsigned, signed, adhoc = split(path.read_bytes())
        self.assertEqual(unsigned.data, before)
        self.assertEqual(read_directory(self.assert_signed(signed)[0]).page_size, 14)
        self.assertEqual(read_directory(self.assert_signed(adhoc)[0]).flags, 2)

    def test_signing_again_replaces_the_signature(self):
        path = self.make(build_thin())
        sign_macho(path, linker_signed=True)
        first = Thin(path.read_bytes())
        self.assertEqual(list(self.assert_signed(first)), [0])
        sign_macho(path, self.identity)
        second = Thin(path.read_bytes())
        self.assert_signed(second)
        self.assertEqual(second.commands, first.commands)
        self.assertEqual(second.signature_at, first.signature_at)

    def test_hidden_slice_is_signed(self):
        path = self.make(build_fat([Slice("arm"), Slice("arm64")], hidden_arm64=True))
        sign_macho(path, self.identity)
        data = path.read_bytes()
        self.assertEqual(struct.unpack_from(">I", data, 4)[0], 1)
        offset, size = struct.unpack_from(">2I", data, 8 + 20 + 8)
        self.assert_signed(Thin(data[offset:offset + size]))

    def test_what_cannot_be_signed(self):
        full = bytearray(build_thin())
        end = 32 + struct.unpack_from("<I", full, 20)[0]
        full[end:0x400] = b"x" * (0x400 - end)
        endless = bytearray(build_thin())
        endless[36:40] = bytes(4)
        cases = (
            (b"", "headers are cut off"),
            (b"#!/bin/sh\n" + bytes(100), "not a Mach-O"),
            (build_thin()[:34], "headers are cut off"),
            (bytes(endless), "too short a load command"),
            (bytes(full), "no room"),
            (build_thin().replace(b"__LINKEDIT", b"__LINKXXXX"), "no __LINKEDIT"),
        )
        for data, text in cases:
            with self.subTest(text=text), self.assertRaisesRegex(SigningError, text):
                sign_macho(self.make(data), self.identity)
        with self.assertRaisesRegex(SigningError, "1 slices only"):
            sign_macho(self.make(build_thin()), self.identity, slices=(1,))


if __name__ == "__main__":
    unittest.main()
