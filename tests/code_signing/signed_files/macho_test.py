"""Mach-O files, thin and universal."""

import struct
import unittest

from simulator.signing import sign_macho
from simulator.signing.macho import PROCESSORS, Image, Slice, build_fat, build_thin
from tests.code_signing.signed_files.kit import (
    BAD_OBJECT_FORMAT, INFO_PLIST_FAILED, INTERNAL, VENDOR, SIGNATURE_FAILED, SIGNATURE_INVALID,
    UNSIGNED, VALID, SignedFileTestCase, flipped, patched)

PLIST = b"<plist version='1.0'><dict><key>CFBundleIdentifier</key><string>a.b</string></dict></plist>"

LC_CODE_SIGNATURE, LC_ID_DYLIB = 0x1D, 0xD


class MachOTestCase(SignedFileTestCase):
    def write(self, data):
        self.path = self.directory / "agent.dylib"
        self.path.write_bytes(data)
        return self.path

    def sign(self, data, **options):
        sign_macho(self.write(data), self.identity, **options)
        return self.path.read_bytes()

    def assert_data(self, expected, data):
        return self.assert_validity(expected, self.write(data))

    def assert_created(self, expected, data):
        self.assertEqual(self.check(self.write(data)).created, expected)

    def starts(self, data):
        """The offset of every slice of a universal file."""
        count, = struct.unpack_from(">4xI", data)
        return [struct.unpack_from(">8xI", data, 8 + 20 * number)[0] for number in range(count)]


class ThinTest(MachOTestCase):
    def test_every_processor_and_byte_order(self):
        for processor in PROCESSORS:
            with self.subTest(processor):
                signed = self.sign(build_thin(Slice(processor, info_plist=PLIST)))
                verdict = self.assert_data(VALID, signed)
                self.assertEqual((verdict.team, verdict.certificates[0]), ("QK7ZP2M9XD", VENDOR))

    def test_every_file_type(self):
        for kind in ("execute", "preload", "dylib", "dylinker", "bundle", "kext"):
            with self.subTest(kind):
                unsigned = build_thin(Slice(file_type=kind))
                self.assert_data(UNSIGNED, unsigned)
                self.assert_data(VALID, self.sign(unsigned))
        for kind in ("object", "core", "dsym"):  # plain files
            with self.subTest(kind):
                self.assert_data(UNSIGNED, build_thin(Slice(file_type=kind)))

    def test_ignores_a_sidecar(self):
        path = self.write(build_thin())
        path.with_name(path.name + ".codesignature").write_bytes(b"anything")
        self.assert_validity(UNSIGNED, path)

    def test_linker_signed_and_adhoc(self):
        for options in ({"linker_signed": True}, {"adhoc": True}):
            signed = self.sign(build_thin(), **options)
            verdict = self.assert_data(VALID, signed)
            self.assertEqual((verdict.team, verdict.certificates), (None, ()))
            self.assert_data(SIGNATURE_FAILED, flipped(signed, 0x500))

    def test_changes(self):
        signed = self.sign(build_thin(Slice(info_plist=PLIST)))
        signature, = struct.unpack_from("<8xI", signed, Image(signed).find(LC_CODE_SIGNATURE))
        for name, expected, data in (
                *((f"byte {offset:#x}", SIGNATURE_FAILED, flipped(signed, offset))
                  for offset in (8, 0x400, 0x1400, signature - 1)),
                *((f"cut at {size:#x}", SIGNATURE_INVALID, signed[:size])
                  for size in (signature, signature + 12, signature + 100)),
                ("property list", INFO_PLIST_FAILED, flipped(signed, signed.index(PLIST))),
                ("no property list", INFO_PLIST_FAILED,
                 signed.replace(b"__info_plist", b"__none_plist")),
                ("bytes after the signature", VALID, signed + b"more")):
            with self.subTest(name):
                self.assert_data(expected, data)

    def test_property_list_that_no_slot_seals(self):
        signed = self.sign(build_thin(Slice(info_plist=PLIST)), linker_signed=True)
        self.assert_data(VALID, signed)


class LoadCommandTest(MachOTestCase):
    def setUp(self):
        super().setUp()
        self.signed = self.sign(build_thin())
        self.image = Image(self.signed)
        self.signature = self.image.find(LC_CODE_SIGNATURE)

    def assert_command(self, expected, offset, form, *values):
        self.assert_data(expected, patched(self.signed, offset, form, *values))

    def test_malformed_commands(self):
        last = self.signature
        end = self.image.start + self.image.size
        first = self.image.start
        segment = self.image.segment("__LINKEDIT")
        load = self.signed.index(struct.pack("<2I", LC_ID_DYLIB, 48))
        for name, offset, value in (
                ("size of all commands", 20, 7),
                ("commands past the end of the file", 20, 0x7FFFFFFF),
                ("command without size", load + 4, 0),
                ("command past the end", last + 4, end - last + 1),
                ("largest command", last + 4, 0xFFFFFFFF),
                ("small signature command", last + 4, 15),
                ("small segment", first + 4, 71),
                ("small last segment", segment + 4, 71)):
            with self.subTest(name):
                self.assert_command(BAD_OBJECT_FORMAT, offset, "<I", value)

    def test_the_count_of_commands_is_ignored(self):
        for count in (0, 1, 0xFFFFFFFF):
            self.assert_command(SIGNATURE_FAILED, 16, "<I", count)  # only the page differs

    def test_signature_offsets(self):
        start, length = struct.unpack_from("<8x2I", self.signed, self.signature)
        for name, expected, values in (
                ("elsewhere", SIGNATURE_INVALID, (start + 16, length)),
                ("past the end", SIGNATURE_INVALID, (0xFFFFFFF0, 100)),
                ("at the end", SIGNATURE_INVALID, (len(self.signed), 0)),
                ("short", SIGNATURE_INVALID, (start, 100)),
                ("largest", SIGNATURE_INVALID, (0xFFFFFFFF, 0xFFFFFFFF)),
                # The signature is found, but its command lies in a signed page.
                ("no limit", SIGNATURE_FAILED, (start, 0))):
            with self.subTest(name):
                self.assert_command(expected, self.signature + 8, "<2I", *values)
        self.assert_command(UNSIGNED, self.signature, "<I", 0x26)

    def test_headers_that_are_cut_off(self):
        self.assert_data(UNSIGNED, self.signed[:27])  # a plain file
        for size in (28, 32, 36):
            self.assert_data(BAD_OBJECT_FORMAT, self.signed[:size])


