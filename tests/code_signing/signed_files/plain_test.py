"""Plain files with their signature in a file beside them."""

import pathlib
import unittest
import unittest.mock

from simulator.signing import blobs, cms, der, sign_file
from tests.code_signing.signed_files.kit import (
    BAD_BUNDLE_FORMAT, MAKER, NOT_FOUND, SIGNATURE_FAILED, SIGNATURE_INVALID, UNSIGNED, VALID,
    SignedFileTestCase, check_unprivileged, flipped, super_blob)


class PlainFileTestCase(SignedFileTestCase):
    def make(self, size=10000, **options):
        self.path = self.directory / "agentsdk.dylib"
        self.path.write_bytes(bytes(number * 7 % 251 for number in range(size)))
        self.sidecar = sign_file(self.path, self.identity, **options)

    def edit(self, change):
        """Replaces components by what `change` makes of the dictionary of them."""
        found = blobs.split_super_blob(self.sidecar.read_bytes())
        change(found)
        self.sidecar.write_bytes(super_blob(found))


class ValidTest(PlainFileTestCase):
    def test_tells_chain_and_team(self):
        self.make()
        verdict = self.assert_validity(VALID, self.path)
        self.assertEqual(verdict.team, "QK7ZP2M9XD")
        self.assertEqual(verdict.certificates,
                         (MAKER, "Simulated Root CA Developer ID", "Simulated Root CA"))

    def test_accepts_every_hash_type(self):
        for name in blobs.HASH_TYPES:
            with self.subTest(name):
                self.make(hashes=(name,))
                self.assert_validity(VALID, self.path)

    def test_accepts_several_directories(self):
        for hashes in (("sha1", "sha256"), ("sha384", "sha256", "sha1"),
                       ("sha256-truncated", "sha1")):
            with self.subTest(hashes):
                self.make(hashes=hashes)
                self.assert_validity(VALID, self.path)

    def test_accepts_attribute_values_in_any_order(self):
        def reversed_attribute(dotted, *values):
            return der.sequence(der.oid(dotted), der.element(0x31, *sorted(values, reverse=True)))

        with unittest.mock.patch.object(cms, "attribute", reversed_attribute):
            self.make(hashes=("sha1", "sha256"))
        self.assert_validity(VALID, self.path)

    def test_accepts_every_page_size(self):
        for page_size in (0, 12, 14, 20, 31):
            with self.subTest(page_size):
                self.make(page_size=page_size)
                self.assert_validity(VALID, self.path)

    def test_accepts_every_file_size_about_a_page(self):
        for size in (1, 4095, 4096, 4097, 262144, 262145, 700000):
            with self.subTest(size):
                self.make(size)
                self.assert_validity(VALID, self.path)

    def test_accepts_an_empty_file_as_one_page(self):
        self.make(0, page_size=0)
        self.assert_validity(VALID, self.path)

    def test_accepts_every_version_of_the_directory(self):
        for version in (0x20200, 0x20300, 0x20400, 0x20500, 0x20600):
            with self.subTest(hex(version)):
                self.make(version=version)
                self.assert_validity(VALID, self.path)

    def test_accepts_rsa_keys(self):
        identity = self.another_identity("rsa", key_type="rsa")
        path = self.directory / "library"
        path.write_bytes(b"code")
        sign_file(path, identity)
        self.assert_validity(VALID, path, identity)

    def test_accepts_sealed_entitlements(self):
        self.make(entitlements={"com.apple.security.get-task-allow": True})
        self.assert_validity(VALID, self.path)

    def test_adhoc_code_has_no_chain(self):
        self.make(adhoc=True)
        verdict = self.assert_validity(VALID, self.path)
        self.assertEqual((verdict.team, verdict.certificates), (None, ()))

    def test_adhoc_code_tells_a_sealed_team(self):
        self.make(adhoc=True, team_identifier="ABCDE12345")
        self.assertEqual(self.check(self.path).team, "ABCDE12345")

    def test_linker_signed_code_tells_nothing(self):
        self.make(linker_signed=True, team_identifier="ABCDE12345")
        verdict = self.assert_validity(VALID, self.path)
        self.assertEqual((verdict.team, verdict.certificates), (None, ()))

    def test_the_team_of_a_chain_that_is_not_apple_s_is_free(self):
        self.make(team_identifier="ABCDE12345")
        self.assertEqual(self.assert_validity(VALID, self.path).team, "ABCDE12345")

    def test_team_may_be_left_out(self):
        self.make(team_identifier=None)
        verdict = self.assert_validity(VALID, self.path)
        self.assertIsNone(verdict.team)
        self.assertEqual(len(verdict.certificates), 3)


