"""The packaging scripts, run with stand-ins for the commands of macOS."""

import os
import subprocess
import tempfile
import unittest
from pathlib import Path

SCRIPTS = Path(__file__).resolve().parents[2] / "packaging" / "macos"
APPLICATION = 'echo \'  1) AB "Developer ID Application: Corvane SRL (QK7ZP2M9XD)"\''
INSTALLER = 'echo \'  1) CD "Developer ID Installer: Corvane SRL (QK7ZP2M9XD)"\''
SLICES = "echo x86_64 arm64"


class PackagingTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)
        (self.folder / "bin").mkdir()
        self.binary = self.folder / "KXTool"
        self.binary.write_text('#!/bin/sh\n[ "$1" = -getVersion ] && printf 1.0.0.206\n')
        self.binary.chmod(0o755)
        self.package = self.folder / "KXTool.pkg"

    def stand_in(self, **commands):
        """Each command notes its arguments, and then does what its text says."""
        for name, text in commands.items():
            path = self.folder / "bin" / name
            path.write_text(f'#!/bin/bash\necho "{name} $*" >>"{self.folder}/calls"\n{text}\n')
            path.chmod(0o755)

    def run_script(self, name, *arguments):
        """Returns the exit status and the error text."""
        path = f"{self.folder}/bin:{os.environ['PATH']}"
        done = subprocess.run(["bash", SCRIPTS / name, *map(str, arguments)], text=True, check=False,
                              capture_output=True, env={**os.environ, "PATH": path})
        return done.returncode, done.stderr

    def calls(self):
        return (self.folder / "calls").read_text().splitlines()

    def assert_fails(self, message, name, *arguments):
        status, errors = self.run_script(name, *arguments)
        self.assertNotEqual(status, 0)
        self.assertIn(message, errors)

    def test_each_script_tells_its_usage(self):
        for script in ("sign.sh", "package.sh", "notarize.sh", "install.sh"):
            self.assert_fails(f"usage: {script} ", script)
        self.assert_fails("usage: uninstall.sh", "uninstall.sh", "more")

    def test_each_script_tells_what_is_missing(self):
        missing = self.folder / "missing.pkg"
        for script, more in (("sign.sh", ()), ("package.sh", ("x.pkg",)), ("notarize.sh", ("p",)),
                             ("install.sh", ())):
            self.assert_fails(f"there is no file {missing}", script, missing, *more)
        self.assert_fails("codesign is missing", "sign.sh", self.binary)

    def test_signs_with_the_hardened_runtime_and_no_entitlement(self):
        self.stand_in(lipo=SLICES, security=APPLICATION, codesign="echo TeamIdentifier=QK7ZP2M9XD")
        self.assertEqual(self.run_script("sign.sh", self.binary), (0, ""))
        self.assertIn("codesign --force --timestamp --options runtime --identifier com.corvane.KXTool "
                      f"--sign Developer ID Application: Corvane SRL (QK7ZP2M9XD) {self.binary}",
                      self.calls())
        self.assertFalse([call for call in self.calls() if "entitlements" in call])

    def test_signs_no_thin_binary(self):
        self.stand_in(lipo="echo arm64", security=APPLICATION, codesign="")
        self.assert_fails("has the slices arm64", "sign.sh", self.binary)

    def test_signs_as_no_other_team(self):
        self.stand_in(lipo=SLICES, codesign="echo TeamIdentifier=QK7ZP2M9XD",
                      security='echo \'  1) AB "Developer ID Application: Other (ABCDEFGHIJ)"\'')
        self.assert_fails("identity of team QK7ZP2M9XD", "sign.sh", self.binary)
        self.stand_in(security=APPLICATION, codesign="echo TeamIdentifier=ABCDEFGHIJ")
        self.assert_fails("not by team QK7ZP2M9XD", "sign.sh", self.binary)

    def test_packages_the_tool_in_a_folder_of_its_own(self):
        self.stand_in(codesign="", security=INSTALLER, pkgbuild='(cd "$2" && find . -type f) >&2')
        status, errors = self.run_script("package.sh", self.binary, self.package)
        self.assertEqual((status, errors), (0, "./usr/local/libexec/kxtool/KXTool\n"))
        call = next(call for call in self.calls() if call.startswith("pkgbuild"))
        self.assertRegex(call, "--identifier com.corvane.KXTool --version 1.0.0.206 "
                               "--min-os-version 10.11 --sign Developer ID Installer: .* "
                               f"--timestamp {self.package}$")

    def test_packages_no_unsigned_tool(self):
        self.stand_in(codesign="exit 1", security=INSTALLER, pkgbuild="")
        self.assert_fails("is not signed; run sign.sh first", "package.sh", self.binary, self.package)

    def test_staples_what_is_accepted(self):
        self.package.touch()
        self.stand_in(pkgutil="", spctl="", xcrun="echo answer", plutil="echo Accepted")
        self.assertEqual(self.run_script("notarize.sh", self.package, "profile")[0], 0)
        self.assertIn(f"xcrun stapler staple {self.package}", self.calls())

    def test_shows_the_log_of_what_is_not_accepted(self):
        self.package.touch()
        self.stand_in(pkgutil="", spctl="", xcrun="echo answer",
                      plutil='[[ $2 == status ]] && echo Invalid || echo the-id')
        self.assert_fails('Apple\'s answer is "Invalid"', "notarize.sh", self.package, "profile")
        self.assertIn("xcrun notarytool log the-id --keychain-profile profile", self.calls())
        self.assertFalse([call for call in self.calls() if "stapler" in call])


if __name__ == "__main__":
    unittest.main()
