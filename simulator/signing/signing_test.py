"""Tests of identities, of plain files' signatures and of the command line."""

import contextlib
import datetime
import hashlib
import io
import pathlib
import plistlib
import struct
import subprocess
import unittest

from simulator.signing import VARIANTS, Identity, SigningError, Timestamp, blobs, macho, sign_file
from simulator.signing.__main__ import main
from simulator.signing.layout import build_bundle
from simulator.signing.test_kit import SigningTestCase, digest, read_directory, read_super_blob

class IdentityTest(SigningTestCase):
    def certificate_text(self, identity, name="leaf"):
        return subprocess.run(
            ["openssl", "x509", "-noout", "-text", "-in", identity.directory / f"{name}.pem",
             "-nameopt", "RFC2253"], capture_output=True, check=True).stdout.decode()

    def test_leaf_has_the_form_of_a_developer_id(self):
        text = self.certificate_text(self.identity)
        self.assertIn("Subject: C=US,O=Corvane SRL,OU=QK7ZP2M9XD,CN=Developer ID Application: "
                      "Corvane SRL (QK7ZP2M9XD),UID=QK7ZP2M9XD", text)
        self.assertRegex(text, r"Extended Key Usage: critical\s+Code Signing")
        self.assertRegex(text, r"Key Usage: critical\s+Digital Signature")
        self.assertRegex(text, r"1\.2\.840\.113635\.100\.6\.1\.13: critical")

    def test_intermediate_is_an_authority_with_the_developer_id_marker(self):
        text = self.certificate_text(self.identity, "intermediate")
        self.assertRegex(text, r"Basic Constraints: critical\s+CA:TRUE")
        self.assertRegex(text, r"Key Usage: critical\s+Certificate Sign")
        self.assertRegex(text, r"1\.2\.840\.113635\.100\.6\.2\.6: \n")

    def test_chain_verifies_to_its_anchor(self):
        directory = self.identity.directory
        done = subprocess.run(
            ["openssl", "verify", "-x509_strict", "-ignore_critical",
             "-CAfile", self.identity.anchor_path, "-untrusted", directory / "intermediate.pem",
             directory / "leaf.pem", directory / "timestamp.pem"], capture_output=True)
        self.assertEqual(done.returncode, 0, done.stderr)

    def test_second_creation_reuses_the_first(self):
        again = Identity.create(self.identity.directory)
        self.assertEqual(again.certificates, self.identity.certificates)

    def test_another_profile_in_the_directory_is_refused(self):
        with self.assertRaisesRegex(SigningError, "another profile"):
            Identity.create(self.identity.directory, team_identifier="ABCDE12345")

    def test_broken_directory_is_refused(self):
        (self.directory / "identity.json").write_text("{")
        with self.assertRaisesRegex(SigningError, "holds no usable identity"):
            Identity.create(self.directory)

    def test_unwritable_place_is_refused(self):
        (self.directory / "file").touch()
        with self.assertRaisesRegex(SigningError, "cannot make an identity"):
            Identity.create(self.directory / "file" / "identity")

    def test_variants_differ_where_they_say(self):
        absent, present = self.assertNotIn, self.assertIn
        expectations = {
            "no-team": ((absent, "OU=QK7ZP2M9XD"), (absent, "UID=")),
            "no-common-name": ((absent, "CN=Developer ID"), (present, "OU=QK7ZP2M9XD")),
            "wrong-extended-key-usage": ((absent, "Code Signing"), (present, "TLS Web Server")),
            "no-extended-key-usage": ((absent, "Extended Key Usage"),),
            "wrong-key-usage": ((absent, "Digital Signature"), (present, "Key Encipherment")),
            "no-key-usage": ((absent, "X509v3 Key Usage"),),
        }
        for variant, checks in expectations.items():
            identity = Identity.create(self.directory / variant, **VARIANTS[variant])
            text = self.certificate_text(identity)
            subject = text[text.index("Subject:"):]
            for check, expected in checks:
                with self.subTest(variant=variant, expected=expected):
                    check(expected, subject)

    def test_validity_variants(self):
        now = datetime.datetime.now(datetime.timezone.utc)
        for variant, moment in (("expired", now - datetime.timedelta(days=400)),
                                ("not-yet-valid", now + datetime.timedelta(days=400))):
            identity = Identity.create(self.directory / variant, **VARIANTS[variant])
            base = ["openssl", "verify", "-ignore_critical", "-CAfile", identity.anchor_path,
                    "-untrusted", identity.directory / "intermediate.pem"]
            leaf = identity.directory / "leaf.pem"
            at_moment = [*base, "-attime", str(int(moment.timestamp())), leaf]
            with self.subTest(variant=variant):
                now_status = subprocess.run([*base, leaf], capture_output=True).returncode
                then_status = subprocess.run(at_moment, capture_output=True).returncode
                self.assertEqual((now_status, then_status), (2, 0))

    def test_issuer_without_authority(self):
        identity = Identity.create(self.directory / "i", **VARIANTS["issuer-no-authority"])
        self.assertNotIn("CA:TRUE", self.certificate_text(identity, "intermediate"))


