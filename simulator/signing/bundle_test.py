"""Tests of bundles: what is sealed, file by file, and what binds the seal to the executable."""

import hashlib
import os
import plistlib
import struct
import unittest

from simulator.signing import SigningError, macho, sign, sign_bundle, sign_file, sign_macho
from simulator.signing.layout import build_bundle
from simulator.signing.test_kit import SigningTestCase, digest, read_directory, read_super_blob

ELF = b"\x7fELF" + bytes(range(256)) * 20
ROOTS = {"contents": "Contents", "resources": "", "support-files": "Support Files", "flat": "",
         "framework": "Versions/A"}
INFORMATION = {"contents": "Contents/Info.plist", "resources": "Resources/Info.plist",
               "support-files": "Support Files/Info.plist", "flat": "Info.plist",
               "framework": "Versions/A/Resources/Info.plist"}
EXECUTABLES = {"contents": "Contents/MacOS/Agent", "resources": "Agent", "flat": "Agent",
               "support-files": "Support Files/Executables/MacOS/Agent",
               "framework": "Versions/A/Agent"}


class BundleTestCase(SigningTestCase):
    def build(self, executable=None, form="contents", name="Agent.app", **arguments):
        name = "Agent.framework" if form == "framework" else name
        return build_bundle(self.directory / name, executable or macho.build_thin(), form=form,
                            **arguments)

    def seal(self, bundle, form="contents"):
        return plistlib.loads(self.seal_path(bundle, form).read_bytes())

    def seal_path(self, bundle, form="contents"):
        return bundle / ROOTS[form] / "_CodeSignature" / "CodeResources"

    def embedded(self, path):
        data = path.read_bytes()
        start = data.rindex(bytes.fromhex("fade0cc0"))
        length, = struct.unpack_from(">I", data, start + 4)
        return data[:start], read_super_blob(data[start:start + length])


