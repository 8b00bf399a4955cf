"""The packaging scripts, run with stand-ins for the commands of macOS."""

import os
import stat
import subprocess
import tempfile
import unittest
import xml.etree.ElementTree
from pathlib import Path

from simulator import sandbox

BUILD = Path(os.environ.get("KX_BUILD", "build/release")).resolve()
SCRIPTS = Path(__file__).resolve().parents[2] / "packaging" / "macos"
# The commands of package.sh, which leave what they are given in the folder "made".
PKGBUILD = 'while [[ $# -gt 1 ]]; do case $1 in --root) cp -pR "$2" "{0}/made/payload" ;; ' \
    '--scripts) cp -pR "$2" "{0}/made/scripts" ;; esac; shift; done; touch "$1"'
PRODUCTBUILD = '[[ -f $4/KXTool.pkg ]] && cp "$2" "{0}/made/distribution.xml"'
APPLICATION = 'echo \'  1) AB "Developer ID Application: Corvane SRL (QK7ZP2M9XD)"\''
INSTALLER = 'echo \'  1) CD "Developer ID Installer: Corvane SRL (QK7ZP2M9XD)"\''
SLICES = "echo x86_64 arm64"


class PackagingCase(unittest.TestCase):
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

    def run_script(self, name, *arguments, within=()):
        """Runs a script, by way of the command `within`; returns the exit status and the error
        text."""
        path = f"{self.folder}/bin:{os.environ['PATH']}"
        done = subprocess.run([*within, "bash", SCRIPTS / name, *map(str, arguments)], text=True,
                              check=False, capture_output=True, env={**os.environ, "PATH": path})
        return done.returncode, done.stderr

    def calls(self):
        record = self.folder / "calls"
        return record.read_text().splitlines() if record.exists() else []

    def make_package(self):
        """Runs package.sh. Afterwards, the folder `made` holds what goes into the package."""
        self.made = self.folder / "made"
        self.made.mkdir()
        self.stand_in(codesign="", security=INSTALLER, pkgbuild=PKGBUILD.format(self.folder),
                      productbuild=PRODUCTBUILD.format(self.folder))
        self.assertEqual(self.run_script("package.sh", self.binary, self.package), (0, ""))

    def assert_fails(self, message, name, *arguments):
        status, errors = self.run_script(name, *arguments)
        self.assertNotEqual(status, 0)
        self.assertIn(message, errors)


