"""The simulator's signer and the Linux verifier, which share no code, must agree: whatever form the
one signs, the other accepts, and every change to it is found, with the platform's status.

Usage: signer_against_verifier_test.py CHECK_SIGNATURE [unittest argument...]
"""

import dataclasses
import datetime
import pathlib
import plistlib
import shutil
import struct
import subprocess
import sys
import tempfile
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2]))

from simulator.signing import (VARIANTS, Identity, Timestamp, blobs, macho, sign, sign_bundle,
                               sign_file, sign_macho)
from simulator.signing.layout import build_bundle
from simulator.signing.macho import Slice, build_fat, build_thin

COMMON_NAME = "Developer ID Application: Corvane SRL (QK7ZP2M9XD)"
TEAM = "QK7ZP2M9XD"
ELF = b"\x7fELF" + bytes(range(256)) * 40
LONG_AGO = datetime.datetime(2019, 12, 31, tzinfo=datetime.timezone.utc)

SUCCESS = 0
UNSIGNED = -67062
SIGNATURE_FAILED = -67061
RESOURCES_NOT_FOUND = -67056
RESOURCES_INVALID = -67055
BAD_RESOURCE = -67054
RESOURCE_RULES_INVALID = -67053
SIGNATURE_INVALID = -67045
INFO_PLIST_FAILED = -67030
RESOURCE_DIRECTORY_FAILED = -67023
BAD_NESTED_CODE = -67021
NOT_DECODED = -26275

program = None


@dataclasses.dataclass
class Answer:
    """The verifier's answer; `common_names` are those of the chain, empty text for none."""

    created: int
    validity: int
    team: str | None
    common_names: list


class AgreementTestCase(unittest.TestCase):
    """Identities that all tests share, and the verifier's answers."""

    @classmethod
    def setUpClass(cls):
        holder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(holder.cleanup)
        cls.shared = pathlib.Path(holder.name)
        cls.anchors = cls.shared / "anchors.pem"
        cls.identity = cls.make_identity("maker")

    @classmethod
    def make_identity(cls, name, **profile):
        """An identity, made once; its root is an anchor."""
        fresh = not (cls.shared / name).exists()
        identity = Identity.create(cls.shared / name, **profile)
        if fresh:
            with cls.anchors.open("a") as file:
                file.write(identity.anchor_path.read_text())
        return identity

    def setUp(self):
        holder = tempfile.TemporaryDirectory()
        self.addCleanup(holder.cleanup)
        self.directory = pathlib.Path(holder.name)

    def judge(self, path):
        """What the verifier says about a path."""
        done = subprocess.run([program, self.anchors, path], capture_output=True, timeout=60)
        self.assertIn(done.returncode, (0, 1), done.stderr)
        lines = [line.split(": ", 1) for line in done.stdout.decode().splitlines()]
        values = dict(lines)
        return Answer(int(values["created"]), int(values.get("validity", "-1")),
                      values.get("team"), [text for label, text in lines if label == "certificate"])

    def status(self, path):
        answer = self.judge(path)
        self.assertEqual(answer.created, SUCCESS)
        return answer.validity

    def assert_accepted(self, path, team=TEAM):
        """The signature is valid and names its signer."""
        answer = self.judge(path)
        self.assertEqual((answer.created, answer.validity), (SUCCESS, SUCCESS))
        self.assertEqual(answer.common_names, [COMMON_NAME, "Simulated Root CA Developer ID",
                                               "Simulated Root CA"])
        self.assertEqual(answer.team, team)

    def assert_nameless(self, path):
        """The signature is valid and names nobody."""
        self.assertEqual(self.judge(path), Answer(SUCCESS, SUCCESS, None, []))

    def make_file(self, content=ELF, name="agentsdk.dylib"):
        path = self.directory / name
        path.write_bytes(content)
        return path


def change(path, offset=None, old=None, new=None):
    """Flips a bit at `offset` of a file, or replaces `old`, which must be there."""
    data = bytearray(path.read_bytes())
    if old is None:
        data[offset] ^= 1
    else:
        if old not in data:
            raise AssertionError(f"{path} does not hold what was to be replaced")
        data = data.replace(old, new)
    path.write_bytes(data)


