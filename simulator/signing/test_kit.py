"""What the signer's tests share: a reader of signatures that is no part of the signer, and the
openssl command's judgement on messages."""

import dataclasses
import hashlib
import pathlib
import struct
import subprocess
import tempfile
import unittest

from simulator.signing import Identity

DIGESTS = {1: ("sha1", 20), 2: ("sha256", 32), 3: ("sha256", 20), 4: ("sha384", 48)}


def digest(kind, data):
    algorithm, size = DIGESTS[kind]
    return hashlib.new(algorithm, data).digest()[:size]


@dataclasses.dataclass
class Directory:
    """A CodeDirectory as the test reads it."""

    raw: bytes
    version: int
    flags: int
    identifier: str
    team: str | None
    limit: int
    hash_type: int
    page_size: int
    special: dict
    pages: list


def read_directory(raw):
    (magic, length, version, flags, hashes, identifier, special_count, count, limit, size, kind,
     platform, page_size, spare) = struct.unpack_from(">9I4BI", raw)
    assert (magic, length, platform, spare) == (0xFADE0C02, len(raw), 0, 0)
    assert size == DIGESTS[kind][1]

    def text(offset):
        return raw[offset:raw.index(b"\0", offset)].decode()

    def slot(number):
        return raw[hashes + number * size:hashes + (number + 1) * size]

    team = struct.unpack_from(">I", raw, 48)[0] if version >= 0x20200 else 0
    assert hashes + count * size == length
    return Directory(raw, version, flags, text(identifier), text(team) if team else None, limit,
                     kind, page_size,
                     {number: slot(-number) for number in range(1, special_count + 1)
                      if any(slot(-number))},
                     [slot(number) for number in range(count)])


def read_super_blob(raw, magic=0xFADE0CC0):
    """The blobs of a SuperBlob by type; checks that they lie one after the other."""
    found_magic, length, count = struct.unpack_from(">III", raw)
    assert (found_magic, length) == (magic, len(raw))
    end, found = 12 + 8 * count, {}
    for number in range(count):
        kind, offset = struct.unpack_from(">II", raw, 12 + 8 * number)
        assert offset == end and kind not in found
        end += struct.unpack_from(">I", raw, offset + 4)[0]
        found[kind] = raw[offset:end]
    assert end == length
    return found


class SigningTestCase(unittest.TestCase):
    """A temporary directory and an identity that all tests of a run share."""

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

    def make_file(self, size=10000, name="agentsdk.dylib"):
        path = self.directory / name
        path.write_bytes(bytes(number * 7 % 251 for number in range(size)))
        return path

    def assert_pages(self, directory, code):
        step = 1 << directory.page_size if directory.page_size else max(len(code), 1)
        self.assertEqual(directory.pages, [digest(directory.hash_type, code[start:start + step])
                                           for start in range(0, len(code), step)])

    def cms_verifies(self, message, content, identity=None, *options):
        """Whether openssl accepts a detached message, its chain ending in the identity's root."""
        (self.directory / "message").write_bytes(message)
        (self.directory / "content").write_bytes(content)
        anchor = (identity or self.identity).anchor_path
        return subprocess.run(
            ["openssl", "cms", "-verify", "-binary", "-inform", "DER",
             "-in", self.directory / "message", "-content", self.directory / "content",
             "-out", self.directory / "verified", "-purpose", "any", "-ignore_critical",
             "-CAfile", anchor, *options], capture_output=True).returncode == 0

    def cms_text(self, message):
        return subprocess.run(["openssl", "cms", "-cmsout", "-print", "-noout", "-inform", "DER"],
                              input=message, capture_output=True, check=True).stdout.decode()
