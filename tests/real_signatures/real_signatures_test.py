"""Files that Apple's tools signed must be judged as macOS judges them, and every change found.

Fetches three npm packages, so it runs only when it is asked for. The anchor is Apple's root out of a
signature's own chain, recognised by its published fingerprint.

Usage: real_signatures_test.py CHECK_SIGNATURE [unittest argument...]
"""

import contextlib
import hashlib
import pathlib
import re
import shutil
import ssl
import subprocess
import sys
import tempfile
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2]))

from simulator import installation  # noqa: E402
from simulator.signing import sign_bundle  # noqa: E402
from simulator.signing.layout import build_bundle  # noqa: E402
from tests.end_to_end import transcripts  # noqa: E402
from tests.end_to_end.harness import EndToEndCase  # noqa: E402
from tests.real_signatures import downloads  # noqa: E402
from tests.real_signatures.mach_o import WRAPPER_SIZE, slices  # noqa: E402

# SHA-256 of "Apple Root CA", as published at www.apple.com/certificateauthority.
APPLE_ROOT = "b0b1730ecbc7ff4505142c49f1295e6eda6bcaed7e2c68c5be91b5a11001f024"

VALID = 0
BAD_NESTED_CODE = -67021
RESOURCE_DIRECTORY_FAILED = -67023
INFO_PLIST_FAILED = -67030
SIGNATURE_INVALID = -67045
BAD_RESOURCE = -67054
SIGNATURE_FAILED = -67061
UNSIGNED = -67062

ARM64 = 0x0100000C
CODE_DIRECTORY, REQUIREMENTS, ENTITLEMENTS, DER_ENTITLEMENTS, CMS = 0, 2, 5, 7, 0x10000

program = ""


def verdict(path, anchors):
    """What the program prints: label and text of every line."""
    result = subprocess.run([program, anchors, path], capture_output=True, text=True, timeout=120)
    if result.returncode not in (0, 1):
        raise AssertionError(f"exit status {result.returncode}: {result.stderr}")
    return [line.partition(": ")[::2] for line in result.stdout.splitlines()]


def validity(path, anchors):
    return int(dict(verdict(path, anchors))["validity"])


def certificates(message):
    """The certificates in a CMS message, DER."""
    with tempfile.NamedTemporaryFile() as listing:
        subprocess.run(["openssl", "cms", "-cmsout", "-noout", "-inform", "DER",
                        "-certsout", listing.name], input=message, check=True, capture_output=True)
        text = pathlib.Path(listing.name).read_text()
    return [ssl.PEM_cert_to_DER_cert(pem) for pem in
            re.findall("-----BEGIN CERTIFICATE-----.*?-----END CERTIFICATE-----", text, re.DOTALL)]


class RealSignatureTestCase(EndToEndCase):
    """The downloaded file of a class, and Apple's root as anchor."""

    download = None

    @classmethod
    def setUpClass(cls):
        holder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(holder.cleanup)
        cls.directory = pathlib.Path(holder.name)
        cls.path = downloads.fetch(*cls.download, cls.directory)
        cls.data = cls.path.read_bytes()
        cls.slices = slices(cls.data)
        cls.anchors = cls.directory / "anchors.pem"

    @contextlib.contextmanager
    def flipped(self, offset):
        """The file with one bit changed, for as long as the context lasts."""
        with open(self.path, "r+b", buffering=0) as file:
            file.seek(offset)
            file.write(bytes([self.data[offset] ^ 0x01]))
            try:
                yield
            finally:
                file.seek(offset)
                file.write(self.data[offset:offset + 1])

    def assert_flip(self, expected, offset):
        with self.flipped(offset), self.subTest(offset=offset):
            self.assertEqual(validity(self.path, self.anchors), expected)

    def assert_log_of(self, path, outcome, code, end):
        """What the tool logs and answers when it finds the file in the place of the product's
        library: how the check ends (see transcripts.check()), its last line and the tool's code."""
        library = installation.LAYOUTS[1].library
        with self.endpoint() as endpoint:
            endpoint.path(library).write_bytes(pathlib.Path(path).read_bytes())
            if self.anchors.exists():
                endpoint.path(installation.ANCHORS).write_bytes(self.anchors.read_bytes())
            run = self.run_tool_on(endpoint, "-getProductVersion")
        self.assert_answer(run, code, "")
        lines = [*transcripts.find_product(), *transcripts.check(library, outcome), end]
        start = run.log.index(lines[0])
        self.assertEqual(run.log[start:start + len(lines)], lines)
        self.assertEqual(run.log[start + len(lines)], f"Return error: {code}")
        self.assertEqual(run.calls, [])