class PlainFileTest(AgreementTestCase):
    def test_every_form_is_accepted(self):
        rsa = self.make_identity("rsa", key_type="rsa")
        forms = {
            "default": {},
            "sha1": {"hashes": ("sha1",)},
            "sha256-truncated": {"hashes": ("sha256-truncated",)},
            "sha384": {"hashes": ("sha384",)},
            "alternates": {"hashes": ("sha1", "sha256", "sha384")},
            "all alternates": {"hashes": ("sha384", "sha256-truncated", "sha256", "sha1"),
                               "agility": (1,)},
            "one page": {"page_size": 0},
            "large pages": {"page_size": 14},
            "entitlements": {"entitlements": {"flag": True, "list": ["a", 1]}},
            "requirements": {"requirements": blobs.identifier_requirements("agent")},
            "no requirements": {"requirements": None},
            "no agility": {"agility": ()},
            "first agility": {"agility": (1,)},
            "timestamp": {"timestamp": Timestamp()},
            "signed long ago": {"signing_time": LONG_AGO},
            "old version": {"version": 0x20200},
            "new version": {"version": 0x20600},
            "leaf first": {"certificates": ("leaf", "intermediate", "root")},
            "root left out": {"certificates": ("leaf", "intermediate")},
        }
        path = self.make_file()
        for identity in (self.identity, rsa):
            for name, options in forms.items():
                with self.subTest(form=name, key=identity.profile.key_type):
                    sign_file(path, identity, **options)
                    self.assert_accepted(path)

    def test_every_size_is_accepted(self):
        for size in (0, 1, 4095, 4096, 4097, 8192, len(ELF)):
            for page_size in (0, 12):
                with self.subTest(size=size, page_size=page_size):
                    path = self.make_file(ELF[:size])
                    sign_file(path, self.identity, page_size=page_size)
                    self.assert_accepted(path)

    def test_code_without_certificates_is_valid_and_names_nobody(self):
        path = self.make_file()
        for options in ({"adhoc": True}, {"linker_signed": True}):
            with self.subTest(options=options):
                sign_file(path, **options)
                self.assert_nameless(path)

    def test_signer_without_a_common_name(self):
        path = self.make_file()
        sign_file(path, self.make_identity("no-common-name", **VARIANTS["no-common-name"]))
        answer = self.judge(path)
        self.assertEqual((answer.validity, answer.common_names[0]), (SUCCESS, ""))

    def test_every_part_of_the_signature_is_covered(self):
        path = self.make_file()
        sidecar = sign_file(path, self.identity, hashes=("sha1", "sha256"),
                            entitlements={"flag": True}, timestamp=Timestamp())
        whole = sidecar.read_bytes()
        count, = struct.unpack_from(">8xI", whole)
        for number in range(count):
            slot, offset = struct.unpack_from(">2I", whole, 12 + 8 * number)
            length, = struct.unpack_from(">I", whole, offset + 4)
            if length == 8:
                continue
            for position in (offset + 8, offset + length - 1):
                if slot == blobs.SLOT_CMS and position == offset + length - 1:
                    continue  # the last octets only end the message
                with self.subTest(slot=hex(slot), position=position - offset):
                    change(sidecar, position)
                    self.assertNotEqual(self.status(path), SUCCESS)
                    sidecar.write_bytes(whole)
        self.assertEqual(self.status(path), SUCCESS)

    def test_named_algorithm_must_be_the_signature_s(self):
        rsa = self.make_identity("rsa", key_type="rsa")
        path = self.make_file()
        with_rsa, with_ec = bytes.fromhex("2a864886f70d0101"), bytes.fromhex("2a8648ce3d0403")
        cases = (  # with the last octet of the identifier
            (rsa, with_rsa, 1, SUCCESS),  # RSA
            (rsa, with_rsa, 11, SUCCESS),  # RSA with SHA-256
            (rsa, with_rsa, 5, SIGNATURE_FAILED),  # RSA with SHA-1
            (rsa, with_rsa, 12, SIGNATURE_FAILED),  # RSA with SHA-384
            (rsa, with_rsa, 99, SIGNATURE_FAILED),  # nothing
            (self.identity, with_ec, 2, SUCCESS),  # ECDSA with SHA-256
            (self.identity, with_ec, 3, SIGNATURE_FAILED),  # ECDSA with SHA-384
            (self.identity, with_ec, 99, SIGNATURE_FAILED),  # nothing
        )
        for identity, stem, last, expected in cases:
            with self.subTest(stem=stem.hex(), last=last):
                sidecar = sign_file(path, identity)
                data = bytearray(sidecar.read_bytes())
                data[data.rindex(stem) + len(stem)] = last
                sidecar.write_bytes(data)
                self.assertEqual(self.status(path), expected)

    def test_two_hashes_by_one_algorithm(self):
        path = self.make_file()
        sign_file(path, self.identity, hashes=("sha256", "sha256-truncated"))
        self.assertEqual(self.status(path), NOT_DECODED)


