"""What a signature is made of: blobs, CodeDirectories, special slots, the CMS message."""

import plistlib
import struct
import unittest
import unittest.mock

from simulator.signing import blobs, cms, der, sign_file
from tests.code_signing.signed_files.kit import (
    DECODE, VENDOR, SIGNATURE_FAILED, SIGNATURE_INVALID, SIGNATURE_UNSUPPORTED, TEAM,
    UNKNOWN_FORMAT, UNSIGNED, UNSUPPORTED_DIGEST, VALID, SignedFileTestCase, flipped, patched,
    super_blob)

# Offsets of a CodeDirectory's fields.
VERSION, FLAGS, HASHES, IDENTIFIER, SPECIAL_COUNT, PAGE_COUNT, LIMIT = range(8, 36, 4)
HASH_SIZE, HASH_TYPE, PLATFORM, PAGE_SIZE = range(36, 40)
SCATTER, TEAM_OFFSET = 44, 48
LIMIT_64 = 56
PRE_ENCRYPTION = 92


class SignatureTestCase(SignedFileTestCase):
    def make(self, **options):
        self.path = self.directory / "library"
        self.path.write_bytes(b"code" * 3000)
        self.sidecar = sign_file(self.path, self.identity, **options)
        self.found = blobs.split_super_blob(self.sidecar.read_bytes())
        return self.found

    def assert_components(self, expected, found):
        self.sidecar.write_bytes(super_blob(found))
        return self.assert_validity(expected, self.path)

    def assert_changed(self, expected, slot, blob):
        return self.assert_components(expected, {**self.found, slot: blob})

    def assert_message(self, expected, message):
        return self.assert_changed(expected, 0x10000, blobs.blob(blobs.WRAPPER, message))

    def message(self, *attributes, content=None, **options):
        """Makes a message about the CodeDirectory, or about other content."""
        certificates = self.identity.certificates
        return cms.signed_data(
            self.found[0] if content is None else content, certificates["leaf"],
            [certificates["leaf"], certificates["intermediate"]], list(attributes),
            key_type=self.identity.profile.key_type, **options)


class BlobTest(SignatureTestCase):
    def assert_bytes(self, expected, data):
        self.sidecar.write_bytes(data)
        self.assert_validity(expected, self.path)

    def test_lengths_and_offsets_must_lie_inside(self):
        self.make()
        data = self.sidecar.read_bytes()
        count, inner = struct.unpack_from(">8xI4xI", data)
        for name, changed in {
                "magic": patched(data, 0, ">I", 0xFADE0CC1),
                "length below the header": patched(data, 4, ">I", 11),
                "length past the end": patched(data, 4, ">I", len(data) + 1),
                "largest length": patched(data, 4, ">I", 0xFFFFFFFF),
                "length before a blob's end": patched(data, 4, ">I", len(data) - 1),
                "more entries than bytes": patched(data, 8, ">I", len(data)),
                "most entries": patched(data, 8, ">I", 0xFFFFFFFF),
                "offset in the index": patched(data, 16, ">I", 12 + 8 * count - 1),
                "offset at the end": patched(data, 16, ">I", len(data) - 7),
                "largest offset": patched(data, 16, ">I", 0xFFFFFFFF),
                "inner length past the end":
                    patched(data, inner + 4, ">I", len(data) - inner + 1),
                "largest inner length": patched(data, inner + 4, ">I", 0xFFFFFFFF),
        }.items():
            with self.subTest(name):
                self.assert_bytes(SIGNATURE_INVALID, changed)

    def test_an_entry_without_offset_is_absent(self):
        self.make()
        self.assert_bytes(UNSIGNED, patched(self.sidecar.read_bytes(), 16, ">I", 0))

    def test_the_first_entry_of_a_slot_counts(self):
        found = self.make()
        bodies = [(0, found[0]), (2, found[2]), (0x10000, found[0x10000]), (0, b"\0" * 96)]
        self.assert_bytes(VALID, self.with_index(bodies))
        self.assert_bytes(SIGNATURE_FAILED, self.with_index(bodies[3:] + bodies[:3]))

    def test_no_components_mean_unsigned(self):
        self.make()
        self.assert_components(UNSIGNED, {})

    @staticmethod
    def with_index(bodies):
        offset = 12 + 8 * len(bodies)
        index = body = b""
        for slot, blob in bodies:
            if blob[:4] == bytes(4):  # a CodeDirectory of zeros needs a length to be a blob at all
                blob = struct.pack(">II", 0, len(blob)) + blob[8:]
            index += struct.pack(">II", slot, offset + len(body))
            body += blob
        return struct.pack(">III", 0xFADE0CC0, offset + len(body), len(bodies)) + index + body


