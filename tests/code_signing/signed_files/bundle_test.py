"""Signed bundles and the code nested in them. Unit tests cover the details of seals and layouts."""

import shutil
import unittest

from simulator.signing import Timestamp, sign, sign_bundle, sign_macho
from simulator.signing.layout import build_bundle
from simulator.signing.macho import Slice, build_fat, build_thin
from tests.code_signing.signed_files.kit import (
    BAD_NESTED_CODE, BAD_RESOURCE, CHAIN, INFO_PLIST_FAILED, RESOURCE_DIRECTORY_FAILED,
    SIGNATURE_FAILED, TEAM, UNSIGNED, VALID, SignedFileTestCase, flipped)

ELF = b"\x7fELF" + bytes(range(256)) * 40
UNIVERSAL = build_fat([Slice("x86_64", "execute"), Slice("arm64", "execute")])
FILES = {"Resources/a.txt": b"a", "Resources/en.lproj/b.strings": b"b", "Resources/link": "a.txt",
         "version.plist": b"v"}


def flip_at(path, offset):
    path.write_bytes(flipped(path.read_bytes(), offset))


class BundleTestCase(SignedFileTestCase):
    def build(self, executable, form="contents", **options):
        """Builds a bundle that replaces the previous one."""
        suffix = "framework" if form == "framework" else "app"
        path = self.directory / f"Agent.{suffix}"
        shutil.rmtree(path, ignore_errors=True)
        return build_bundle(path, executable, form=form, **options)

    def assert_accepted(self, path):
        verdict = self.assert_validity(VALID, path)
        self.assertEqual((verdict.team, verdict.certificates), (TEAM, CHAIN))


class BundleTest(BundleTestCase):
    def signed(self, executable, **options):
        """Builds and signs a bundle. Returns it with its sealed root."""
        bundle = self.build(executable, files=FILES)
        sign_bundle(bundle, self.identity, **options)
        return bundle, bundle / "Contents"

    def test_every_form_is_accepted(self):
        for form in ("contents", "resources", "support-files", "flat", "framework"):
            for executable in (build_thin(), UNIVERSAL, ELF):
                with self.subTest(form=form, size=len(executable)):
                    bundle = self.build(executable, form, files=FILES)
                    self.assert_validity(UNSIGNED, bundle)
                    sign_bundle(bundle, self.identity)
                    self.assert_accepted(bundle)

    def test_every_hash_type_is_accepted(self):
        for executable in (build_thin(), ELF):
            for hashes in (("sha1",), ("sha1", "sha256"), ("sha384", "sha256-truncated")):
                with self.subTest(hashes=hashes):
                    bundle, _ = self.signed(executable, hashes=hashes, timestamp=Timestamp(),
                                            entitlements={"flag": True})
                    self.assert_accepted(bundle)

    def test_changes_are_found_under_both_names(self):
        for executable in (build_thin(), ELF):
            bundle, root = self.signed(executable)
            self.assert_accepted(root / "MacOS/Agent")
            for name, offset, expected in (
                    ("Resources/a.txt", 0, BAD_RESOURCE),
                    ("Info.plist", -1, INFO_PLIST_FAILED),  # still names the executable
                    ("_CodeSignature/CodeResources", 0, RESOURCE_DIRECTORY_FAILED),
                    ("MacOS/Agent", 0x900, SIGNATURE_FAILED)):
                with self.subTest(name, macho=executable != ELF):
                    flip_at(root / name, offset)
                    self.assert_validity(expected, bundle)
                    self.assert_validity(expected, root / "MacOS/Agent")
                    flip_at(root / name, offset)

    def test_component_files_are_covered(self):
        bundle, root = self.signed(ELF, hashes=("sha1", "sha256"), entitlements={"flag": True})
        parts = sorted((root / "_CodeSignature").iterdir())
        self.assertEqual([part.name for part in parts], [
            "CodeDirectory", "CodeEntitlementDER", "CodeEntitlements", "CodeRequirements",
            "CodeRequirements-1", "CodeResources", "CodeSignature"])
        for part in parts:
            with self.subTest(part.name):
                flip_at(part, 11)
                self.assertNotEqual(self.check(bundle).validity, VALID)
                flip_at(part, 11)
        self.assert_accepted(bundle)
        (root / "_CodeSignature/CodeSignature").unlink()
        self.assert_validity(UNSIGNED, bundle)


class NestedCodeTest(BundleTestCase):
    def library(self, content, identity=None, **options):
        self.bundle = self.build(build_thin())
        path = self.bundle / "Contents/Frameworks/lib.dylib"
        path.parent.mkdir()
        path.write_bytes(content)
        sign(path, identity, **options)
        sign_bundle(self.bundle, self.identity)
        return path

    def test_every_kind_of_library_is_accepted(self):
        for content in (build_thin(), UNIVERSAL, ELF):
            for identity, options in ((self.identity, {}), (None, {"adhoc": True}),
                                      (self.identity, {"team_identifier": None})):
                with self.subTest(size=len(content), options=options):
                    self.library(content, identity, **options)
                    self.assert_accepted(self.bundle)

    def test_nested_bundles_are_accepted(self):
        for form, name in (("contents", "Inner.app"), ("framework", "Inner.framework")):
            for executable in (build_thin(), ELF):
                with self.subTest(name, macho=executable != ELF):
                    bundle = self.build(build_thin())
                    inner = build_bundle(bundle / "Contents/Frameworks" / name, executable,
                                         form=form, files={"Resources/x": b"x"})
                    sign_bundle(inner, self.identity)
                    sign_bundle(bundle, self.identity)
                    self.assert_accepted(bundle)

    def test_exchanged_code_is_found(self):
        other = self.another_identity("other", team_identifier="OTHER")
        library = self.library(build_thin(), self.identity)
        sign_macho(library, other)
        both = self.directory / "both.pem"
        both.write_text(self.identity.anchor_path.read_text() + other.anchor_path.read_text())
        self.assert_validity(BAD_NESTED_CODE, self.bundle, anchors=both)
        # What is signed ad hoc is sealed by its hash.
        library = self.library(build_thin(), adhoc=True)
        library.write_bytes(build_thin(Slice(seed=9)))
        sign_macho(library, adhoc=True)
        self.assert_validity(BAD_NESTED_CODE, self.bundle)


if __name__ == "__main__":
    unittest.main()
