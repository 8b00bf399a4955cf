"""Certificate chains, their anchors, their dates, and time stamps."""

import datetime
import unittest

from simulator.signing import Timestamp, sign_file
from tests.code_signing.signed_files.kit import (
    CHAIN, EXPIRED, INVALID_EXTENDED_KEY_USAGE, INVALID_KEY_USAGE, NO_BASIC_CONSTRAINTS, NOT_TRUSTED,
    SIGNATURE_FAILED, TEAM, UNKNOWN_FORMAT, VALID, SignedFileTestCase)

FORCE_EXPIRATION = 0x400


def days_ago(days):
    return datetime.datetime.now(datetime.timezone.utc) - datetime.timedelta(days=days)


class TrustTestCase(SignedFileTestCase):
    def sign(self, identity=None, **options):
        path = self.directory / "library"
        path.write_bytes(b"code" * 1000)
        sign_file(path, identity or self.identity, **options)
        return path


class AnchorTest(TrustTestCase):
    def anchors(self, name, text):
        path = self.directory / name
        path.write_text(text)
        return path

    def root(self, identity=None):
        return (identity or self.identity).anchor_path.read_text()

    def other_root(self):
        return self.root(self.another_identity("other", root_name="Other Root"))

    def test_anchors_that_trust_no_chain(self):
        path = self.sign()
        namesake = self.another_identity("namesake", valid_to_days=3000)
        for anchors in (
                self.directory / "none", self.directory,
                *(self.anchors(name, text) for name, text in {
                    "empty": "", "useless": "no certificates here\n",
                    "cut at the end": self.root()[:200], "cut at the beginning": self.root()[27:],
                    "huge": self.root() + "\n" * (1 << 20),
                    "another": self.other_root(), "namesake": self.root(namesake)}.items())):
            with self.subTest(anchors.name):
                verdict = self.assert_validity(NOT_TRUSTED, path, anchors=anchors)
                self.assertEqual((verdict.team, verdict.certificates), (TEAM, ()))

    def test_one_of_several_is_enough(self):
        text = "comment\n" + self.other_root() + "\n" + self.root()
        self.assert_validity(VALID, self.sign(), anchors=self.anchors("several", text))

    def test_skips_what_is_not_a_certificate(self):
        text = self.root().replace("MII", "MIH", 1) + self.root()
        anchors = self.anchors("several", text)
        self.assert_validity(VALID, self.sign(), anchors=anchors)
        path = self.sign(certificates=("leaf", "intermediate"))
        self.assert_validity(VALID, path, anchors=anchors)

    def test_adhoc_code_needs_none(self):
        self.assert_validity(VALID, self.sign(adhoc=True), anchors=self.directory / "none")

    def test_which_certificates_the_message_needs(self):
        for expected, certificates in (
                (VALID, ("leaf", "intermediate", "root")), (VALID, ("root", "leaf", "intermediate")),
                (VALID, ("root", "root", "intermediate", "leaf", "leaf")),
                (VALID, ("leaf", "intermediate")),
                (NOT_TRUSTED, ("leaf", "root")), (SIGNATURE_FAILED, ("intermediate", "root"))):
            with self.subTest(certificates):
                verdict = self.assert_validity(expected, self.sign(certificates=certificates))
                self.assertEqual(verdict.certificates, CHAIN if expected == VALID else ())


class PolicyTest(TrustTestCase):
    def test_what_the_chain_lacks_is_named(self):
        for variant, expected in (
                ("wrong-extended-key-usage", INVALID_EXTENDED_KEY_USAGE),
                ("no-extended-key-usage", INVALID_EXTENDED_KEY_USAGE),
                ("wrong-key-usage", INVALID_KEY_USAGE),
                ("no-key-usage", INVALID_KEY_USAGE),
                ("issuer-no-authority", NO_BASIC_CONSTRAINTS)):
            with self.subTest(variant):
                identity = self.variant(variant)
                self.assert_validity(expected, self.sign(identity), identity)

    def test_missing_trust_is_graver_than_the_usage_of_keys(self):
        self.assert_validity(NO_BASIC_CONSTRAINTS, self.sign(self.variant("issuer-no-authority")))
        self.assert_validity(NOT_TRUSTED, self.sign(self.variant("no-extended-key-usage")))

    def test_names_do_not_matter_to_the_policy(self):
        identity = self.variant("no-common-name")
        verdict = self.assert_validity(VALID, self.sign(identity), identity)
        self.assertEqual(verdict.certificates[0], "")