class PlainFileTest(SigningTestCase):
    def signed(self, path, identity=None, **options):
        sidecar = sign_file(path, identity or self.identity, **options)
        self.assertEqual(sidecar, pathlib.Path(f"{path}.codesignature"))
        return read_super_blob(sidecar.read_bytes())

    def test_default_signature(self):
        path = self.make_file()
        found = self.signed(path)
        self.assertEqual(sorted(found), [0, 2, 0x10000])
        directory = read_directory(found[0])
        self.assertEqual(
            (directory.version, directory.flags, directory.identifier, directory.team,
             directory.limit, directory.hash_type, directory.page_size),
            (0x20500, 0, "agentsdk.dylib", "QK7ZP2M9XD", 10000, 2, 12))
        self.assertEqual(len(directory.pages), 3)
        self.assert_pages(directory, path.read_bytes())
        self.assertEqual(read_super_blob(found[2], 0xFADE0C01), {})
        self.assertEqual(directory.special, {2: digest(2, found[2])})
        self.assertEqual(struct.unpack_from(">I", found[0x10000])[0], 0xFADE0B01)

    def test_message_verifies_and_tampering_is_found(self):
        for key_type in ("ec", "rsa"):
            identity = Identity.create(self.shared / key_type, key_type=key_type)
            found = self.signed(self.make_file(), identity)
            message, content = found[0x10000][8:], found[0]
            with self.subTest(key_type=key_type):
                self.assertTrue(self.cms_verifies(message, content, identity))
                for offset in (12, 60, len(content) - 1):
                    changed = bytearray(content)
                    changed[offset] ^= 1
                    self.assertFalse(self.cms_verifies(message, changed, identity))
                changed = message[:-40] + bytes([message[-40] ^ 1]) + message[-39:]
                self.assertFalse(self.cms_verifies(changed, content, identity))

    def test_foreign_root_is_not_accepted(self):
        other = Identity.create(self.directory / "other")
        found = self.signed(self.make_file())
        self.assertFalse(self.cms_verifies(found[0x10000][8:], found[0], other))

    def test_signed_attributes(self):
        when = datetime.datetime(2024, 2, 29, 12, 30, 15, tzinfo=datetime.timezone.utc)
        found = self.signed(self.make_file(), hashes=("sha1", "sha384", "sha256"),
                            signing_time=when)
        message = found[0x10000][8:]
        text = self.cms_text(message)
        self.assertIn("Feb 29 12:30:15 2024 GMT", text)
        for name in ("contentType", "messageDigest", "1.2.840.113635.100.9.1",
                     "1.2.840.113635.100.9.2"):
            self.assertIn(name, text)
        full = {1: hashlib.sha1(found[0]).digest(),
                2: hashlib.sha256(found[0x1001]).digest(),
                4: hashlib.sha384(found[0x1000]).digest()}
        start = message.index(b"<?xml")
        plist = plistlib.loads(message[start:message.index(b"</plist>") + len(b"</plist>")])
        self.assertEqual(plist, {"cdhashes": [full[kind][:20] for kind in (1, 2, 4)]})
        for hash_bytes in full.values():
            self.assertIn(bytes([4, len(hash_bytes)]) + hash_bytes, message)

    def test_agility_attributes_can_be_left_out(self):
        text = self.cms_text(self.signed(self.make_file(), agility=(2,))[0x10000][8:])
        self.assertNotIn("1.2.840.113635.100.9.1", text)
        self.assertIn("1.2.840.113635.100.9.2", text)

    def test_every_hash_type_and_page_size(self):
        path = self.make_file(9000)
        for number, name in enumerate(("sha1", "sha256", "sha256-truncated", "sha384"), 1):
            for page_size in (0, 12, 14):
                with self.subTest(name=name, page_size=page_size):
                    found = self.signed(path, hashes=(name,), page_size=page_size)
                    directory = read_directory(found[0])
                    self.assertEqual((directory.hash_type, directory.page_size),
                                     (number, page_size))
                    self.assert_pages(directory, path.read_bytes())
                    self.assertTrue(self.cms_verifies(found[0x10000][8:], found[0]))

    def test_alternate_directories_follow_the_first(self):
        found = self.signed(self.make_file(), hashes=("sha1", "sha256", "sha384"))
        kinds = [read_directory(found[slot]).hash_type for slot in (0, 0x1000, 0x1001)]
        self.assertEqual(kinds, [1, 2, 4])
        self.assertTrue(self.cms_verifies(found[0x10000][8:], found[0]))

    def test_every_directory_version(self):
        path = self.make_file(100)
        for version in (0x20001, 0x20100, 0x20200, 0x20300, 0x20400, 0x20500, 0x20600):
            with self.subTest(version=hex(version)):
                directory = read_directory(
                    self.signed(path, version=version, team_identifier=None)[0])
                self.assertEqual((directory.version, directory.identifier),
                                 (version, "agentsdk.dylib"))

    def test_old_directories_cannot_name_a_team(self):
        with self.assertRaisesRegex(SigningError, "no team identifier"):
            self.signed(self.make_file(), version=0x20100)

    def test_file_sizes_at_the_edges(self):
        for size, pages in ((0, 0), (1, 1), (4095, 1), (4096, 1), (4097, 2)):
            with self.subTest(size=size):
                directory = read_directory(self.signed(self.make_file(size))[0])
                self.assertEqual((directory.limit, len(directory.pages), directory.page_size),
                                 (size, pages, 12 if size else 0))

    def test_entitlements_are_sealed_twice(self):
        values = {"com.example.flag": True, "com.example.list": ["a", 300, {"b": False}]}
        found = self.signed(self.make_file(), entitlements=values)
        self.assertEqual(plistlib.loads(found[5][8:]), values)
        self.assertEqual(found[7][:4], bytes.fromhex("fade7172"))
        parsed = subprocess.run(["openssl", "asn1parse", "-inform", "DER"], input=found[7][8:],
                                capture_output=True, check=True).stdout.decode()
        self.assertIn("com.example.list", parsed)
        special = read_directory(found[0]).special
        self.assertEqual(special, {slot: digest(2, found[slot]) for slot in (2, 5, 7)})

    def test_adhoc(self):
        found = self.signed(self.make_file(), adhoc=True)
        directory = read_directory(found[0])
        self.assertEqual((directory.flags, directory.team), (2, None))
        self.assertEqual(found[0x10000], bytes.fromhex("fade0b0100000008"))

    def test_linker_signed(self):
        found = self.signed(self.make_file(), linker_signed=True)
        self.assertEqual(list(found), [0])
        directory = read_directory(found[0])
        self.assertEqual((directory.version, directory.flags, directory.special),
                         (0x20400, 0x20002, {}))

    def test_team_identifier_of_the_code(self):
        path = self.make_file()
        self.assertEqual(read_directory(self.signed(path, team_identifier="ABC")[0]).team, "ABC")
        self.assertIsNone(read_directory(self.signed(path, team_identifier=None)[0]).team)
        anonymous = Identity.create(self.directory / "anonymous", **VARIANTS["no-team"])
        self.assertIsNone(read_directory(self.signed(path, anonymous)[0]).team)

    def test_bad_arguments_are_refused(self):
        path = self.make_file()
        for options in ({"hashes": ()}, {"hashes": ("md5",)}, {"page_size": -1},
                        {"entitlements": {"a": None}}):
            with self.subTest(options=options), self.assertRaises(SigningError):
                self.signed(path, **options)
        with self.assertRaisesRegex(SigningError, "needs no identity"):
            sign_file(path, None)
        with self.assertRaisesRegex(SigningError, "No such file"):
            self.signed(self.directory / "absent")

    def test_large_files_are_described_in_64_bits(self):
        class HugeCode:
            def __len__(self):
                return 1 << 32

            def __getitem__(self, octets):
                return b""

        raw = blobs.CodeDirectory("large", None, "sha256", 24, 0, 0x20500, {}).encode(HugeCode())
        directory = read_directory(raw)
        self.assertEqual((directory.limit, len(directory.pages)), (0xFFFFFFFF, 256))
        self.assertEqual(struct.unpack_from(">Q", raw, 56)[0], 1 << 32)