class LayoutTest(BundleTestCase):
    def test_macho_executable_in_every_form(self):
        for form, executable in EXECUTABLES.items():
            with self.subTest(form=form):
                bundle = self.build(form=form, name=f"Agent.{form}")
                sign_bundle(bundle, self.identity)
                code, found = self.embedded(bundle / executable)
                directory = read_directory(found[0])
                self.assert_pages(directory, code)
                self.assertEqual(directory.identifier, "com.example.agent")
                self.assertEqual(directory.special, {
                    1: digest(2, (bundle / INFORMATION[form]).read_bytes()),
                    2: digest(2, found[2]),
                    3: digest(2, self.seal_path(bundle, form).read_bytes())})
                self.assertTrue(self.cms_verifies(found[0x10000][8:], found[0]))
                self.assertEqual(os.listdir(self.seal_path(bundle, form).parent),
                                 ["CodeResources"])

    def test_other_executable_keeps_its_components_in_files(self):
        for form, executable in EXECUTABLES.items():
            with self.subTest(form=form):
                bundle = self.build(ELF, form, name=f"Agent.{form}")
                sign_bundle(bundle, self.identity, hashes=("sha1", "sha256"),
                            entitlements={"flag": True})
                parts = {each.name: each.read_bytes()
                         for each in self.seal_path(bundle, form).parent.iterdir()}
                self.assertEqual(sorted(parts), [
                    "CodeDirectory", "CodeEntitlementDER", "CodeEntitlements",
                    "CodeRequirements", "CodeRequirements-1", "CodeResources", "CodeSignature"])
                for name, kind in (("CodeDirectory", 1), ("CodeRequirements-1", 2)):
                    directory = read_directory(parts[name])
                    self.assert_pages(directory, ELF)
                    self.assertEqual(directory.special, {
                        1: digest(kind, (bundle / INFORMATION[form]).read_bytes()),
                        2: digest(kind, parts["CodeRequirements"]),
                        3: digest(kind, parts["CodeResources"]),
                        5: digest(kind, parts["CodeEntitlements"]),
                        7: digest(kind, parts["CodeEntitlementDER"])})
                self.assertTrue(self.cms_verifies(parts["CodeSignature"], parts["CodeDirectory"]))
                self.assertEqual((bundle / executable).read_bytes(), ELF)

    def test_executable_without_a_name_is_called_like_the_bundle(self):
        bundle = self.build(ELF)
        (bundle / "Contents/Info.plist").write_bytes(plistlib.dumps({"Other": 1}))
        sign_bundle(bundle, self.identity)
        directory = read_directory((bundle / "Contents/_CodeSignature/CodeDirectory").read_bytes())
        self.assertEqual(directory.identifier, "Agent")
        self.assert_pages(directory, ELF)

    def test_bundle_without_an_executable_signs_its_property_list(self):
        bundle = self.build(ELF)
        (bundle / "Contents/MacOS/Agent").unlink()
        sign_bundle(bundle, self.identity)
        directory = read_directory((bundle / "Contents/_CodeSignature/CodeDirectory").read_bytes())
        self.assert_pages(directory, (bundle / "Contents/Info.plist").read_bytes())

    def test_signing_again_replaces_everything(self):
        bundle = self.build(ELF)
        sign_bundle(bundle, self.identity, hashes=("sha1", "sha256"))
        (bundle / "Contents/MacOS/Agent").write_bytes(macho.build_thin())
        sign_bundle(bundle, self.identity)
        self.assertEqual(os.listdir(bundle / "Contents/_CodeSignature"), ["CodeResources"])

    def test_what_cannot_be_signed(self):
        empty = self.directory / "Empty.app"
        empty.mkdir()
        with self.assertRaisesRegex(SigningError, "is no bundle"):
            sign_bundle(empty, self.identity)
        with self.assertRaisesRegex(SigningError, "cannot read"):
            sign_bundle(self.directory / "absent.app", self.identity)
        with self.assertRaisesRegex(SigningError, "sign the executable alone"):
            sign_bundle(self.build(), linker_signed=True)
        with self.assertRaisesRegex(SigningError, "version 3"):
            sign_bundle(self.build(name="Other.app"), self.identity, resource_version=3)
        with self.assertRaisesRegex(SigningError, "but SHA-1"):
            sign_bundle(self.directory / "Other.app", self.identity, resource_version=1)
        with self.assertRaisesRegex(SigningError, "no regular expression"):
            sign_bundle(self.directory / "Other.app", self.identity, rules={"(": True})