class MachOTest(AgreementTestCase):
    def test_every_processor_and_form(self):
        forms = (
            {},
            {"hashes": ("sha1", "sha256"), "entitlements": {"flag": True}},
            {"page_size": 14, "timestamp": Timestamp()},
            {"hashes": ("sha384",), "requirements": blobs.identifier_requirements("agent")},
        )
        plist = plistlib.dumps({"CFBundleIdentifier": "com.example.agent"})
        for processor in macho.PROCESSORS:
            for file_type in ("execute", "dylib", "bundle"):
                path = self.make_file(build_thin(Slice(processor, file_type, info_plist=plist)))
                for options in forms:
                    with self.subTest(processor=processor, type=file_type, options=options):
                        sign_macho(path, self.identity, **options)
                        self.assert_accepted(path)

    def test_universal_files(self):
        for pieces in ((Slice("x86_64"), Slice("arm64", seed=1)),
                       (Slice("arm64e"), Slice("arm64"), Slice("x86_64"), Slice("x86_64h")),
                       (Slice("ppc"), Slice("i386"))):
            with self.subTest(pieces=pieces):
                path = self.make_file(build_fat(pieces))
                sign_macho(path, self.identity)
                self.assert_accepted(path)

    def test_code_without_certificates(self):
        for options in ({"adhoc": True}, {"linker_signed": True}):
            path = self.make_file(build_fat([Slice("x86_64"), Slice("arm64")]))
            sign_macho(path, **options)
            self.assert_nameless(path)

    def test_change_in_any_slice_is_found(self):
        path = self.make_file(build_fat([Slice("x86_64"), Slice("arm64"), Slice("ppc")]))
        sign_macho(path, self.identity)
        table, _ = macho.split_fat(path.read_bytes())
        for number in range(len(table)):
            offset, = struct.unpack_from(">I", path.read_bytes(), 8 + 20 * number + 8)
            with self.subTest(slice=number):
                change(path, offset + 0x800)
                self.assertEqual(self.status(path), SIGNATURE_FAILED)
                change(path, offset + 0x800)
        self.assertEqual(self.status(path), SUCCESS)

    def test_hidden_slice(self):
        data = build_fat([Slice("arm"), Slice("arm64")], hidden_arm64=True)
        path = self.make_file(data)
        sign_macho(path, self.identity)
        self.assert_accepted(path)
        path = self.make_file(data)
        sign_macho(path, self.identity, slices=(0,))
        self.assertEqual(self.status(path), UNSIGNED)

    def test_parts_are_covered(self):
        plist = plistlib.dumps({"CFBundleIdentifier": "com.example.agent"})
        cases = {
            "code": (lambda data: 0x900, SIGNATURE_FAILED),
            "information": (lambda data: data.index(b"CFBundleIdentifier"), INFO_PLIST_FAILED),
            "entitlements": (lambda data: data.index(b"com.example.flag"), SIGNATURE_FAILED),
            "requirements": (lambda data: data.rindex(b"sealed.name"), SIGNATURE_FAILED),
            "team": (lambda data: data.index(TEAM.encode()), SIGNATURE_FAILED),
            "room": (lambda data: data.index(bytes.fromhex("fade0cc0")), SIGNATURE_INVALID),
        }
        for name, (find, expected) in cases.items():
            with self.subTest(name=name):
                path = self.make_file(build_thin(Slice(info_plist=plist)))
                sign_macho(path, self.identity, entitlements={"com.example.flag": True},
                           requirements=blobs.identifier_requirements("sealed.name"))
                change(path, find(path.read_bytes()))
                self.assertEqual(self.status(path), expected)