class PackagingTest(PackagingCase):
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

    def test_reads_what_commands_say_to_the_end(self):
        """If a reader exited early, a signal would end them."""
        more = "; for n in {1..20000}; do echo more text; done"
        self.stand_in(lipo=SLICES, security=APPLICATION + more,
                      codesign="echo TeamIdentifier=QK7ZP2M9XD" + more)
        self.assertEqual(self.run_script("sign.sh", self.binary)[0], 0)

    def test_signs_no_thin_binary(self):
        self.stand_in(lipo="echo arm64", security=APPLICATION, codesign="")
        self.assert_fails("has the slices arm64", "sign.sh", self.binary)

    def test_signs_as_no_other_team(self):
        self.stand_in(lipo=SLICES, codesign="echo TeamIdentifier=QK7ZP2M9XD",
                      security='echo \'  1) AB "Developer ID Application: Other (ABCDEFGHIJ)"\'')
        self.assert_fails("identity of team QK7ZP2M9XD", "sign.sh", self.binary)
        self.stand_in(security=APPLICATION, codesign="echo TeamIdentifier=ABCDEFGHIJ")
        self.assert_fails("not by team QK7ZP2M9XD", "sign.sh", self.binary)

    def test_packages_the_folder_of_the_tool_and_no_other(self):
        self.make_package()
        rows = subprocess.run(["bash", "-c", f'source {SCRIPTS}/payload.sh; printf "%s\\n" "${{payload[@]}}"'],
                              check=True, capture_output=True, text=True).stdout.splitlines()
        self.assertGreaterEqual(len(rows), 5)
        expected = {"payload": 0o755, "KXTool": 0o755}
        payload = self.made / "payload"
        for source, name, mode, *_ in map(str.split, rows):
            expected[name] = int(mode, 8)
            self.assertEqual((payload / name).read_bytes(), (SCRIPTS.parents[1] / source).read_bytes())
        self.assertEqual({path.name: stat.S_IMODE(path.stat().st_mode)
                          for path in [payload, *payload.rglob("*")]}, expected)
        call = next(call for call in self.calls() if call.startswith("pkgbuild"))
        self.assertRegex(call, "--install-location /usr/local/libexec/kxtool .*--ownership recommended "
                               "--identifier com.corvane.KXTool --version 1.0.0.206 "
                               "--min-os-version 10.11 .*/KXTool.pkg$")
        self.assertTrue(os.access(self.made / "scripts" / "postinstall", os.X_OK))

    def test_wraps_it_for_device_management_and_both_architectures(self):
        self.make_package()
        self.assertRegex(self.calls()[-1], "^productbuild --distribution .* --sign Developer ID Installer: "
                                           f".* --timestamp {self.package}$")
        root = xml.etree.ElementTree.parse(self.made / "distribution.xml").getroot()
        self.assertEqual(root.find("options").get("hostArchitectures"), "x86_64,arm64")
        self.assertEqual(root.find("product").get("version"), "1.0.0.206")
        self.assertEqual(root.find(".//os-version").get("min"), "10.11")
        # Each line refers to a choice, and the choice to the package.
        choice = root.find(f"choice[@id='{root.find('choices-outline/line').get('choice')}']")
        package = root.find(f"pkg-ref[@id='{choice.find('pkg-ref').get('id')}']")
        self.assertEqual((package.get("id"), package.text), ("com.corvane.KXTool", "KXTool.pkg"))

    def test_packages_no_unsigned_tool(self):
        self.stand_in(codesign="exit 1", security=INSTALLER, pkgbuild="", productbuild="")
        self.assert_fails("is not signed; run sign.sh first", "package.sh", self.binary, self.package)

    def test_staples_what_is_accepted(self):
        self.package.touch()
        self.stand_in(pkgutil="", spctl="", xcrun="echo answer", plutil="echo Accepted")
        self.assertEqual(self.run_script("notarize.sh", self.package, "profile")[0], 0)
        self.assertIn(f"xcrun stapler staple {self.package}", self.calls())
        self.assertFalse([call for call in self.calls() if "--keychain " in call])

    def test_asks_with_the_credentials_of_the_keychain_that_is_named(self):
        self.package.touch()
        self.stand_in(pkgutil="", spctl="", xcrun="echo answer",
                      plutil='[[ $2 == status ]] && echo Invalid || echo the-id')
        self.assert_fails("Invalid", "notarize.sh", self.package, "profile", "/a keychain")
        asked = [call for call in self.calls() if call.startswith(("xcrun notarytool submit",
                                                                  "xcrun notarytool log"))]
        self.assertEqual(len(asked), 2)
        for call in asked:
            self.assertIn("--keychain-profile profile --keychain /a keychain", call)

    def test_shows_the_log_of_what_is_not_accepted(self):
        self.package.touch()
        self.stand_in(pkgutil="", spctl="", xcrun="echo answer",
                      plutil='[[ $2 == status ]] && echo Invalid || echo the-id')
        self.assert_fails('Apple\'s answer is "Invalid"', "notarize.sh", self.package, "profile")
        self.assertIn("xcrun notarytool log the-id --keychain-profile profile", self.calls())
        self.assertFalse([call for call in self.calls() if "stapler" in call])