class TimestampTest(SigningTestCase):
    WHEN = datetime.datetime(2025, 3, 4, 5, 6, 7, tzinfo=datetime.timezone.utc)

    def token_of(self, message):
        """The timestamp token of a message and the signature that it is for, found by search."""
        marker = bytes.fromhex("060b2a864886f70d010910020e")
        start = message.index(marker) + len(marker)
        (self.directory / "message").write_bytes(message)
        offset = start + 2 + (message[start + 1] & 0x7F if message[start + 1] & 0x80 else 0)
        return message[offset:].removesuffix(b"\0" * 6)

    def test_token_verifies_for_the_signature(self):
        path = self.make_file()
        found = read_super_blob(
            sign_file(path, self.identity, timestamp=Timestamp(self.WHEN)).read_bytes())
        message = found[0x10000][8:]
        self.assertTrue(self.cms_verifies(message, found[0]))
        (self.directory / "token").write_bytes(self.token_of(message))
        text = subprocess.run(
            ["openssl", "ts", "-reply", "-token_in", "-in", self.directory / "token", "-text"],
            capture_output=True, check=True).stdout.decode()
        self.assertIn("Mar  4 05:06:07 2025 GMT", text)
        signature = self.signature_of(message)
        self.assertTrue(self.token_verifies(signature))
        self.assertFalse(self.token_verifies(signature + b"x"))

    def signature_of(self, message):
        """The octets of the message's one signature, as openssl prints them."""
        lines = self.cms_text(message).partition("signerInfos:")[2].splitlines()
        start = next(number for number, line in enumerate(lines) if line.strip() == "signature:")
        octets = b""
        for line in lines[start + 1:]:
            _, dash, rest = line.partition(" - ")
            if not dash:
                break
            octets += bytes.fromhex(rest.partition("   ")[0].replace("-", " "))
        return octets

    def token_verifies(self, data):
        (self.directory / "data").write_bytes(data)
        return subprocess.run(
            ["openssl", "ts", "-verify", "-token_in", "-in", self.directory / "token",
             "-data", self.directory / "data", "-CAfile", self.identity.anchor_path],
            capture_output=True).returncode == 0