class UniversalTest(MachOTestCase):
    def two(self, **options):
        return self.sign(build_fat([Slice("x86_64"), Slice("arm64", seed=1)]), **options)

    def test_a_change_in_any_slice_is_found(self):
        pieces = [Slice(name, seed=number) for number, name in enumerate(PROCESSORS)]
        signed = self.sign(build_fat(pieces))
        verdict = self.assert_data(VALID, signed)
        self.assertEqual(verdict.certificates[0], VENDOR)
        for start in self.starts(signed):
            with self.subTest(start):
                self.assert_data(SIGNATURE_FAILED, flipped(signed, start + 0x500))

    def test_an_unsigned_slice(self):
        for slices in ([0], [1]):
            with self.subTest(slices):
                self.assert_data(UNSIGNED, self.two(slices=slices))

    def test_slices_of_different_teams(self):
        self.two()
        for team in ("ABCDE12345", None):
            sign_macho(self.path, self.identity, slices=[0], team_identifier=team)
            self.assert_validity(SIGNATURE_INVALID, self.path)

    def test_a_malformed_slice(self):
        signed = self.two()
        first, second = self.starts(signed)
        self.assert_data(BAD_OBJECT_FORMAT, patched(signed, first + 20, "<I", 0))
        self.assert_data(BAD_OBJECT_FORMAT, patched(signed, second + 20, "<I", 0))
        self.assert_data(BAD_OBJECT_FORMAT, patched(signed, second, ">I", 0))
        self.assert_data(BAD_OBJECT_FORMAT, patched(signed, second + 12, "<I", 0))

    def test_the_first_slice_decides_whether_it_is_code(self):
        signed = self.two()
        start = self.starts(signed)[0]
        self.assert_data(UNSIGNED, patched(signed, start, ">I", 0))
        self.assert_data(UNSIGNED, patched(signed, start + 12, "<I", 1))

    def test_a_slice_outside_the_file(self):
        signed = self.two()
        for offset in (len(signed), len(signed) - 28, 0xFFFFFFFF):
            with self.subTest(offset):
                self.assert_data(BAD_OBJECT_FORMAT, patched(signed, 36, ">I", offset))

    def test_a_hidden_slice_counts(self):
        pieces = [Slice("x86_64"), Slice("arm64", seed=1)]
        signed = self.sign(build_fat(pieces, hidden_arm64=True))
        self.assert_data(VALID, signed)
        hidden = struct.unpack_from(">I", signed, 8 + 20 + 8)[0]
        self.assert_data(SIGNATURE_FAILED, flipped(signed, hidden + 0x500))
        self.sign(build_fat(pieces, hidden_arm64=True), slices=[0])
        self.assert_validity(UNSIGNED, self.path)

    def test_padding_and_what_follows_are_ignored(self):
        signed = self.two()
        for start in self.starts(signed):
            self.assert_data(VALID, flipped(signed, start - 1))
        self.assert_data(VALID, signed + b"more")

    def test_too_many_slices(self):
        first = build_thin()
        rows = b"".join(struct.pack(">5I", 7, number, 0x1000, len(first), 12)
                        for number in range(102))
        for count in (101, 0x7FFFFFFF, 0xFFFFFFFF):
            table = struct.pack(">2I", 0xCAFEBABE, count) + rows
            self.assert_created(BAD_OBJECT_FORMAT, table.ljust(0x1000, b"\0") + first)

    def test_one_slice_twice(self):
        signed = self.two()
        offset = struct.unpack_from(">I", signed, 16)[0]
        self.assert_created(INTERNAL, patched(signed, 36, ">I", offset))

    def test_the_table_must_be_readable_with_one_more_entry(self):
        first = build_thin(Slice(file_type="bundle", code_size=100))
        count = (len(first) - 28) // 20 + 2
        table = struct.pack(">2I5I", 0xCAFEBABE, min(count, 100), 7, 0, 28, len(first), 2)
        self.assert_created(BAD_OBJECT_FORMAT, table + first[:1000])

    def test_the_other_byte_order_of_the_magic(self):
        signed = self.two()
        self.assert_data(VALID, b"\xbe\xba\xfe\xca" + signed[4:])

    def test_64_bit_tables_are_plain_files(self):
        self.assert_data(UNSIGNED, b"\xca\xfe\xba\xbf" + self.two()[4:])


if __name__ == "__main__":
    unittest.main()