@unittest.skipIf(sandbox.refusal(), "no sandbox here to install into")
class InstallationTest(PackagingCase):
    """In a sandbox whose /usr/local is a folder of the test, and whose user is root."""

    def setUp(self):
        super().setUp()
        self.local = self.folder / "local"
        self.tool_folder = self.local / "libexec" / "kxtool"
        self.local.mkdir()
        self.package.touch()
        self.stand_in(
            pkgutil='[[ $1 != --check-signature ]] || echo "   1. Developer ID Installer: '
                    'Corvane SRL (QK7ZP2M9XD)"',
            installer=f'install -D "{self.binary}" /usr/local/libexec/kxtool/KXTool')

    def run_as(self, user, script, *arguments):
        within = ["bwrap", "--unshare-user", "--uid", str(user), "--dev-bind", "/", "/",
                  "--bind", str(self.local), "/usr/local"]
        return self.run_script(script, *arguments, within=within)

    def installed(self):
        return sorted(str(path.relative_to(self.local)) for path in self.local.rglob("*")
                      if path.is_file() or path.is_symlink())

    def everything(self):
        """The mode of every entry, and the targets of the links."""
        return {str(path): (path.lstat().st_mode, path.is_symlink() and os.readlink(path))
                for path in [self.local, *self.local.rglob("*")]}

    def install_everything(self):
        """Installs the payload, runs the postinstall script, and creates the files that the tool creates."""
        if not (self.folder / "made").exists():
            self.make_package()
        subprocess.run(["mkdir", "-p", self.tool_folder], check=True)
        subprocess.run(["cp", "-pR", f"{self.made}/payload/.", self.tool_folder], check=True)
        self.assertEqual(self.run_as(0, self.made / "scripts" / "postinstall"), (0, ""))
        for name in ("configfile.txt", "log.txt", "log.txt.0"):
            (self.tool_folder / name).touch()

    def uninstall(self):
        """Runs the uninstaller from the package."""
        return self.run_as(0, "/usr/local/libexec/kxtool/uninstall.sh")

    def test_links_lead_where_cmake_installs(self):
        prefix = self.folder / "installed"
        subprocess.run(["cmake", "--install", BUILD, "--prefix", prefix], check=True, capture_output=True)
        wanted = {str(path.relative_to(prefix)): path.read_bytes() for path in prefix.rglob("*")
                  if path.is_file() and path.parent.name != "kxtool"}
        self.assertGreaterEqual(len(wanted), 3)
        self.install_everything()
        for name, contents in wanted.items():
            target = os.readlink(self.local / name)
            self.assertEqual((self.local / Path(target).relative_to("/usr/local")).read_bytes(), contents)

    def test_leaves_no_trace_when_it_is_removed(self):
        (self.local / "libexec").mkdir()
        before = self.everything()
        for _ in range(2):
            self.install_everything()
            self.install_everything()  # as an update does
            self.assertEqual(self.uninstall(), (0, ""))
            self.assertEqual(self.everything(), before)
            self.assertEqual(self.calls()[-1], "pkgutil --forget com.corvane.KXTool")

    def test_changes_no_folder_that_exists(self):
        share = self.local / "share"
        for folder in (share, share / "man", share / "man" / "man1", share / "zsh", self.local / "libexec"):
            folder.mkdir()
            folder.chmod(0o775)
        page = share / "man" / "man1" / "KXTool.1"
        page.write_text("somebody's own")
        before = self.everything()
        self.install_everything()
        during = self.everything()
        self.assertEqual({path: during[path] for path in before}, before)
        self.assertEqual(page.read_text(), "somebody's own")
        new = share / "zsh" / "site-functions"
        self.assertEqual(stat.S_IMODE(new.stat().st_mode), 0o755)
        (new / "_other").touch()
        self.assertEqual(self.uninstall(), (0, ""))
        self.assertEqual(self.installed(), ["share/man/man1/KXTool.1", "share/zsh/site-functions/_other"])

    def test_installs_a_package_of_the_team(self):
        self.assertEqual(self.run_as(0, "install.sh", self.package), (0, ""))
        self.assertEqual(self.calls(), [f"pkgutil --check-signature {self.package}",
                                        f"installer -pkg {self.package} -target /"])
        self.assertEqual(self.installed(), ["libexec/kxtool/KXTool"])

    def test_installs_no_package_of_another_team(self):
        self.stand_in(pkgutil='echo "   1. Developer ID Installer: Other (ABCDEFGHIJ)"')
        self.assertEqual(self.run_as(0, "install.sh", self.package),
                         (1, f"install.sh: {self.package} is not signed by team QK7ZP2M9XD\n"))
        self.assertEqual(self.installed(), [])

    def test_tells_when_the_installer_fails(self):
        self.stand_in(installer="echo 'no room' >&2; exit 1")
        self.assertEqual(self.run_as(0, "install.sh", self.package), (1, "no room\n"))

    def test_leaves_what_is_not_its_own(self):
        self.install_everything()
        (self.tool_folder / "notes.txt").touch()
        status, errors = self.uninstall()
        self.assertEqual(status, 1)
        self.assertIn("uninstall.sh: cannot remove /usr/local/libexec/kxtool, because it contains other files: notes.txt", errors)
        self.assertEqual(self.installed(), ["libexec/kxtool/notes.txt"])
        self.assertNotIn("pkgutil --forget com.corvane.KXTool", self.calls())

    def test_tells_when_there_is_nothing_to_remove(self):
        self.assertEqual(
            self.run_as(0, "uninstall.sh"),
            (1, "uninstall.sh: the tool is not installed in /usr/local/libexec/kxtool\n"))

    def test_only_root_installs_and_uninstalls(self):
        self.assertEqual(self.run_as(1000, "install.sh", self.package),
                         (1, "install.sh: run this as root\n"))
        self.assertEqual(self.run_as(1000, "uninstall.sh"), (1, "uninstall.sh: run this as root\n"))
        self.assertEqual(self.calls(), [])


if __name__ == "__main__":
    unittest.main()