class CodeDirectoryTest(SignatureTestCase):
    def test_defects(self):
        directory = self.make()[0]
        count, = struct.unpack_from(">I", directory, PAGE_COUNT)
        pages, = struct.unpack_from(">I", directory, HASHES)
        huge = 0xFFFFFFFF
        for name, expected, offset, form, value in (
                ("magic", SIGNATURE_FAILED, 0, ">I", 0xFADE0C01),
                ("another length than the component's", SIGNATURE_FAILED, 4, ">I", len(directory) - 1),
                ("too old", SIGNATURE_UNSUPPORTED, VERSION, ">I", 0x20000),
                ("too new", SIGNATURE_UNSUPPORTED, VERSION, ">I", 0x2F001),
                ("identifier outside", SIGNATURE_FAILED, IDENTIFIER, ">I", huge),
                ("team outside", SIGNATURE_FAILED, TEAM_OFFSET, ">I", len(directory)),
                ("hashes outside", SIGNATURE_FAILED, HASHES, ">I", pages + 1),
                ("hashes far outside the directory", SIGNATURE_FAILED, HASHES, ">I", huge),
                ("special hashes outside", SIGNATURE_FAILED, SPECIAL_COUNT, ">I", 1000),
                ("most special hashes", SIGNATURE_FAILED, SPECIAL_COUNT, ">I", huge),
                ("a page more", SIGNATURE_FAILED, PAGE_COUNT, ">I", count + 1),
                ("most pages", SIGNATURE_FAILED, PAGE_COUNT, ">I", huge),
                ("code limit of zero", SIGNATURE_FAILED, LIMIT, ">I", 0),
                ("limit past the pages", SIGNATURE_FAILED, LIMIT, ">I", count * 4096 + 1),
                ("long limit", SIGNATURE_FAILED, LIMIT_64, ">Q", 0xFFFFFFFFFFFFFFFF),
                ("page size", SIGNATURE_FAILED, PAGE_SIZE, "B", 13),
                ("page size too large for a shift", SIGNATURE_FAILED, PAGE_SIZE, "B", 255),
                ("scatter list outside", SIGNATURE_FAILED, SCATTER, ">I", len(directory) - 23),
                ("pre-encryption hashes outside", SIGNATURE_FAILED, PRE_ENCRYPTION, ">I",
                 len(directory) - 1),
                ("hash type", UNSUPPORTED_DIGEST, HASH_TYPE, "B", 5),
                ("hash size", SIGNATURE_FAILED, HASH_SIZE, "B", 48)):
            with self.subTest(name):
                self.assert_changed(expected, 0, patched(directory, offset, form, value))
        endless = patched(directory[:-1] + b"x", IDENTIFIER, ">I", len(directory) - 1)
        self.assert_changed(SIGNATURE_FAILED, 0, endless)

    def test_the_smallest_size_counts_for_every_version(self):
        directory = self.make(version=0x20200, requirements=None)[0]
        self.assert_changed(SIGNATURE_FAILED, 0,
                            struct.pack(">II", 0xFADE0C02, 95) + directory[8:95])

    def test_defects_come_after_a_message_that_is_missing_or_garbage(self):
        self.make()
        broken = patched(self.found[0], VERSION, ">I", 0x20000)
        self.assert_components(UNSIGNED, {0: broken})
        message = self.found[0x10000][8:]
        for expected, body in ((UNKNOWN_FORMAT, b"garbage, no message"),
                               (SIGNATURE_UNSUPPORTED, b""),
                               (SIGNATURE_UNSUPPORTED, message[:100]),
                               (SIGNATURE_UNSUPPORTED, message)):
            with self.subTest(body[:10]):
                self.assert_components(expected, {
                    0: broken, 0x10000: blobs.blob(blobs.WRAPPER, body)})

    def test_one_hash_type_twice(self):
        self.make(hashes=("sha256", "sha256"))
        self.assert_validity(SIGNATURE_INVALID, self.path)

    def test_alternates_end_at_the_first_that_is_missing(self):
        found = self.make(hashes=("sha256", "sha1"))
        second = found.pop(0x1000)
        found[0x1001] = second[:20] + b"defective" + second[29:]
        self.assert_components(SIGNATURE_FAILED, found)  # one directory fewer than the attributes list
        self.make(hashes=("sha256",))
        self.assert_changed(VALID, 0x1001, second[:20] + b"defective" + second[29:])

    def test_special_slots_are_those_of_the_best_directory(self):
        for slot, length, expected in ((0x1000, 32, SIGNATURE_FAILED), (0, 20, VALID)):
            self.make(hashes=("sha1", "sha256"), adhoc=True)
            directory = bytearray(self.found[slot])
            start, = struct.unpack_from(">I", directory, HASHES)
            directory[start - 2 * length] ^= 1
            self.assert_changed(expected, slot, bytes(directory))

    def test_a_stripped_signature_with_the_adhoc_flag_has_no_chain(self):
        self.make()
        flags, = struct.unpack_from(">I", self.found[0], FLAGS)
        self.found[0] = patched(self.found[0], FLAGS, ">I", flags | 2)
        verdict = self.assert_components(VALID, self.found)
        self.assertEqual(verdict.certificates, ())


