"""Certificate chains, their anchors, their dates, and time stamps."""

import datetime
import unittest

from simulator.signing import sign_file
from simulator.signing.timestamp import Timestamp
from tests.code_signing.signed_files.kit import (
    EXPIRED, INVALID_EXTENDED_KEY_USAGE, INVALID_KEY_USAGE, NO_BASIC_CONSTRAINTS, NOT_TRUSTED,
    SIGNATURE_FAILED, UNKNOWN_FORMAT, VALID, SignedFileTestCase)

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
    def anchors(self, text):
        path = self.directory / "anchors.pem"
        path.write_text(text)
        return path

    def root(self, identity=None):
        return (identity or self.identity).anchor_path.read_text()

    def other_root(self):
        return self.root(self.another_identity("other", root_name="Other Root"))

    def test_no_file_trusts_no_chain(self):
        verdict = self.assert_validity(NOT_TRUSTED, self.sign(), anchors=self.directory / "none")
        self.assertEqual((verdict.team, verdict.certificates), ("QK7ZP2M9XD", ()))

    def test_an_empty_useless_or_huge_file_trusts_no_chain(self):
        path = self.sign()
        for text in ("", "no certificates here\n", self.root()[:200], self.root()[27:],
                     self.root() + "\n" * (1 << 20)):
            self.assert_validity(NOT_TRUSTED, path, anchors=self.anchors(text))

    def test_a_directory_trusts_no_chain(self):
        self.assert_validity(NOT_TRUSTED, self.sign(), anchors=self.directory)

    def test_another_root_is_not_trusted(self):
        self.assert_validity(NOT_TRUSTED, self.sign(), anchors=self.anchors(self.other_root()))

    def test_a_root_of_the_same_name_is_not_trusted(self):
        namesake = self.another_identity("namesake", valid_to_days=3000)
        self.assert_validity(NOT_TRUSTED, self.sign(), namesake)

    def test_one_of_several_is_enough(self):
        text = "comment\n" + self.other_root() + "\n" + self.root()
        self.assert_validity(VALID, self.sign(), anchors=self.anchors(text))

    def test_what_is_no_certificate_is_passed_over(self):
        text = self.root().replace("MII", "MIH", 1) + self.root()
        self.assert_validity(VALID, self.sign(), anchors=self.anchors(text))
        path = self.sign(certificates=("leaf", "intermediate"))
        self.assert_validity(VALID, path, anchors=self.anchors(text))

    def test_adhoc_code_needs_none(self):
        self.assert_validity(VALID, self.sign(adhoc=True), anchors=self.directory / "none")

    def test_a_root_that_the_message_lacks_is_completed(self):
        path = self.sign(certificates=("leaf", "intermediate"))
        self.assertEqual(len(self.assert_validity(VALID, path).certificates), 3)

    def test_a_missing_issuer_is_not_trusted(self):
        self.assert_validity(NOT_TRUSTED, self.sign(certificates=("leaf", "root")))

    def test_a_missing_leaf_is_a_bad_signature(self):
        self.assert_validity(SIGNATURE_FAILED, self.sign(certificates=("intermediate", "root")))

    def test_the_order_in_the_message_is_free(self):
        for order in (("leaf", "intermediate", "root"), ("root", "leaf", "intermediate"),
                      ("root", "root", "intermediate", "leaf", "leaf")):
            with self.subTest(order):
                self.assert_validity(VALID, self.sign(certificates=order))


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

    def test_defects_of_the_chain_come_before_missing_trust(self):
        path = self.sign(self.variant("issuer-no-authority"))
        self.assert_validity(NO_BASIC_CONSTRAINTS, path)

    def test_missing_trust_comes_before_the_usage_of_keys(self):
        self.assert_validity(NOT_TRUSTED, self.sign(self.variant("no-extended-key-usage")))

    def test_names_are_no_concern_of_the_policy(self):
        identity = self.variant("no-common-name")
        verdict = self.assert_validity(VALID, self.sign(identity), identity)
        self.assertEqual(verdict.certificates[0], "")


class DateTest(TrustTestCase):
    def test_without_a_time_stamp_dates_are_tolerated(self):
        for variant in ("expired", "not-yet-valid"):
            with self.subTest(variant):
                identity = self.variant(variant)
                self.assert_validity(VALID, self.sign(identity), identity)

    def test_unless_the_signer_forbids_it(self):
        for variant in ("expired", "not-yet-valid"):
            with self.subTest(variant):
                identity = self.variant(variant)
                verdict = self.assert_validity(
                    EXPIRED, self.sign(identity, flags=FORCE_EXPIRATION), identity)
                self.assertEqual(verdict.certificates, ())

    def test_the_stated_signing_time_counts(self):
        identity = self.variant("expired")
        path = self.sign(identity, flags=FORCE_EXPIRATION, signing_time=days_ago(100))
        self.assert_validity(VALID, path, identity)

    def test_an_expired_chain_of_another_root_is_not_trusted(self):
        self.assert_validity(NOT_TRUSTED, self.sign(self.variant("expired")))

    def test_a_time_stamp_within_the_validity_saves_expired_code(self):
        identity = self.variant("expired")
        path = self.sign(identity, flags=FORCE_EXPIRATION, timestamp=Timestamp(days_ago(100)))
        self.assert_validity(VALID, path, identity)

    def test_a_time_stamp_outside_the_validity_is_fatal(self):
        identity = self.variant("expired")
        for days in (1, 900):
            with self.subTest(days):
                path = self.sign(identity, signing_time=days_ago(100),
                                 timestamp=Timestamp(days_ago(days)))
                self.assert_validity(EXPIRED, path, identity)


class TimestampTest(TrustTestCase):
    def test_is_accepted(self):
        self.assert_validity(VALID, self.sign(timestamp=Timestamp()))

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

    def test_must_be_about_this_signature(self):
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
            # A length that does not fit any more makes the whole message unreadable.
            self.assertIn(self.check(path).validity, (SIGNATURE_FAILED, UNKNOWN_FORMAT))


if __name__ == "__main__":
    unittest.main()