class DateTest(TrustTestCase):
    def test_without_a_time_stamp_the_signer_decides(self):
        for variant in ("expired", "not-yet-valid"):
            with self.subTest(variant):
                identity = self.variant(variant)
                self.assert_validity(VALID, self.sign(identity), identity)
                verdict = self.assert_validity(
                    EXPIRED, self.sign(identity, flags=FORCE_EXPIRATION), identity)
                self.assertEqual(verdict.certificates, ())

    def test_which_time_counts(self):
        identity = self.variant("expired")
        within = days_ago(100)
        for expected, options in (
                (VALID, {"flags": FORCE_EXPIRATION, "signing_time": within}),
                (VALID, {"flags": FORCE_EXPIRATION, "timestamp": Timestamp(within)}),
                (EXPIRED, {"signing_time": within, "timestamp": Timestamp(days_ago(1))}),
                (EXPIRED, {"signing_time": within, "timestamp": Timestamp(days_ago(900))})):
            with self.subTest(options):
                self.assert_validity(expected, self.sign(identity, **options), identity)

    def test_an_expired_chain_of_another_root_is_not_trusted(self):
        self.assert_validity(NOT_TRUSTED, self.sign(self.variant("expired")))


class TimestampTest(TrustTestCase):
    def test_may_come_from_another_trusted_authority(self):
        authority = self.another_identity("authority", root_name="Authority Root")
        path = self.sign(timestamp=Timestamp(authority=authority))
        both = self.directory / "both.pem"
        both.write_text(self.identity.anchor_path.read_text() + authority.anchor_path.read_text())
        self.assert_validity(VALID, path, anchors=both)
        self.assert_validity(SIGNATURE_FAILED, path)

    def test_must_be_valid_when_it_was_made(self):
        for when in (days_ago(5000), days_ago(-9000)):
            with self.subTest(when):
                self.assert_validity(SIGNATURE_FAILED, self.sign(timestamp=Timestamp(when)))

    def test_must_be_made_for_time_stamping(self):
        class Impostor:
            profile = self.identity.profile
            certificates = {**self.identity.certificates,
                            "timestamp": self.identity.certificates["leaf"],
                            "root": self.identity.certificates["intermediate"]}
        self.assert_validity(SIGNATURE_FAILED, self.sign(timestamp=Timestamp(authority=Impostor)))

    def test_must_cover_this_signature(self):
        class Elsewhere(Timestamp):
            def token(self, signature):
                return super().token(signature + b"!")
        self.assert_validity(SIGNATURE_FAILED, self.sign(timestamp=Elsewhere()))

    def test_every_changed_byte_of_its_information_is_found(self):
        tokens = []

        class Kept(Timestamp):
            def token(self, signature):
                tokens.append(super().token(signature))
                return tokens[-1]
        path = self.sign(timestamp=Kept())
        sidecar = path.with_name(path.name + ".codesignature")
        data = sidecar.read_bytes()
        start = data.index(tokens[0])
        content = data.index(bytes.fromhex("060b2a864886f70d0109100104"), start)
        for offset in range(content, content + 140, 2):
            changed = bytearray(data)
            changed[offset] ^= 0x10
            sidecar.write_bytes(changed)
            # A length that no longer fits makes the whole message unreadable.
            self.assertIn(self.check(path).validity, (SIGNATURE_FAILED, UNKNOWN_FORMAT))


if __name__ == "__main__":
    unittest.main()