class SpecialSlotTest(SignatureTestCase):
    def test_changed_and_missing_components(self):
        self.make(entitlements={"key": True})
        for slot in (2, 5, 7):
            with self.subTest(slot):
                found = dict(self.found)
                blob = found.pop(slot)
                self.assert_changed(SIGNATURE_FAILED, slot, flipped(blob, len(blob) - 1))
                verdict = self.assert_components(SIGNATURE_FAILED, found)
                self.assertEqual(verdict.certificates[0], VENDOR)

    def test_what_no_slot_seals_is_ignored(self):
        self.make()
        for slot in (5, 7, 8, 11, 0x20000):
            with self.subTest(slot):
                self.assert_changed(VALID, slot, blobs.blob(0xFADE7171, b"anything"))

    def test_raw_components_must_be_wrapped(self):
        self.make()
        message = self.found[0x10000]
        self.assert_changed(SIGNATURE_INVALID, 0x10000, patched(message, 0, ">I", 0xFADE0B02))

    def test_top_directory_lists_all_components(self):
        listed = struct.pack(">4I", 0, 2, 4, 0x10000)
        for expected, body in ((VALID, listed), (SIGNATURE_FAILED, listed[:-4]),
                               (SIGNATURE_FAILED, listed[::-1])):
            with self.subTest(body):
                self.make_with_top_directory(body)
                self.assert_validity(expected, self.path)

    def make_with_top_directory(self, body):
        """The signer has no such component: signs a directory that was made by hand."""
        self.make()
        code = self.path.read_bytes()
        directory = blobs.CodeDirectory(
            identifier="library", team_identifier=None, hash_name="sha256", page_size=12, flags=0,
            version=0x20500, special={2: self.found[2], 4: body}).encode(code)
        self.sidecar.write_bytes(super_blob({
            0: directory, 2: self.found[2], 4: blobs.blob(blobs.WRAPPER, body),
            0x10000: blobs.blob(blobs.WRAPPER, self.message(content=directory))}))