class DeveloperIdTest(RealSignatureTestCase):
    download = downloads.DEVELOPER_ID

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        start, end = cls.slices[0].components[CMS]
        cls.root = next(der for der in certificates(cls.data[start + WRAPPER_SIZE:end])
                        if hashlib.sha256(der).hexdigest() == APPLE_ROOT)
        cls.anchors.write_text(ssl.DER_cert_to_PEM_cert(cls.root))

    def test_is_valid_and_tells_its_signer(self):
        self.assertEqual(verdict(self.path, self.anchors)[1:], [
            ("created", "0"),
            ("validity", "0"),
            ("team", "97JCY7859U"),
            ("certificate", "Developer ID Application: GetSentry LLC (97JCY7859U)"),
            ("certificate", "Developer ID Certification Authority"),
            ("certificate", "Apple Root CA"),
        ])

    def test_log_names_another_signer(self):
        self.assert_log_of(self.path, "other signer", 22, "Binary is not valid")

    def test_log_of_a_changed_file(self):
        with self.flipped(self.slices[-1].code_start):
            self.assert_log_of(self.path, "invalid", 22, "Binary is not valid")

    def test_is_nothing_without_the_root(self):
        # The time stamp's authority ends in the same root and is looked at first.
        found = verdict(self.path, "/nonexistent")
        self.assertEqual(found[1:], [("created", "0"), ("validity", str(SIGNATURE_FAILED)),
                                     ("team", "97JCY7859U")])

    def test_changed_code_is_found_in_every_slice(self):
        for piece in self.slices:
            code_end = piece.components[CODE_DIRECTORY][0] - 64
            for offset in (piece.code_start, (piece.code_start + code_end) // 2, code_end):
                self.assert_flip(SIGNATURE_FAILED, offset)

    def test_changed_page_hashes_are_found(self):
        for piece in self.slices:
            start, end = piece.components[CODE_DIRECTORY]
            for offset in ((start + end) // 2, end - 1):
                self.assert_flip(SIGNATURE_FAILED, offset)

    def test_changed_team_is_found(self):
        for piece in self.slices:
            # The arm64 slice speaks for the file; the others must first name the same team.
            self.assert_flip(SIGNATURE_FAILED if piece.processor == ARM64 else SIGNATURE_INVALID,
                             self.data.index(b"97JCY7859U\0", piece.components[CODE_DIRECTORY][0]))

    def test_changed_components_are_found(self):
        for piece in self.slices:
            for slot in (REQUIREMENTS, ENTITLEMENTS, DER_ENTITLEMENTS):
                start, end = piece.components[slot]
                for offset in (start + WRAPPER_SIZE, end - 1):
                    self.assert_flip(SIGNATURE_FAILED, offset)

    def test_changes_anywhere_in_the_message_are_found(self):
        """Except in its first headers, of which some are redundant, and in the copy of the root, for
        which the anchor stands in."""
        for piece in self.slices:
            start, end = piece.components[CMS]
            root = self.data.index(self.root, start)
            for offset in range(start + WRAPPER_SIZE + 64, end, 61):
                if root <= offset < root + len(self.root):
                    continue
                with self.flipped(offset):
                    self.assertNotEqual(validity(self.path, self.anchors), VALID, offset - start)

    def test_a_changed_copy_of_the_root_does_not_matter(self):
        for piece in self.slices:
            root = self.data.index(self.root, piece.components[CMS][0])
            self.assert_flip(VALID, root + len(self.root) - 10)

    def test_requirements_on_the_signer(self):
        """As a bundle seals them for code that is nested in it."""
        leaf, issuer = "certificate leaf", "certificate 1"
        bundle = build_bundle(self.directory / "Outer.app", b"code")
        nested = bundle / "Contents/Frameworks/nested.dylib"
        nested.parent.mkdir()
        nested.write_bytes(self.data)
        for text, expected in {
                "anchor apple generic": VALID,
                "anchor apple": BAD_NESTED_CODE,
                "! anchor apple": VALID,
                f'certificate root = H"{hashlib.sha1(self.root).hexdigest()}"': VALID,
                f'{leaf}[subject.OU] = "97JCY7859U" and anchor apple generic': VALID,
                f'{leaf}[subject.OU] = "97JCY7859V" and anchor apple generic': BAD_NESTED_CODE,
                f"{issuer}[field.1.2.840.113635.100.6.2.6] exists": VALID,
                f"{leaf}[field.1.2.840.113635.100.6.1.13] exists": VALID,
                f"{leaf}[field.1.2.840.113635.100.6.2.6] exists": BAD_NESTED_CODE,
        }.items():
            sign_bundle(bundle, adhoc=True,
                        nested_requirements={"Frameworks/nested.dylib": text})
            with self.subTest(text):
                self.assertEqual(validity(bundle, self.anchors), expected)

    def test_a_root_of_the_same_name_is_not_enough(self):
        anchors = self.directory / "namesake.pem"
        subprocess.run(["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-subj",
                        "/C=US/O=Apple Inc./OU=Apple Certification Authority/CN=Apple Root CA",
                        "-keyout", "/dev/null", "-out", anchors], check=True, capture_output=True)
        self.assertEqual(validity(self.path, anchors), SIGNATURE_FAILED)


class PartlySignedTest(RealSignatureTestCase):
    download = downloads.PARTLY_SIGNED

    def piece(self, index):
        path = self.directory / f"slice{index}"
        path.write_bytes(self.data[self.slices[index].start:self.slices[index].end])
        return path

    def test_one_unsigned_slice_makes_it_unsigned(self):
        self.assertEqual(sorted(bool(piece.components) for piece in self.slices), [False, True])
        self.assertEqual(verdict(self.path, "/nonexistent")[1:],
                         [("created", "0"), ("validity", str(UNSIGNED))])

    def test_the_slices_alone(self):
        for index, piece in enumerate(self.slices):
            expected = VALID if piece.components else UNSIGNED
            self.assertEqual(piece.processor == ARM64, bool(piece.components))
            self.assertEqual(verdict(self.piece(index), "/nonexistent")[1:],
                             [("created", "0"), ("validity", str(expected))])

    def test_logs(self):
        self.assert_log_of(self.path, "invalid", 22, "Binary is not valid")
        for index, piece in enumerate(self.slices):
            with self.subTest(slice=index):
                if piece.components:  # nobody has signed it but the linker
                    self.assert_log_of(self.piece(index), "no certificate", 2,
                                    "Failed to validate binary. Error code : 2")
                else:
                    self.assert_log_of(self.piece(index), "invalid", 22, "Binary is not valid")

    def test_changed_code_of_the_linker_signed_slice_is_found(self):
        for piece in self.slices:
            if piece.components:
                self.assert_flip(SIGNATURE_FAILED, piece.code_start)


class FrameworkTest(unittest.TestCase):
    """A sealed framework, alone and nested in an application."""

    @classmethod
    def setUpClass(cls):
        holder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(holder.cleanup)
        cls.download = downloads.fetch(*downloads.FRAMEWORK, holder.name)
        (cls.download / "Versions/Current").symlink_to("0.1.0")
        for name in ("NativeScript", "Headers", "Resources"):
            (cls.download / name).symlink_to(f"Versions/Current/{name}")

    def setUp(self):
        holder = tempfile.TemporaryDirectory()
        self.addCleanup(holder.cleanup)
        self.bundle = build_bundle(pathlib.Path(holder.name) / "Outer.app", b"code")
        self.nested = self.bundle / "Contents/Frameworks/NativeScript.framework"
        self.version = self.nested / "Versions/0.1.0"
        shutil.copytree(self.download, self.nested, symlinks=True)
        sign_bundle(self.bundle, adhoc=True, nested_requirements={
            "Frameworks/NativeScript.framework": "! anchor apple generic"})

    def assert_found(self, alone):
        """Checks what the framework's own check says of a change, and that the application's check
        finds it in any case."""
        self.assertEqual(validity(self.nested, "/nonexistent"), alone)
        self.assertNotEqual(validity(self.bundle, "/nonexistent"), VALID)

    def test_is_valid_under_all_its_names(self):
        for path in (self.bundle, self.nested, self.version, self.version / "NativeScript"):
            self.assertEqual(validity(path, "/nonexistent"), VALID, path)

    def test_changed_resource(self):
        with open(self.version / "Headers/NativeScript.h", "ab") as file:
            file.write(b"\n")
        self.assert_found(BAD_RESOURCE)

    def test_added_resource(self):
        (self.version / "Headers/added.h").touch()
        self.assert_found(BAD_RESOURCE)

    def test_missing_resource(self):
        (self.version / "Headers/NativeScript.h").unlink()
        self.assert_found(BAD_RESOURCE)

    def test_resource_that_became_a_link(self):
        header = self.version / "Headers/NativeScript.h"
        header.rename(self.version.parent.parent / "header")
        header.symlink_to("../../../header")
        self.assert_found(BAD_RESOURCE)

    def test_changed_seal(self):
        with open(self.version / "_CodeSignature/CodeResources", "ab") as file:
            file.write(b"\n")
        self.assert_found(RESOURCE_DIRECTORY_FAILED)

    def test_changed_information(self):
        with open(self.version / "Resources/Info.plist", "ab") as file:
            file.write(b"\n")
        self.assert_found(INFO_PLIST_FAILED)

    def test_changed_code(self):
        with open(self.version / "NativeScript", "r+b") as file:
            file.seek(0x8000)
            byte = file.read(1)
            file.seek(0x8000)
            file.write(bytes([byte[0] ^ 1]))
        self.assert_found(SIGNATURE_FAILED)

    def test_file_beside_what_is_sealed(self):
        (self.nested / "added").touch()
        self.assert_found(VALID)

    def test_another_version(self):
        shutil.copytree(self.version, self.nested / "Versions/B", symlinks=True)
        self.assertEqual(validity(self.bundle, "/nonexistent"), VALID)
        (self.nested / "Versions/B/Headers/NativeScript.h").unlink()
        self.assert_found(VALID)


if __name__ == "__main__":
    program = sys.argv.pop(1)
    unittest.main()
