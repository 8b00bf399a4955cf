"""Plain files with their signature in a file beside them."""

import pathlib
import unittest
import unittest.mock

from simulator.signing import Timestamp, blobs, cms, der, sign_file
from tests.code_signing.signed_files.kit import (
    BAD_BUNDLE_FORMAT, CHAIN, VENDOR, NOT_FOUND, SIGNATURE_FAILED, SIGNATURE_INVALID, TEAM, UNSIGNED,
    VALID, SignedFileTestCase, check_unprivileged, flipped, super_blob)

OTHER_TEAM = "ABCDE12345"


class PlainFileTestCase(SignedFileTestCase):
    def make(self, size=10000, identity=None, **options):
        self.path = self.directory / "agentsdk.dylib"
        self.path.write_bytes(bytes(number * 7 % 251 for number in range(size)))
        self.sidecar = sign_file(self.path, identity or self.identity, **options)


class ValidTest(PlainFileTestCase):
    def test_accepts_every_form(self):
        rsa = self.another_identity("rsa", key_type="rsa")
        for options in (
                *({"hashes": (name,)} for name in blobs.HASH_TYPES),
                {"hashes": ("sha1", "sha256")},
                {"hashes": ("sha384", "sha256", "sha1")},
                {"hashes": ("sha384", "sha256-truncated", "sha256", "sha1"), "agility": (1,)},
                *({"page_size": size} for size in (0, 12, 14, 20, 31)),
                *({"version": number} for number in (0x20200, 0x20300, 0x20400, 0x20500, 0x20600)),
                {"agility": ()},
                {"entitlements": {"com.apple.security.get-task-allow": True}},
                {"requirements": None},
                {"timestamp": Timestamp()}):
            for identity in (self.identity, rsa):
                with self.subTest(options=options, key=identity.profile.key_type):
                    self.make(identity=identity, **options)
                    self.assert_validity(VALID, self.path, identity)

    def test_accepts_every_size(self):
        for size in (0, 1, 4095, 4096, 4097, 262144, 262145, 700000):
            for page_size in (0, 12):
                with self.subTest(size=size, page_size=page_size):
                    self.make(size, page_size=page_size)
                    self.assert_validity(VALID, self.path)

    def test_accepts_attribute_values_in_any_order(self):
        def reversed_attribute(dotted, *values):
            return der.sequence(der.oid(dotted), der.element(0x31, *sorted(values, reverse=True)))

        with unittest.mock.patch.object(cms, "attribute", reversed_attribute):
            self.make(hashes=("sha1", "sha256"))
        self.assert_validity(VALID, self.path)

    def test_returns_chain_and_team(self):
        for team, certificates, options in (
                (TEAM, CHAIN, {}),
                (OTHER_TEAM, CHAIN, {"team_identifier": OTHER_TEAM}),
                (None, CHAIN, {"team_identifier": None}),
                (None, (), {"adhoc": True}),
                (OTHER_TEAM, (), {"adhoc": True, "team_identifier": OTHER_TEAM}),
                (None, (), {"linker_signed": True, "team_identifier": OTHER_TEAM})):
            with self.subTest(options):
                self.make(**options)
                verdict = self.assert_validity(VALID, self.path)
                self.assertEqual((verdict.team, verdict.certificates), (team, certificates))


class ContentTest(PlainFileTestCase):
    def test_finds_every_change(self):
        for page_size in (0, 12):
            self.make(page_size=page_size)
            data = self.path.read_bytes()
            changes = {
                **{f"byte {offset}": flipped(data, offset) for offset in (0, 4095, 4096, 9999)},
                **{f"{size} bytes left": data[:size] for size in (9999, 8192, 1, 0)},
                "a byte more": data + b"\0"}
            for name, changed in changes.items():
                with self.subTest(name, page_size=page_size):
                    self.path.write_bytes(changed)
                    verdict = self.assert_validity(SIGNATURE_FAILED, self.path)
                    # The signature itself still holds, so its chain is known.
                    self.assertEqual(verdict.certificates[0], VENDOR)

    def test_finds_a_wrong_hash_of_any_directory(self):
        self.make(hashes=("sha256", "sha1"), agility=())
        found = blobs.split_super_blob(self.sidecar.read_bytes())
        for slot in (0, 0x1000):
            with self.subTest(slot):
                wrong = flipped(found[slot], len(found[slot]) - 1)
                self.sidecar.write_bytes(super_blob({**found, slot: wrong}))
                self.assert_validity(SIGNATURE_FAILED, self.path)


class SidecarTest(PlainFileTestCase):
    def test_none_is_unsigned(self):
        self.make()
        self.sidecar.unlink()
        verdict = self.assert_validity(UNSIGNED, self.path)
        self.assertEqual((verdict.team, verdict.certificates), (None, ()))
        self.sidecar.symlink_to("nowhere")
        self.assert_validity(UNSIGNED, self.path)
        long_name = self.directory / ("a" * 250)  # the sidecar's name would be too long
        long_name.write_bytes(b"code")
        self.assert_validity(UNSIGNED, long_name)

    def test_may_have_bytes_after_it(self):
        self.make()
        self.sidecar.write_bytes(self.sidecar.read_bytes() + b"anything")
        self.assert_validity(VALID, self.path)

    def test_truncated_anywhere_is_invalid(self):
        self.make()
        data = self.sidecar.read_bytes()
        for size in {0, 1, 4, 8, 11, 12, 13, 28, 100, len(data) - 1}:
            with self.subTest(size):
                self.sidecar.write_bytes(data[:size])
                self.assert_validity(SIGNATURE_INVALID, self.path)

    def test_a_directory_is_invalid(self):
        self.make()
        self.sidecar.unlink()
        self.sidecar.mkdir()
        self.assert_validity(SIGNATURE_INVALID, self.path)

    def test_of_another_file_does_not_match(self):
        self.make()
        other = self.directory / "other.dylib"
        other.write_bytes(b"other code")
        sign_file(other, self.identity).replace(self.sidecar)
        self.assert_validity(SIGNATURE_FAILED, self.path)

    def test_every_changed_byte_is_found(self):
        """Those of the CMS message are changed in signature_test."""
        self.make(300, certificates=("leaf", "intermediate"))
        data = self.sidecar.read_bytes()
        cms_start = data.index(blobs.split_super_blob(data)[blobs.SLOT_CMS])
        for offset in range(0, cms_start, 3):
            self.sidecar.write_bytes(flipped(data, offset))
            self.assertNotEqual(self.check(self.path).validity, VALID, f"at {offset}")

    def test_unreadable_gives_the_error(self):
        self.make()
        self.sidecar.chmod(0)
        anchors = self.directory / "anchors.pem"
        anchors.write_bytes(self.identity.anchor_path.read_bytes())
        self.assertEqual(check_unprivileged(self.path, anchors).validity, 100013)


class CreationTest(SignedFileTestCase):
    def test_what_cannot_be_opened(self):
        (self.directory / "file").write_bytes(b"")
        (self.directory / "dangling").symlink_to("missing")
        (self.directory / "loop").symlink_to("loop")
        for name, expected in (("missing", NOT_FOUND), ("dangling", NOT_FOUND),
                               ("file/below", 100020), ("loop", 100062), ("a" * 300, 100063),
                               ("", BAD_BUNDLE_FORMAT)):
            with self.subTest(name):
                self.assertEqual(self.check(self.directory / name).created, expected)

    def test_any_other_file_is_unsigned_code(self):
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