class MessageTest(SignatureTestCase):
    def setUp(self):
        super().setUp()
        self.make()

    def test_none_is_unsigned(self):
        del self.found[0x10000]
        verdict = self.assert_components(UNSIGNED, self.found)
        self.assertEqual((verdict.team, verdict.certificates), (None, ()))

    def test_unreadable(self):
        message = self.found[0x10000][8:]
        for name, body in {"empty": b"", "cut off": message[:-1], "cut off early": message[:20],
                           "garbage": b"\x80garbage", "a number": der.integer(1),
                           "zeros": bytes(50), "nested": b"\x30\x80" * 5000}.items():
            with self.subTest(name):
                verdict = self.assert_message(UNKNOWN_FORMAT, body)
                self.assertEqual((verdict.team, verdict.certificates), (TEAM, ()))

    def test_bytes_after_it_are_ignored(self):
        self.assert_message(VALID, self.found[0x10000][8:] + b"more")

    def test_other_content_types(self):
        data = der.sequence(der.oid(cms.ID_DATA), der.explicit(0, der.octet_string(b"data")))
        self.assert_message(SIGNATURE_FAILED, data)
        without_signer = der.sequence(
            der.oid(cms.ID_SIGNED_DATA), der.explicit(0, der.sequence(
                der.integer(1), der.set_of(cms.SHA256), der.sequence(der.oid(cms.ID_DATA)),
                der.set_of())))
        self.assert_message(SIGNATURE_FAILED, without_signer)

    def test_only_the_directory_is_its_content(self):
        self.assert_message(VALID, self.message())
        self.assert_message(VALID, self.message(attached=True))
        self.assert_message(SIGNATURE_FAILED, self.message(content=b"other"))
        self.assert_message(SIGNATURE_FAILED, self.message(content=b"other", attached=True))

    def test_announced_digests(self):
        for name, expected, count in (("none", SIGNATURE_FAILED, 0), ("many", VALID, 3000),
                                      ("a message that is too large", UNKNOWN_FORMAT, 5000)):
            with self.subTest(name):
                self.assert_message(expected, self.message().replace(
                    der.set_of(cms.SHA256), der.set_of(*[cms.SHA256] * count), 1))

    def test_content_type_must_match_the_attribute(self):
        message = self.message()
        kind = der.sequence(der.oid(cms.ID_DATA))
        self.assertEqual(message.count(kind), 1)
        self.assert_message(SIGNATURE_FAILED, message.replace(
            kind, der.sequence(der.oid("1.2.840.113549.1.7.6"))))

    def test_changes(self):
        message = self.found[0x10000][8:]
        for name, offset in {
                "digest": message.index(der.oid(cms.ATTRIBUTE_MESSAGE_DIGEST)) + 20,
                "time": message.index(der.oid(cms.ATTRIBUTE_SIGNING_TIME)) + 20,
                "signature": len(message) - 20}.items():
            with self.subTest(name):
                self.assert_message(SIGNATURE_FAILED, flipped(message, offset))

    def test_named_algorithm_must_match_the_key(self):
        rsa = self.another_identity("rsa", key_type="rsa")
        with_rsa, with_ec = bytes.fromhex("2a864886f70d0101"), bytes.fromhex("2a8648ce3d0403")
        for identity, stem, last, expected in (  # with the last octet of the identifier
                (rsa, with_rsa, 1, VALID),  # RSA
                (rsa, with_rsa, 11, VALID),  # RSA with SHA-256
                (rsa, with_rsa, 5, SIGNATURE_FAILED),  # RSA with SHA-1
                (rsa, with_rsa, 12, SIGNATURE_FAILED),  # RSA with SHA-384
                (rsa, with_rsa, 99, SIGNATURE_FAILED),  # unknown
                (self.identity, with_ec, 2, VALID),  # ECDSA with SHA-256
                (self.identity, with_ec, 3, SIGNATURE_FAILED),  # ECDSA with SHA-384
                (self.identity, with_ec, 99, SIGNATURE_FAILED)):  # unknown
            with self.subTest(stem=stem.hex(), last=last):
                data = sign_file(self.path, identity).read_bytes()
                self.sidecar.write_bytes(patched(data, data.rindex(stem) + len(stem), "B", last))
                self.assert_validity(expected, self.path, identity)

    def test_unsigned_attributes_need_a_time_stamp(self):
        with unittest.mock.patch.object(cms, "ATTRIBUTE_TIMESTAMP_TOKEN", "1.2.840.113549.1.9.16.2.15"):
            message = self.message(timestamp=lambda _: der.null())
        self.assert_message(SIGNATURE_FAILED, message)
        for token in (der.null(), der.sequence(der.integer(1)), self.message(attached=True)):
            self.assert_message(SIGNATURE_FAILED, self.message(timestamp=lambda _, t=token: t))

    def test_signing_time_may_be_nonsense(self):
        for value in (der.integer(5), der.element(0x17, b"no time at all")):
            self.assert_message(VALID, self.message(
                cms.attribute(cms.ATTRIBUTE_SIGNING_TIME, value)))


