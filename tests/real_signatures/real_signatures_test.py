"""Files that Apple's tools signed must get the same verdict as on macOS, and every change must be found.

Fetches three npm packages, so it runs only on request. The anchor is Apple's root from the chain of
a signature, recognised by its published fingerprint.
"""

import contextlib
import dataclasses
import hashlib
import pathlib
import re
import shutil
import ssl
import struct
import subprocess
import tarfile
import tempfile
import unittest

from simulator.signing import sign_bundle
from simulator.signing.layout import build_bundle
from tests.code_signing.signed_files.kit import (
    BAD_NESTED_CODE, BAD_RESOURCE, INFO_PLIST_FAILED, RESOURCE_DIRECTORY_FAILED, SIGNATURE_FAILED,
    SIGNATURE_INVALID, UNSIGNED, VALID, Verdict, check, flipped)

# SHA-256 of "Apple Root CA", as published at www.apple.com/certificateauthority.
APPLE_ROOT = "b0b1730ecbc7ff4505142c49f1295e6eda6bcaed7e2c68c5be91b5a11001f024"

FAT_MAGIC = 0xCAFEBABE
LC_CODE_SIGNATURE = 0x1D
ARM64 = 0x0100000C
CODE_DIRECTORY, REQUIREMENTS, ENTITLEMENTS, DER_ENTITLEMENTS, CMS = 0, 2, 5, 7, 0x10000
WRAPPER_SIZE = 8

# A universal command-line program with a Developer ID signature and a time stamp.
DEVELOPER_ID = ("@sentry/cli-darwin@3.8.0", "package/bin/sentry-cli")

# A small universal library: the linker signed its arm64 slice, and nobody signed the other one.
PARTLY_SIGNED = ("fsevents@2.3.3", "package/fsevents.node")

# A framework with a seal, signed ad hoc. The registry's packages have no symbolic links.
FRAMEWORK = ("@nativescript/macos-node-api@0.4.0",
             "package/build/RelWithDebInfo/NativeScript.apple.node/macos-arm64/"
             "NativeScript.framework")


def fetch(package, member, directory):
    """Unpacks one file or folder of a package below `directory` and returns its path."""
    directory = pathlib.Path(directory)
    packed = subprocess.run(["npm", "pack", "--silent", package], cwd=directory, check=True,
                            capture_output=True, text=True, timeout=600).stdout.split()[-1]
    path = directory / pathlib.PurePosixPath(member).name
    with tarfile.open(directory / packed) as archive:
        for entry in archive:
            if entry.isfile() and (entry.name == member or entry.name.startswith(member + "/")):
                target = path / pathlib.PurePosixPath(entry.name).relative_to(member)
                target.parent.mkdir(parents=True, exist_ok=True)
                target.write_bytes(archive.extractfile(entry).read())
    (directory / packed).unlink()
    return path


@dataclasses.dataclass
class Slice:
    """A 64-bit slice: its processor, its range in the file, and the range of each component of its
    signature by slot; no components when it has no signature."""

    processor: int
    start: int
    end: int
    code_start: int
    components: dict[int, tuple[int, int]]


def slices(data):
    """Returns the slices of a universal file. All must be 64-bit and little-endian."""
    magic, count = struct.unpack_from(">2I", data)
    assert magic == FAT_MAGIC
    rows = [struct.unpack_from(">5I", data, 8 + 20 * number) for number in range(count)]
    return [_slice(data, processor, offset, size) for processor, _, offset, size, _ in rows]


def _slice(data, processor, start, size):
    count, commands_size = struct.unpack_from("<16x2I", data, start)
    offset = start + 32
    found = {}
    for _ in range(count):
        kind, length = struct.unpack_from("<2I", data, offset)
        if kind == LC_CODE_SIGNATURE:
            found = _components(data, start + struct.unpack_from("<8xI", data, offset)[0])
        offset += length
    return Slice(processor, start, start + size, start + 32 + commands_size, found)


def _components(data, start):
    count, = struct.unpack_from(">8xI", data, start)
    found = {}
    for number in range(count):
        slot, offset = struct.unpack_from(">2I", data, start + 12 + 8 * number)
        length, = struct.unpack_from(">4xI", data, start + offset)
        found[slot] = (start + offset, start + offset + length)
    return found


def validity(path, anchors):
    return check(path, anchors).validity


def certificates(message):
    """The certificates in a CMS message, DER."""
    with tempfile.NamedTemporaryFile() as listing:
        subprocess.run(["openssl", "cms", "-cmsout", "-noout", "-inform", "DER",
                        "-certsout", listing.name], input=message, check=True, capture_output=True)
        text = pathlib.Path(listing.name).read_text()
    return [ssl.PEM_cert_to_DER_cert(pem) for pem in
            re.findall("-----BEGIN CERTIFICATE-----.*?-----END CERTIFICATE-----", text, re.DOTALL)]


class RealSignatureTestCase(unittest.TestCase):
    """The downloaded file of a class, and Apple's root as anchor."""

    download = None

    @classmethod
    def setUpClass(cls):
        holder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(holder.cleanup)
        cls.directory = pathlib.Path(holder.name)
        cls.path = fetch(*cls.download, cls.directory)
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