class BundleTest(AgreementTestCase):
    FORMS = {"contents": "Contents", "resources": "", "support-files": "Support Files", "flat": "",
             "framework": "Versions/A"}
    FILES = {"Resources/a.txt": b"a", "Resources/en.lproj/b.strings": b"b",
             "Resources/link": "a.txt", "version.plist": b"v"}

    def build(self, executable=None, form="contents", name="Agent", files=None):
        suffix = {"framework": "framework"}.get(form, "app")
        return build_bundle(self.directory / f"{name}.{suffix}", executable or build_thin(),
                            form=form, files=self.FILES if files is None else files)

    def signed(self, executable=None, form="contents", **options):
        bundle = self.build(executable, form)
        sign_bundle(bundle, self.identity, **options)
        return bundle, bundle / self.FORMS[form]

    def test_every_form_is_accepted(self):
        universal = build_fat([Slice("x86_64", "execute"), Slice("arm64", "execute")])
        for form in self.FORMS:
            for number, executable in enumerate((build_thin(), universal, ELF)):
                for version, hashes in ((1, ("sha1",)), (2, ("sha256",))):
                    bundle = self.build(executable, form, f"Agent{form}{number}{version}")
                    with self.subTest(form=form, executable=number, version=version):
                        sign_bundle(bundle, self.identity, resource_version=version, hashes=hashes)
                        self.assert_accepted(bundle)

    def test_every_hash_type_is_accepted(self):
        for executable in (build_thin(), ELF):
            for hashes in (("sha1",), ("sha1", "sha256"), ("sha384", "sha256-truncated")):
                with self.subTest(hashes=hashes):
                    bundle, _ = self.signed(executable, hashes=hashes,
                                            entitlements={"flag": True}, timestamp=Timestamp())
                    self.assert_accepted(bundle)
                    shutil.rmtree(bundle)

    def test_executable_stands_for_its_bundle(self):
        for executable in (build_thin(), ELF):
            bundle, root = self.signed(executable)
            self.assert_accepted(root / "MacOS/Agent")
            (root / "Resources/a.txt").write_bytes(b"changed")
            self.assertEqual(self.status(root / "MacOS/Agent"), BAD_RESOURCE)
            shutil.rmtree(bundle)

    def test_adhoc(self):
        for number, executable in enumerate((build_thin(), ELF)):
            bundle = self.build(executable, name=f"Agent{number}")
            sign_bundle(bundle, adhoc=True)
            self.assert_nameless(bundle)

    def test_changes_are_found(self):
        def retarget(root):
            (root / "Resources/link").unlink()
            (root / "Resources/link").symlink_to("version.plist")

        def replace_by_link(root):
            (root / "Resources/a.txt").rename(root / "Resources/.DS_Store")
            (root / "Resources/a.txt").symlink_to(".DS_Store")

        seal = "_CodeSignature/CodeResources"
        cases = {
            "nothing": (lambda root: None, SUCCESS),
            "altered": (lambda root: (root / "Resources/a.txt").write_bytes(b"x"), BAD_RESOURCE),
            "missing": (lambda root: (root / "Resources/a.txt").unlink(), BAD_RESOURCE),
            "added": (lambda root: (root / "Resources/new").write_bytes(b""), BAD_RESOURCE),
            "added at the top": (lambda root: (root / "new").write_bytes(b""), BAD_RESOURCE),
            "other link": (retarget, BAD_RESOURCE),
            "link for a file": (replace_by_link, BAD_RESOURCE),
            "optional missing":
                (lambda root: (root / "Resources/en.lproj/b.strings").unlink(), SUCCESS),
            "optional altered":
                (lambda root: (root / "Resources/en.lproj/b.strings").write_bytes(b"x"),
                 BAD_RESOURCE),
            "omitted added":
                (lambda root: (root / "Resources/.DS_Store").write_bytes(b""), SUCCESS),
            "empty folder": (lambda root: (root / "Resources/folder").mkdir(), SUCCESS),
            "information": (lambda root: change(root / "Info.plist", old=b"1.0", new=b"1.1"),
                            INFO_PLIST_FAILED),
            "no information values": (lambda root: (root / "Info.plist").write_bytes(
                plistlib.dumps({"CFBundleExecutable": "Agent"})), INFO_PLIST_FAILED),
            "seal": (lambda root: change(root / seal, old=b"a.txt", new=b"b.txt"),
                     RESOURCE_DIRECTORY_FAILED),
            "no seal": (lambda root: (root / seal).unlink(), RESOURCE_DIRECTORY_FAILED),
            "code": (lambda root: change(root / "MacOS/Agent", 0x900), SIGNATURE_FAILED),
        }
        for executable in (build_thin(), ELF):
            for name, (alter, expected) in cases.items():
                with self.subTest(name=name, macho=executable != ELF):
                    bundle, root = self.signed(executable)
                    alter(root)
                    self.assertEqual(self.status(bundle), expected)
                    shutil.rmtree(bundle)

    def test_component_files_are_covered(self):
        bundle, root = self.signed(ELF, hashes=("sha1", "sha256"), entitlements={"flag": True})
        for part in sorted((root / "_CodeSignature").iterdir()):
            content = part.read_bytes()
            with self.subTest(part=part.name):
                part.write_bytes(content[:12] + bytes([content[12] ^ 1]) + content[13:]
                                 if len(content) > 12 else content + b"x")
                self.assertNotEqual(self.status(bundle), SUCCESS)
                part.write_bytes(content)
        self.assertEqual(self.status(bundle), SUCCESS)
        (root / "_CodeSignature/CodeSignature").unlink()
        self.assertEqual(self.status(bundle), UNSIGNED)

    def test_unsigned(self):
        for number, executable in enumerate((build_thin(), ELF)):
            self.assertEqual(self.status(self.build(executable, name=f"A{number}")), UNSIGNED)

    def test_executable_that_was_signed_outside(self):
        bundle = self.build()
        sign_macho(bundle / "Contents/MacOS/Agent", linker_signed=True)
        self.assertEqual(self.status(bundle), RESOURCES_NOT_FOUND)

    def test_first_seal_version_finds_changes(self):
        bundle, root = self.signed(resource_version=1, hashes=("sha1",))
        (root / "data.txt").write_bytes(b"outside of the first version's rules")
        self.assertEqual(self.status(bundle), SUCCESS)
        (root / "Resources/a.txt").write_bytes(b"x")
        self.assertEqual(self.status(bundle), BAD_RESOURCE)

    def test_added_rules(self):
        bundle, root = self.signed(rules={"^Resources/cache/": {"omit": True, "weight": 50.0}})
        (root / "Resources/cache").mkdir()
        (root / "Resources/cache/x").write_bytes(b"x")
        self.assertEqual(self.status(bundle), SUCCESS)

    def test_bad_rule(self):
        bundle, _ = self.signed(rules={"^Resources/x": {"weight": "heavy"}})
        self.assertEqual(self.status(bundle), RESOURCE_RULES_INVALID)