class HashAgilityTest(SignatureTestCase):
    def setUp(self):
        super().setUp()
        self.make(hashes=("sha1", "sha256"))
        self.directories = [("sha1", self.found[0]), ("sha256", self.found[0x1000])]

    def assert_attributes(self, expected, *attributes):
        self.assert_message(expected, self.message(*attributes))

    @staticmethod
    def second(*pairs):
        return cms.attribute(cms.ATTRIBUTE_HASH_AGILITY_2, *(
            der.sequence(der.oid(dotted), der.octet_string(value)) for dotted, value in pairs))

    def pairs(self):
        return [(kind.dotted, full) for kind, full in cms.directory_hashes(self.directories)]

    def test_without_it_an_alternate_is_not_covered(self):
        self.assert_attributes(SIGNATURE_FAILED)

    def test_first_version_lists_the_hashes_in_order(self):
        self.assert_attributes(VALID, cms.hash_agility(self.directories))
        self.assert_attributes(SIGNATURE_FAILED, cms.hash_agility(self.directories[:1]))

    def test_first_version_must_be_a_list_of_hashes(self):
        for value in (der.integer(1), der.octet_string(b"no list")):
            self.assert_attributes(SIGNATURE_FAILED, cms.attribute(
                cms.ATTRIBUTE_HASH_AGILITY, value))
        for content in ({"cdhashes": 5}, {"other": []}, {"cdhashes": ["text", "text"]}, []):
            value = der.octet_string(plistlib.dumps(content))
            self.assert_attributes(SIGNATURE_FAILED, cms.attribute(
                cms.ATTRIBUTE_HASH_AGILITY, value))
            self.assert_attributes(VALID, self.second(*self.pairs()), cms.attribute(
                cms.ATTRIBUTE_HASH_AGILITY, value, der.integer(1)))

    def test_second_version_lists_every_hash(self):
        self.assert_attributes(VALID, self.second(*self.pairs()))
        self.assert_attributes(VALID, self.second(*reversed(self.pairs())))
        sha1, sha256 = self.pairs()
        for name, pairs in {
                "one less": [sha256],
                "one more": [sha1, sha256, ("2.16.840.1.101.3.4.2.2", bytes(48))],
                "a wrong one": [sha1, (sha256[0], bytes(32))],
                "a cut one": [sha1, (sha256[0], sha256[1][:20])],
                "another digest": [sha1, ("2.16.840.1.101.3.4.2.2", sha256[1])],
        }.items():
            with self.subTest(name):
                self.assert_attributes(SIGNATURE_FAILED, self.second(*pairs))

    def test_second_version_must_be_readable(self):
        sha1, sha256 = self.pairs()
        self.assert_attributes(DECODE, self.second(sha1, sha1, sha256))
        for value in (der.integer(1), der.sequence(der.integer(1), der.octet_string(b"")),
                      der.sequence(der.oid(sha1[0])),
                      der.sequence(der.oid(sha1[0]), der.integer(1))):
            self.assert_attributes(DECODE, cms.attribute(cms.ATTRIBUTE_HASH_AGILITY_2, value))

    def test_a_repeated_attribute_counts_as_absent(self):
        wrong = self.second(("2.16.840.1.101.3.4.2.2", bytes(48)))
        self.assert_attributes(VALID, wrong, wrong, cms.hash_agility(self.directories))
        self.assert_attributes(SIGNATURE_FAILED, wrong, cms.hash_agility(self.directories))

    def test_a_changed_alternate_is_found(self):
        changed = self.found[0x1000].replace(b"library\0", b"Library\0")
        self.assert_changed(SIGNATURE_FAILED, 0x1000, changed)

    def test_two_directories_by_one_algorithm(self):
        self.make(hashes=("sha256", "sha256-truncated"))
        self.assert_validity(DECODE, self.path)


if __name__ == "__main__":
    unittest.main()
