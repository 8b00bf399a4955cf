"""Checks in which libcrypto runs out of memory (see libcrypto_failures.cc, the program that
KX_LIBCRYPTO_FAILURES names). Tries one in KX_STEP failures, by default one in 797."""

import concurrent.futures
import functools
import os
import subprocess
import unittest

from simulator.signing import Timestamp, sign_bundle, sign_file, sign_macho
from simulator.signing.layout import build_bundle
from simulator.signing.macho import Slice, build_fat
from tests.code_signing.signed_files.kit import (
    BAD_RESOURCE, INVALID_EXTENDED_KEY_USAGE, NO_BASIC_CONSTRAINTS, NOT_TRUSTED, SIGNATURE_FAILED,
    VALID, SignedFileTestCase)

PROGRAM = os.environ["KX_LIBCRYPTO_FAILURES"]
ALL_HASHES = ("sha1", "sha256", "sha384")


def sweep(anchors, path):
    return subprocess.run([PROGRAM, os.environ.get("KX_STEP", "797"), anchors, path],
                          capture_output=True, text=True)


class LibcryptoFailuresTest(SignedFileTestCase):
    def plain(self, name, identity, **options):
        path = self.directory / name
        path.write_bytes(b"code" * 1000)
        sign_file(path, identity, **options)
        return path

    def macho(self, name, **options):
        path = self.directory / name
        path.write_bytes(build_fat([Slice("x86_64"), Slice("arm64", seed=1)]))
        sign_macho(path, self.identity, **options)
        return path

    def bundle(self, name):
        path = build_bundle(self.directory / name, b"code" * 1000,
                            files={"Resources/file": b"resource"})
        sign_bundle(path, self.identity)
        return path

    def changed(self, path, inside=None):
        with (inside or path).open("r+b") as file:
            file.write(b"X")
        return path

    def files(self):
        """Each file with the verdict on it."""
        stamped = {"hashes": ALL_HASHES, "timestamp": Timestamp()}
        yield self.plain("plain", self.identity), VALID
        yield self.plain("stamped", self.identity, **stamped), VALID
        yield self.plain("rsa", self.another_identity("rsa", key_type="rsa"), **stamped), VALID
        yield self.macho("macho", **stamped), VALID
        yield self.bundle("Good.app"), VALID
        yield self.changed(self.plain("changed", self.identity, **stamped)), SIGNATURE_FAILED
        altered = self.bundle("Altered.app")
        yield self.changed(altered, altered / "Contents/Resources/file"), BAD_RESOURCE
        for name, status in (("wrong-extended-key-usage", INVALID_EXTENDED_KEY_USAGE),
                             ("issuer-no-authority", NO_BASIC_CONSTRAINTS)):
            yield self.plain(name, self.variant(name)), status

    def test_no_failure_makes_anything_valid(self):
        files = dict(self.files())
        anchors = self.directory / "anchors.pem"
        anchors.write_text("".join(path.read_text() for path in self.shared.glob("*/root.pem")))
        stranger = self.another_identity("stranger", root_name="Other Root")
        files[self.plain("stranger", stranger, timestamp=Timestamp())] = SIGNATURE_FAILED
        files[self.plain("untrusted", stranger)] = NOT_TRUSTED
        for path, status in files.items():
            with self.subTest(path.name):
                self.assert_validity(status, path, anchors=anchors)
        with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
            for done in pool.map(functools.partial(sweep, anchors), files):
                with self.subTest(done.args[-1].name):
                    # RE2 reports an exception that passes through it.
                    complaints = [line for line in done.stderr.splitlines()
                                  if "Stack not empty" not in line]
                    self.assertEqual((done.returncode, complaints), (0, []))


if __name__ == "__main__":
    unittest.main()