class SealTest(BundleTestCase):
    FILES = {
        "PkgInfo": b"APPL????",
        "version.plist": b"v",
        "data.txt": b"top",
        "Resources/icon.icns": b"icon",
        "Resources/.DS_Store": b"junk",
        "Resources/en.lproj/Main.strings": b"strings",
        "Resources/en.lproj/locversion.plist": b"l",
        "Resources/Base.lproj/Main.nib": b"nib",
        "Resources/link": "icon.icns",
        "Resources/folder.d/inner.txt": b"inner",
        "Resources/folder-link": "folder.d",
    }

    def hashed(self, name, **more):
        return {"hash2": hashlib.sha256(self.FILES[name]).digest(), **more}

    def test_second_version_seals_every_file(self):
        bundle = self.build(files=self.FILES)
        sign_bundle(bundle, self.identity)
        self.assertEqual(self.seal(bundle)["files2"], {
            "version.plist": self.hashed("version.plist"),
            "data.txt": self.hashed("data.txt"),
            "Resources/icon.icns": self.hashed("Resources/icon.icns"),
            "Resources/en.lproj/Main.strings":
                self.hashed("Resources/en.lproj/Main.strings", optional=True),
            "Resources/Base.lproj/Main.nib": self.hashed("Resources/Base.lproj/Main.nib"),
            "Resources/link": {"symlink": "icon.icns"},
            "Resources/folder.d/inner.txt": self.hashed("Resources/folder.d/inner.txt"),
            "Resources/folder-link": {"symlink": "folder.d"},
        })

    def test_first_version_seals_resources_with_sha1(self):
        bundle = self.build(files=self.FILES)
        sign_bundle(bundle, self.identity, resource_version=1, hashes=("sha1",))
        seal = self.seal(bundle)
        self.assertEqual(sorted(seal), ["files", "rules"])
        sha1 = {name: hashlib.sha1(content).digest() for name, content in self.FILES.items()
                if isinstance(content, bytes)}
        self.assertEqual(seal["files"], {
            "version.plist": sha1["version.plist"],
            "Resources/icon.icns": sha1["Resources/icon.icns"],
            "Resources/.DS_Store": sha1["Resources/.DS_Store"],
            "Resources/en.lproj/Main.strings":
                {"hash": sha1["Resources/en.lproj/Main.strings"], "optional": True},
            "Resources/Base.lproj/Main.nib": sha1["Resources/Base.lproj/Main.nib"],
            "Resources/folder.d/inner.txt": sha1["Resources/folder.d/inner.txt"],
        })

    def test_files_are_hashed_as_the_code_directories_are(self):
        bundle = self.build(files={"Resources/a": b"a"})
        sign_bundle(bundle, self.identity,
                    hashes=("sha1", "sha256", "sha256-truncated", "sha384"))
        self.assertEqual(self.seal(bundle)["files2"]["Resources/a"], {
            "hash": digest(1, b"a"), "hash2": digest(2, b"a"), "hash3": digest(3, b"a"),
            "hash4": digest(4, b"a")})

    def test_added_rules(self):
        bundle = self.build(files={"Resources/cache/x": b"x", "Resources/keep": b"y"})
        rules = {"^Resources/cache/": {"omit": True, "weight": 50.0}}
        sign_bundle(bundle, self.identity, rules=rules)
        seal = self.seal(bundle)
        self.assertEqual(list(seal["files2"]), ["Resources/keep"])
        self.assertEqual(seal["rules2"]["^Resources/cache/"], rules["^Resources/cache/"])

    def test_flat_bundle_seals_its_root(self):
        bundle = self.build(form="flat", files={"data.txt": b"top", "en.lproj/a.strings": b"s",
                                                "PkgInfo": b"APPL????"})
        sign_bundle(bundle, self.identity)
        self.assertEqual(self.seal(bundle, "flat")["files2"], {
            "data.txt": {"hash2": digest(2, b"top")},
            "en.lproj/a.strings": {"hash2": digest(2, b"s"), "optional": True}})

    def test_framework_seals_its_property_list_as_a_resource(self):
        bundle = self.build(form="framework")
        sign_bundle(bundle, self.identity)
        content = (bundle / "Resources/Info.plist").read_bytes()
        self.assertEqual(self.seal(bundle, "framework")["files2"],
                         {"Resources/Info.plist": {"hash2": digest(2, content)}})


