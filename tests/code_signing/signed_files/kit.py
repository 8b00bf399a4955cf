"""Shared by the tests of signed files. The simulator's signer makes the files, and the program
kx_check_signature (named by KX_CHECK_SIGNATURE) checks them."""

import dataclasses
import os
import pathlib
import shutil
import struct
import subprocess
import tempfile
import unittest

from simulator.signing import VARIANTS, Identity, blobs

PROGRAM = os.environ["KX_CHECK_SIGNATURE"]

# Statuses of the Security framework.
VALID = 0
UNKNOWN_FORMAT = -25257
DECODE = -26275
UNSUPPORTED_DIGEST = -67000
BAD_NESTED_CODE = -67021
RESOURCE_DIRECTORY_FAILED = -67023
BAD_BUNDLE_FORMAT = -67028
BAD_RESOURCE = -67054
INFO_PLIST_FAILED = -67030
SIGNATURE_INVALID = -67045
BAD_OBJECT_FORMAT = -67049
SIGNATURE_UNSUPPORTED = -67059
SIGNATURE_FAILED = -67061
UNSIGNED = -67062
NOT_FOUND = -67068
INTERNAL = -67671
NOT_TRUSTED = -2147409622
EXPIRED = -2147409654
INVALID_EXTENDED_KEY_USAGE = -2147408889
INVALID_KEY_USAGE = -2147408890
NO_BASIC_CONSTRAINTS = -2147408894

TEAM = "QK7ZP2M9XD"
VENDOR = f"Developer ID Application: Corvane SRL ({TEAM})"
CHAIN = (VENDOR, "Simulated Root CA Developer ID", "Simulated Root CA")


@dataclasses.dataclass
class Verdict:
    """What the program said; `validity` is None when the code could not be opened."""

    created: int
    validity: int | None = None
    team: str | None = None
    certificates: tuple[str, ...] = ()


def check(path, anchors, program=PROGRAM, **process):
    """The verdict on one path with the roots in the file `anchors`."""
    result = subprocess.run([program, anchors, path], capture_output=True, text=True, timeout=120,
                            **process)
    if result.returncode not in (0, 1):
        raise AssertionError(f"exit status {result.returncode}: {result.stderr}")
    lines = [line.partition(": ")[::2] for line in result.stdout.splitlines()]
    found = dict(lines)
    return Verdict(int(found["created"]),
                   int(found["validity"]) if "validity" in found else None, found.get("team"),
                   tuple(text for label, text in lines if label == "certificate"))


def check_unprivileged(path, anchors):
    """The verdict on a path in a folder of its own, for a user who is not root."""
    if os.geteuid() != 0:
        return check(path, anchors)
    path.parent.chmod(0o755)
    program = shutil.copy(PROGRAM, path.parent)  # others may have no access to the build folder
    return check(path, anchors, program, user=65534)


def super_blob(found):
    return blobs.super_blob(blobs.EMBEDDED_SIGNATURE, found)


def patched(data, offset, form, *values):
    """`data` with other values at an offset."""
    changed = bytearray(data)
    struct.pack_into(form, changed, offset, *values)
    return bytes(changed)


def flipped(data, offset):
    return patched(data, offset, "B", data[offset] ^ 0x01)


class SignedFileTestCase(unittest.TestCase):
    """Verdicts on files that a test signs in `directory`. The tests of a class share identities."""

    @classmethod
    def setUpClass(cls):
        holder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(holder.cleanup)
        cls.shared = pathlib.Path(holder.name)
        cls.identity = Identity.create(cls.shared / "identity")

    def setUp(self):
        holder = tempfile.TemporaryDirectory()
        self.addCleanup(holder.cleanup)
        self.directory = pathlib.Path(holder.name)

    def variant(self, name):
        return self.another_identity(name, **VARIANTS[name])

    def another_identity(self, name, **profile):
        return Identity.create(self.shared / name, **profile)

    def check(self, path, identity=None, anchors=None):
        return check(path, anchors or (identity or self.identity).anchor_path)

    def assert_validity(self, expected, path, identity=None, anchors=None):
        verdict = self.check(path, identity, anchors)
        self.assertEqual((verdict.created, verdict.validity), (0, expected))
        return verdict