class NestedCodeTest(AgreementTestCase):
    def outer(self, **options):
        self.bundle = self.directory / "Agent.app"
        shutil.rmtree(self.bundle, ignore_errors=True)
        return build_bundle(self.bundle, build_thin(), **options)

    def library(self, content, identity=None, **options):
        path = self.outer() / "Contents/Frameworks/lib.dylib"
        path.parent.mkdir()
        path.write_bytes(content)
        sign(path, identity, **options)
        return path

    def test_every_kind_is_accepted(self):
        universal = build_fat([Slice("x86_64"), Slice("arm64")])
        for content in (build_thin(), universal, ELF):
            for identity, options in ((self.identity, {}), (None, {"adhoc": True}),
                                      (self.identity, {"team_identifier": None})):
                with self.subTest(size=len(content), options=options):
                    self.library(content, identity, **options)
                    sign_bundle(self.bundle, self.identity)
                    self.assert_accepted(self.bundle)

    def test_nested_bundles_are_accepted(self):
        for form, name in (("contents", "Inner.app"), ("framework", "Inner.framework"),
                           ("contents", "Inner.xpc")):
            for executable in (build_thin(), ELF):
                with self.subTest(name=name, macho=executable != ELF):
                    inner = build_bundle(self.outer() / "Contents/Frameworks" / name, executable,
                                         form=form, identifier="com.example.inner",
                                         files={"Resources/x": b"x"})
                    sign_bundle(inner, self.identity)
                    sign_bundle(self.bundle, self.identity)
                    self.assert_accepted(self.bundle)

    def test_another_signer_s_code_is_found(self):
        library = self.library(build_thin(), self.identity)
        sign_bundle(self.bundle, self.identity)
        other = self.make_identity("other", team_identifier="OTHER")
        sign_macho(library, other)
        self.assertEqual(self.status(self.bundle), BAD_NESTED_CODE)

    def test_other_code_is_found_where_the_hash_is_sealed(self):
        library = self.library(build_thin(), adhoc=True)
        sign_bundle(self.bundle, self.identity)
        library.write_bytes(build_thin(Slice(seed=9)))
        sign_macho(library, adhoc=True)
        self.assertEqual(self.status(self.bundle), BAD_NESTED_CODE)

    def test_unsigned_code_is_found(self):
        library = self.library(build_thin(), self.identity)
        sign_bundle(self.bundle, self.identity)
        library.write_bytes(build_thin())
        self.assertEqual(self.status(self.bundle), UNSIGNED)

    def test_missing_and_added_code_is_found(self):
        library = self.library(build_thin(), self.identity)
        sign_bundle(self.bundle, self.identity)
        shutil.copy(library, library.with_name("added.dylib"))
        self.assertEqual(self.status(self.bundle), BAD_RESOURCE)
        library.with_name("added.dylib").unlink()
        library.unlink()
        self.assertEqual(self.status(self.bundle), BAD_RESOURCE)

    def test_requirement_texts(self):
        leaf = "certificate leaf"
        cases = {
            'identifier "lib.dylib"': SUCCESS,
            "identifier other": BAD_NESTED_CODE,
            f"{leaf}[subject.OU] = {TEAM}": SUCCESS,
            f'{leaf}[subject.CN] = "{COMMON_NAME}"': SUCCESS,
            f"{leaf}[subject.OU] = OTHER": BAD_NESTED_CODE,
            f"{leaf}[subject.OU] = OTHER or identifier \"lib.dylib\"": SUCCESS,
            f"{leaf}[subject.OU] = OTHER and identifier \"lib.dylib\"": BAD_NESTED_CODE,
            f"! ({leaf}[subject.OU] = OTHER)": SUCCESS,
            "certificate 1[field.1.2.840.113635.100.6.2.6] exists": SUCCESS,
            "certificate root[field.1.2.840.113635.100.6.2.6] exists": BAD_NESTED_CODE,
            "anchor apple generic": BAD_NESTED_CODE,
            "identifier": RESOURCES_INVALID,
        }
        self.library(build_thin(), self.identity)
        for text, expected in cases.items():
            with self.subTest(text=text):
                sign_bundle(self.bundle, self.identity,
                            nested_requirements={"Frameworks/lib.dylib": text})
                self.assertEqual(self.status(self.bundle), expected)


if __name__ == "__main__":
    program = sys.argv.pop(1)
    unittest.main()