class CommandLineTest(SigningTestCase):
    def run_main(self, *words):
        errors = io.StringIO()
        with contextlib.redirect_stderr(errors):
            return main(["--identity", str(self.identity.directory), *map(str, words)]), \
                errors.getvalue()

    def test_signs_every_path(self):
        paths = [self.make_file(name=name) for name in ("one", "two")]
        self.assertEqual(self.run_main(*paths), (0, ""))
        for path in paths:
            found = read_super_blob(pathlib.Path(f"{path}.codesignature").read_bytes())
            self.assertEqual(read_directory(found[0]).identifier, path.name)

    def test_macho_files_are_signed_within(self):
        path = self.directory / "agent"
        path.write_bytes(macho.build_fat([macho.Slice("x86_64"), macho.Slice("arm64")]))
        self.assertEqual(self.run_main(path), (0, ""))
        entries, _ = macho.split_fat(path.read_bytes())
        for entry in entries:
            self.assertIn(b"Corvane SRL (QK7ZP2M9XD)", entry.data)
        self.assertFalse(pathlib.Path(f"{path}.codesignature").exists())

    def test_bundles_are_signed_as_a_whole(self):
        bundle = build_bundle(self.directory / "Agent.app", b"\x7fELF")
        self.assertEqual(self.run_main("--adhoc", bundle), (0, ""))
        self.assertTrue((bundle / "Contents/_CodeSignature/CodeDirectory").exists())

    def test_options_reach_the_signature(self):
        path = self.make_file()
        self.run_main("--hash", "sha1", "--hash", "sha256", "--page-size", "14", "--identifier",
                      "com.example", "--team-identifier", "", path)
        found = read_super_blob(pathlib.Path(f"{path}.codesignature").read_bytes())
        directory = read_directory(found[0x1000])
        self.assertEqual((directory.identifier, directory.team, directory.page_size),
                         ("com.example", None, 14))

    def test_failure_is_one_readable_line(self):
        status, text = self.run_main(self.directory / "absent")
        self.assertEqual(status, 1)
        self.assertEqual(text, f"signing: cannot read {self.directory}/absent: "
                               "No such file or directory\n")

    def test_new_identity_with_options(self):
        directory = self.directory / "new"
        self.assertEqual(main(["--identity", str(directory), "--common-name", "Other",
                               "--certificate-team", "T1"]), 0)
        profile = Identity(directory).profile
        self.assertEqual((profile.common_name, profile.team_identifier), ("Other", "T1"))
        path = self.make_file()
        self.assertEqual(main(["--identity", str(directory), str(path)]), 0)
        found = read_super_blob(pathlib.Path(f"{path}.codesignature").read_bytes())
        self.assertEqual(read_directory(found[0]).team, "T1")


if __name__ == "__main__":
    unittest.main()