class NestedCodeTest(BundleTestCase):
    REQUIREMENT = (' and certificate 1[field.1.2.840.113635.100.6.2.6] /* exists */'
                   ' and certificate leaf[field.1.2.840.113635.100.6.1.13] /* exists */'
                   ' and certificate leaf[subject.OU] = QK7ZP2M9XD')

    def nested(self, name, content, bundle=None):
        bundle = bundle or self.build()
        path = bundle / "Contents" / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(content)
        return bundle, path

    def cdhash(self, found, slot=0):
        return hashlib.sha256(found[slot]).digest()[:20]

    def test_signed_library_is_sealed_by_requirement(self):
        bundle, library = self.nested("Frameworks/agent.dylib", macho.build_thin())
        sign_macho(library, self.identity, hashes=("sha1", "sha256"))
        sign_bundle(bundle, self.identity)
        _, found = self.embedded(library)
        self.assertEqual(self.seal(bundle)["files2"]["Frameworks/agent.dylib"], {
            "cdhash": self.cdhash(found, 0x1000),
            "requirement": 'identifier "agent.dylib"' + self.REQUIREMENT})

    def test_adhoc_universal_library_is_sealed_by_every_cdhash(self):
        data = macho.build_fat([macho.Slice("x86_64"), macho.Slice("arm64")])
        bundle, library = self.nested("Frameworks/agent.dylib", data)
        sign_macho(library, adhoc=True)
        sign_bundle(bundle, self.identity)
        entry = self.seal(bundle)["files2"]["Frameworks/agent.dylib"]
        _, found = self.embedded(library)
        self.assertEqual(entry["cdhash"], self.cdhash(found))
        first, second = entry["requirement"].split(" or ")
        self.assertEqual(first, f'cdhash H"{self.cdhash(found).hex()}"')
        self.assertRegex(second, r'^cdhash H"[0-9a-f]{40}"$')
        self.assertNotEqual(first, second)

    def test_nested_bundle_is_sealed_as_a_whole(self):
        for executable in (macho.build_thin(), ELF):
            bundle = self.build(name=f"Outer{len(executable)}.app")
            inner = build_bundle(bundle / "Contents/Helpers/Inner.app", executable,
                                 identifier="com.example.inner",
                                 files={"Resources/x": b"x"})
            sign_bundle(inner, self.identity, team_identifier="1TEAM")
            sign_bundle(bundle, self.identity)
            files = self.seal(bundle)["files2"]
            self.assertEqual(list(files), ["Helpers/Inner.app"])
            self.assertEqual(
                files["Helpers/Inner.app"]["requirement"],
                'identifier "com.example.inner"' + self.REQUIREMENT.replace("QK7ZP2M9XD",
                                                                            '"1TEAM"'))

    def test_nested_framework(self):
        bundle = self.build()
        inner = build_bundle(bundle / "Contents/Frameworks/Inner.framework", macho.build_thin(),
                             form="framework", identifier="com.example.inner")
        sign(inner, self.identity)
        sign(bundle, self.identity)
        self.assertEqual(list(self.seal(bundle)["files2"]), ["Frameworks/Inner.framework"])

    def test_other_library_and_its_signature_file(self):
        bundle, library = self.nested("Frameworks/agent.so", ELF)
        sidecar = sign_file(library, self.identity)
        sign_bundle(bundle, self.identity)
        files = self.seal(bundle)["files2"]
        self.assertEqual(files["Frameworks/agent.so.codesignature"],
                         {"hash2": digest(2, sidecar.read_bytes())})
        self.assertEqual(sorted(files["Frameworks/agent.so"]), ["cdhash", "requirement"])

    def test_unsigned_file_in_a_place_of_code_is_sealed_as_a_file(self):
        bundle, script = self.nested("MacOS/helper.sh", b"#!/bin/sh\n")
        sign_bundle(bundle, self.identity)
        self.assertEqual(self.seal(bundle)["files2"],
                         {"MacOS/helper.sh": {"hash2": digest(2, script.read_bytes())}})

    def test_damaged_signature_is_none(self):
        bundle, library = self.nested("Frameworks/agent.so", ELF)
        for damage in (b"", bytes.fromhex("fade0cc0") + b"\xff" * 40,
                       bytes.fromhex("fade0cc00000000c00000000")):
            library.with_name("agent.so.codesignature").write_bytes(damage)
            sign_bundle(bundle, self.identity)
            self.assertEqual(list(self.seal(bundle)["files2"]["Frameworks/agent.so"]), ["hash2"])

    def test_unsigned_nested_bundle_is_refused(self):
        bundle = self.build()
        build_bundle(bundle / "Contents/PlugIns/Inner.bundle", macho.build_thin())
        with self.assertRaisesRegex(SigningError, "must be signed first"):
            sign_bundle(bundle, self.identity)

    def test_requirement_can_be_replaced(self):
        bundle, library = self.nested("Frameworks/agent.dylib", macho.build_thin())
        sign_macho(library, self.identity)
        sign_bundle(bundle, self.identity,
                    nested_requirements={"Frameworks/agent.dylib": "anchor apple"})
        entry = self.seal(bundle)["files2"]["Frameworks/agent.dylib"]
        self.assertEqual(entry["requirement"], "anchor apple")


if __name__ == "__main__":
    unittest.main()