class DeveloperIdTest(RealSignatureTestCase):
    download = DEVELOPER_ID

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        start, end = cls.slices[0].components[CMS]
        cls.root = next(der for der in certificates(cls.data[start + WRAPPER_SIZE:end])
                        if hashlib.sha256(der).hexdigest() == APPLE_ROOT)
        cls.anchors.write_text(ssl.DER_cert_to_PEM_cert(cls.root))

    def test_is_valid_and_names_its_signer(self):
        self.assertEqual(check(self.path, self.anchors), Verdict(0, VALID, "97JCY7859U", (
            "Developer ID Application: GetSentry LLC (97JCY7859U)",
            "Developer ID Certification Authority", "Apple Root CA")))

    def test_is_invalid_without_the_root(self):
        # The chain of the time stamp ends in the same root and is checked first.
        self.assertEqual(check(self.path, "/nonexistent"),
                         Verdict(0, SIGNATURE_FAILED, "97JCY7859U"))

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
            # The reported result is that of the arm64 slice. The other slices must name the same team.
            self.assert_flip(SIGNATURE_FAILED if piece.processor == ARM64 else SIGNATURE_INVALID,
                             self.data.index(b"97JCY7859U\0", piece.components[CODE_DIRECTORY][0]))

    def test_changed_components_are_found(self):
        for piece in self.slices:
            for slot in (REQUIREMENTS, ENTITLEMENTS, DER_ENTITLEMENTS):
                start, end = piece.components[slot]
                for offset in (start + WRAPPER_SIZE, end - 1):
                    self.assert_flip(SIGNATURE_FAILED, offset)

    def test_changes_anywhere_in_the_message_are_found(self):
        """Except in its first headers, some of which are redundant, and in the copy of the root, which
        the anchor replaces."""
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
    download = PARTLY_SIGNED

    def piece(self, index):
        path = self.directory / f"slice{index}"
        path.write_bytes(self.data[self.slices[index].start:self.slices[index].end])
        return path

    def test_one_unsigned_slice_makes_it_unsigned(self):
        self.assertEqual(sorted(bool(piece.components) for piece in self.slices), [False, True])
        self.assertEqual(check(self.path, "/nonexistent"), Verdict(0, UNSIGNED))

    def test_the_slices_alone(self):
        for index, piece in enumerate(self.slices):
            expected = VALID if piece.components else UNSIGNED
            self.assertEqual(piece.processor == ARM64, bool(piece.components))
            self.assertEqual(check(self.piece(index), "/nonexistent"), Verdict(0, expected))

    def test_changed_code_of_the_linker_signed_slice_is_found(self):
        for piece in self.slices:
            if piece.components:
                self.assert_flip(SIGNATURE_FAILED, piece.code_start)


def append(path):
    path.write_bytes(path.read_bytes() + b"\n")


class FrameworkTest(unittest.TestCase):
    """A sealed framework, alone and nested in an application."""

    @classmethod
    def setUpClass(cls):
        holder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(holder.cleanup)
        cls.download = fetch(*FRAMEWORK, holder.name)
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
        """`alone` is the validity of the framework, checked on its own."""
        self.assertEqual(validity(self.nested, "/nonexistent"), alone)
        self.assertNotEqual(validity(self.bundle, "/nonexistent"), VALID)

    def test_is_valid_under_all_its_names(self):
        for path in (self.bundle, self.nested, self.version, self.version / "NativeScript"):
            self.assertEqual(validity(path, "/nonexistent"), VALID, path)

    def test_changes_are_found(self):
        header = self.version / "Headers/NativeScript.h"
        code = self.version / "NativeScript"

        def become_a_link():
            header.rename(self.nested / "header")
            header.symlink_to("../../../header")

        for name, alone, change in (
                ("resource", BAD_RESOURCE, lambda: append(header)),
                ("added resource", BAD_RESOURCE, header.with_name("added.h").touch),
                ("missing resource", BAD_RESOURCE, header.unlink),
                ("link for a resource", BAD_RESOURCE, become_a_link),
                ("seal", RESOURCE_DIRECTORY_FAILED,
                 lambda: append(self.version / "_CodeSignature/CodeResources")),
                ("information", INFO_PLIST_FAILED,
                 lambda: append(self.version / "Resources/Info.plist")),
                ("code", SIGNATURE_FAILED,
                 lambda: code.write_bytes(flipped(code.read_bytes(), 0x8000))),
                ("file beside what is sealed", BAD_RESOURCE, (self.nested / "added").touch)):
            with self.subTest(name):
                change()
                self.assert_found(alone)
                shutil.rmtree(self.nested)
                shutil.copytree(self.download, self.nested, symlinks=True)

    def test_another_version(self):
        shutil.copytree(self.version, self.nested / "Versions/B", symlinks=True)
        self.assertEqual(validity(self.bundle, "/nonexistent"), VALID)
        (self.nested / "Versions/B/Headers/NativeScript.h").unlink()
        self.assert_found(BAD_RESOURCE)


if __name__ == "__main__":
    unittest.main()