class ContentTest(PlainFileTestCase):
    def assert_found(self, data):
        self.path.write_bytes(data)
        verdict = self.assert_validity(SIGNATURE_FAILED, self.path)
        # The signature itself still holds, so its chain is told.
        self.assertEqual(verdict.certificates[0], MAKER)

    def test_finds_a_changed_byte_in_each_page(self):
        for page_size in (0, 12):
            self.make(page_size=page_size)
            data = self.path.read_bytes()
            for offset in (0, 4095, 4096, 9999):
                with self.subTest(page_size=page_size, offset=offset):
                    self.assert_found(flipped(data, offset))

    def test_finds_appended_bytes(self):
        self.make()
        self.assert_found(self.path.read_bytes() + b"\0")

    def test_finds_missing_bytes(self):
        self.make()
        data = self.path.read_bytes()
        for size in (9999, 8192, 1, 0):
            with self.subTest(size):
                self.assert_found(data[:size])

    def test_finds_a_wrong_hash_of_any_directory(self):
        self.make(hashes=("sha256", "sha1"), agility=())
        for slot in (0, 0x1000):
            with self.subTest(slot):
                signed = self.sidecar.read_bytes()
                self.edit(lambda found, slot=slot: found.update(
                    {slot: flipped(found[slot], len(found[slot]) - 1)}))
                self.assert_validity(SIGNATURE_FAILED, self.path)
                self.sidecar.write_bytes(signed)


class SidecarTest(PlainFileTestCase):
    def test_none_is_unsigned(self):
        self.make()
        self.sidecar.unlink()
        verdict = self.assert_validity(UNSIGNED, self.path)
        self.assertEqual((verdict.team, verdict.certificates), (None, ()))

    def test_a_dangling_link_is_none(self):
        self.make()
        self.sidecar.unlink()
        self.sidecar.symlink_to("nowhere")
        self.assert_validity(UNSIGNED, self.path)

    def test_a_name_too_long_for_one_is_unsigned(self):
        path = self.directory / ("a" * 250)
        path.write_bytes(b"code")
        self.assert_validity(UNSIGNED, path)

    def test_may_have_bytes_after_it(self):
        self.make()
        self.sidecar.write_bytes(self.sidecar.read_bytes() + b"anything")
        self.assert_validity(VALID, self.path)

    def test_cut_off_anywhere_is_no_signature(self):
        self.make()
        data = self.sidecar.read_bytes()
        for size in {0, 1, 4, 8, 11, 12, 13, 28, 100, len(data) - 1}:
            with self.subTest(size):
                self.sidecar.write_bytes(data[:size])
                self.assert_validity(SIGNATURE_INVALID, self.path)

    def test_a_directory_is_no_signature(self):
        self.make()
        self.sidecar.unlink()
        self.sidecar.mkdir()
        self.assert_validity(SIGNATURE_INVALID, self.path)

    def test_of_another_file_does_not_fit(self):
        self.make()
        other = self.directory / "other.dylib"
        other.write_bytes(b"other code")
        sign_file(other, self.identity).replace(self.sidecar)
        self.assert_validity(SIGNATURE_FAILED, self.path)

    def test_every_changed_byte_is_found(self):
        """Except in the bytes that no signature covers and the verdict does not rest on."""
        self.make(300, certificates=("leaf", "intermediate"))
        data = self.sidecar.read_bytes()
        found = blobs.split_super_blob(data)
        cms_start = data.index(found[blobs.SLOT_CMS])
        for offset in range(0, cms_start, 3):
            self.sidecar.write_bytes(flipped(data, offset))
            self.assertNotEqual(self.check(self.path).validity, VALID, f"at {offset}")

    def test_that_cannot_be_read_gives_the_error(self):
        self.make()
        self.sidecar.chmod(0)
        anchors = self.directory / "anchors.pem"
        anchors.write_bytes(self.identity.anchor_path.read_bytes())
        self.assertEqual(check_unprivileged(self.path, anchors).validity, 100013)


class CreationTest(SignedFileTestCase):
    def assert_created(self, expected, path):
        self.assertEqual(self.check(path).created, expected)

    def test_a_missing_path_is_not_found(self):
        self.assert_created(NOT_FOUND, self.directory / "missing")

    def test_a_dangling_link_is_not_found(self):
        (self.directory / "link").symlink_to("missing")
        self.assert_created(NOT_FOUND, self.directory / "link")

    def test_other_errors_have_the_numbers_of_macos(self):
        (self.directory / "file").write_bytes(b"")
        (self.directory / "loop").symlink_to("loop")
        self.assert_created(100020, self.directory / "file" / "below")
        self.assert_created(100062, self.directory / "loop")
        self.assert_created(100063, self.directory / ("a" * 300))

    def test_an_empty_directory_is_no_bundle(self):
        self.assert_created(BAD_BUNDLE_FORMAT, self.directory)

    def test_everything_else_is_some_code(self):
        for contents in (b"", b"#!/bin/sh\n", b"\xca\xfe\xba\xbe\0\0\0\x34" + bytes(100),
                         b"\xca\xfe\xba\xbf" + bytes(100), pathlib.Path("/bin/true").read_bytes()):
            path = self.directory / "file"
            path.write_bytes(contents)
            self.assert_validity(UNSIGNED, path)

    def test_a_file_that_cannot_be_read(self):
        path = self.directory / "file"
        path.write_bytes(b"code")
        path.chmod(0)
        self.assertEqual(check_unprivileged(path, "/nowhere").created, 100013)


if __name__ == "__main__":
    unittest.main()
