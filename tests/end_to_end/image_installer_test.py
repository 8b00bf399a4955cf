"""Installing a package from a disk image: whole logs, the programs' arguments, and the files.

install/installer_runner_test.cc has the rules for the search and the copies, and the failures;
faults/matrix.py has the faults of the programs.
"""

import os
import pathlib
import subprocess
import tempfile

from simulator import installation
from simulator.installers import images
from tests.end_to_end import detections as d
from tests.end_to_end.harness import BUILD, needs_sandbox
from tests.end_to_end.installer_case import (
    CONFIGURATION, FIRST_NUMBER, IMAGE, PACKAGE, PLACE, TEMPORARY, InstallerCase, attach,
    device_at_top, fill_with_package, fill_with_small_package, finish, install, missing,
    scenario, search)

ATTACH = ["hdiutil", "attach", IMAGE, "-plist", "-private", "-nobrowse"]
INSTALL = ["installer", "-pkg", PACKAGE, "-target", "/"]
DETACH = ["hdiutil", "detach"]  # the device is not where it is looked for
DETACH_DEVICE = ["hdiutil", "detach", "/dev/disk2", "-quiet"]
MOUNTED = ("/Volumes/SETUP/Setup.pkg", "/Volumes/SETUP/installer.xml")
FOUND = search("Setup.pkg", "installer.xml")
NOT_COPIED = "Cannot copy new app or installer xml does not exist and it cannot be copied"


def property_list(value, **changes):
    """A scenario in which hdiutil answers with this value."""
    return scenario(attach={"output": {"propertyList": value, **changes}})


class ImageCase(InstallerCase):
    """Installs from disk images."""

    def install(self, endpoint, path=IMAGE):
        return self.run_tool_on(endpoint, "-runInstaller", path)

    def check_success(self, wanted=None, mounted=MOUNTED, detach=None):
        """The product is installed; only the image is left, and what is still mounted."""
        with self.prepared(fill_with_package, wanted) as endpoint:
            run = self.install(endpoint)
            self.assert_answer(run, 0, d.HEALTHY)
            self.assert_whole_log(run, [*attach(), *FOUND, *install(0, d.healthy())])
            self.assert_programs(run, ATTACH, INSTALL, detach or DETACH)
            self.assert_files(endpoint, IMAGE, *mounted)
            return run

    def check_end(self, status, lines, fill=fill_with_small_package, prepare=None, left=(),
                  programs=(ATTACH, DETACH_DEVICE), **installers):
        """Nothing is installed, the image is detached and the temporary file deleted."""
        wanted = scenario(**{"attach": device_at_top(), **installers})
        with self.prepared(fill, wanted) as endpoint:
            if prepare is not None:
                prepare(endpoint)
            run = self.install(endpoint)
            self.assert_answer(run, status, d.ABSENT)
            self.assert_whole_log(run, [*attach(), *lines])
            self.assert_programs(run, *programs)
            self.assert_files(endpoint, IMAGE, *left)


class Success(ImageCase):
    """The package is found, copied beside the image and installed."""

    def test_whole_flow(self):
        run = self.check_success()
        programs = [call for call in run.calls if "arguments" in call]
        self.assert_descriptors(programs[0], TEMPORARY)
        self.assert_descriptors(programs[1])
        self.assert_descriptors(programs[2])

    def test_device_at_the_top_is_detached(self):
        self.check_success(scenario(attach=device_at_top()), mounted=(), detach=DETACH_DEVICE)

    def test_unusual_names_among_thousands(self):
        place = "/demo/nested-image"
        image = f"{place}/Setup.iso"
        folder = "Setup Files/für \"Kunden\"/it's here; $HOME/日本"
        with self.endpoint(scenario={
                **scenario(attach=device_at_top()), "media": ["nested-image"]}) as endpoint:
            run = self.install(endpoint, image)
            self.assert_answer(run, 0, d.HEALTHY)
            self.assert_whole_log(run, [
                *attach(), *search(f"{folder}/Endpoint Security – Setup.PKG",
                                   f"{folder}/installer.xml"),
                *install(0, d.healthy())])
            self.assert_programs(
                run, ["hdiutil", "attach", image, "-plist", "-private", "-nobrowse"],
                ["installer", "-pkg", f"{place}/Endpoint Security – Setup.PKG", "-target", "/"],
                DETACH_DEVICE)
            self.assert_files(endpoint, image)

    def test_image_in_the_working_directory(self):
        with self.prepared(fill_with_package, image=f"{installation.WORKING_DIRECTORY}/Setup.iso",
                           wanted=scenario(attach=device_at_top())) as endpoint:
            run = self.install(endpoint, "Setup.iso")
            self.assert_answer(run, 0, d.HEALTHY)
            self.assert_programs(
                run, ["hdiutil", "attach", "Setup.iso", "-plist", "-private", "-nobrowse"],
                ["installer", "-pkg", "Setup.pkg", "-target", "/"], DETACH_DEVICE)
            left = sorted(os.listdir(endpoint.path(installation.WORKING_DIRECTORY)))
            self.assertEqual([name for name in left if not name.startswith("libsl")],
                             ["Setup.iso"])

    def test_image_name_with_blanks_quotes_and_shell_characters(self):
        place = "/demo/it's a \"folder\"; $(touch x)/Über"
        image = f"{place}/-Setup & `rm` *.dmg"
        with self.prepared(fill_with_package, image=image) as endpoint:
            run = self.install(endpoint, image)
            self.assert_answer(run, 0, d.HEALTHY)
            self.assert_programs(
                run, ["hdiutil", "attach", image, "-plist", "-private", "-nobrowse"],
                ["installer", "-pkg", f"{place}/Setup.pkg", "-target", "/"], DETACH)

    def test_volume_name_that_is_taken(self):
        with self.prepared(fill_with_package) as endpoint:
            endpoint.path("/Volumes/SETUP").mkdir()
            run = self.install(endpoint)
            self.assert_answer(run, 0, d.HEALTHY)
            self.assert_files(endpoint, IMAGE, "/Volumes/SETUP", "/Volumes/SETUP 1/Setup.pkg",
                              "/Volumes/SETUP 1/installer.xml")

    def test_configuration_beside_the_image_is_used(self):
        with self.prepared(fill_with_package) as endpoint:
            images.write_configuration(endpoint.path(PLACE), group="beside")
            run = self.install(endpoint)
            self.assert_answer(run, 0, d.HEALTHY.replace(d.GROUP, "beside"))
            self.assert_whole_log(run, [*attach(), *FOUND, *install(0, d.healthy(group="beside"))])
            self.assertEqual(os.listdir(endpoint.path(PLACE)), ["Setup.iso"])

    def test_launcher_copies_a_file_of_the_user(self):
        with tempfile.TemporaryDirectory() as folder:
            image = os.path.join(folder, "my image.iso")
            content = os.path.join(folder, "content")
            os.mkdir(content)
            fill_with_package(pathlib.Path(content))
            images.write_image(pathlib.Path(content), image)
            before = sorted(os.listdir(folder))
            launcher = os.path.join(os.path.dirname(installation.__file__), "endpoint.py")
            for word in (image, "my image.iso"):
                run = subprocess.run(
                    ["/usr/bin/python3", launcher, "run", "--scenario", "not-installed",
                     "--build", str(BUILD), "--sleep-divisor", "1000", "-runInstaller", word],
                    cwd=folder, capture_output=True, check=False, timeout=60)
                self.assertEqual((run.returncode, run.stdout), (0, d.HEALTHY.encode()))
                self.assertEqual(sorted(os.listdir(folder)), before)


class Attaching(ImageCase):
    """What hdiutil answers; install/attach_output_test.cc has more."""

    def check_failure(self, status, line, wanted, mounted=MOUNTED):
        """The installation ends, and the temporary file stays."""
        with self.prepared(fill_with_small_package, wanted) as endpoint:
            run = self.install(endpoint)
            self.assert_answer(run, status, d.ABSENT)
            self.assert_whole_log(run, [*attach(), line])
            self.assert_programs(run, ATTACH)
            self.assert_files(endpoint, IMAGE, TEMPORARY, *mounted)

    def test_exit_status_is_returned(self):
        line = "Failed to mount installer. Exit code: {}"
        self.check_failure(255, line.format(255), scenario(attach={"acts": False, "status": 255}),
                           mounted=())
        self.check_failure(5, line.format(5), scenario(attach=device_at_top(status=5)))

    def test_file_that_is_not_an_image(self):
        with self.prepared() as endpoint:
            endpoint.path(IMAGE).write_bytes(b"no image at all\n")
            for path in (IMAGE, PLACE):
                run = self.install(endpoint, path)
                self.assert_answer(run, 1, d.ABSENT)
                self.assertEqual(run.log[-1], "Failed to mount installer. Exit code: 1")

    def test_answers_without_a_mount_point(self):
        answers = {
            "truncated": property_list(
                {"system-entities": [{"mount-point": "$mountPoint"}] * 2}, length=300),
            "truncated binary": property_list(
                {"system-entities": [{"mount-point": "$mountPoint"}]}, format="binary", length=60),
            "array at the top": property_list([{"mount-point": "$mountPoint"}]),
            "in a dictionary": property_list({"system-entities": {"mount-point": "$mountPoint"}}),
            "of another type": property_list({"system-entities": [{"mount-point": 1}]}),
        }
        for name, wanted in answers.items():
            with self.subTest(answer=name):
                self.check_failure(2, "Cannot find mount point", wanted)

    def test_answers_with_a_mount_point(self):
        mounted = {"mount-point": "$mountPoint"}
        filler = [{"content-hint": f"filler {number}" * 20} for number in range(3000)]
        answers = {
            "binary": property_list({"system-entities": [mounted]}, format="binary"),
            "in any array": property_list({"a": "text", "b": {"c": [1]}, "images": [mounted]}),
            "long": property_list({"system-entities": [*filler, mounted]}),
        }
        for name, wanted in answers.items():
            with self.subTest(answer=name):
                self.check_success(wanted)

    def test_mount_point_that_does_not_exist(self):
        device = "/dev/disk9"
        self.check_end(2, [*search(None, None), *missing()], left=MOUNTED,
                       programs=(ATTACH, ["hdiutil", "detach", device, "-quiet"]),
                       attach={"output": {"propertyList": {
                           "dev-entry": device, "e": [{"mount-point": "/Volumes/Other"}]}}})


class TemporaryFile(ImageCase):
    """The file that receives the answer of hdiutil."""

    def test_whatever_is_in_the_way_is_left_alone(self):
        ways = {"file": lambda path: path.write_text("mine"),
                "folder": lambda path: path.mkdir(),
                "link": lambda path: path.symlink_to("/demo/setup/target"),
                "pipe": os.mkfifo}
        for name, obstruct in ways.items():
            with self.subTest(way=name), self.prepared(
                    fill_with_small_package, scenario(install={"acts": False})) as endpoint:
                path = endpoint.path(TEMPORARY)
                obstruct(path)
                before = path.lstat()
                run = self.install(endpoint)
                self.assert_answer(run, 0, d.ABSENT)
                self.assert_descriptors(
                    run.calls[0], f"{installation.TEMPORARY}/KXToolInstall_{FIRST_NUMBER + 1}")
                after = path.lstat()
                self.assertEqual((after.st_mode, after.st_ino, after.st_size),
                                 (before.st_mode, before.st_ino, before.st_size))
                self.assert_files(endpoint, IMAGE, TEMPORARY, *MOUNTED)

    def test_number_starts_anew_when_the_file_is_gone(self):
        with self.prepared(fill_with_small_package, scenario(
                install={"acts": False}, attach=device_at_top())) as endpoint:
            for _ in range(2):
                run = self.install(endpoint)
                self.assertEqual(run.status, 0)
            for call in run.calls:
                if "attach" in call["arguments"]:
                    self.assert_descriptors(call, TEMPORARY)
            self.assert_files(endpoint, IMAGE)

    def test_simultaneous_runs_have_private_files_of_their_own(self):
        count = 6
        with self.prepared(fill_with_small_package, scenario(attach={
                "acts": False, "status": 3, "output": {"text": "said"}})) as endpoint:
            run = self.run_script_on(
                endpoint, f"for n in $(seq {count}); do $TOOL -runInstaller {IMAGE} & done; wait")
            self.assert_answer(run, 0, d.ABSENT * count)
            written = [f"{installation.TEMPORARY}/KXToolInstall_{FIRST_NUMBER + number}"
                       for number in range(count)]
            self.assertEqual(sorted(call["descriptors"]["1"] for call in run.calls), written)
            for path in map(endpoint.path, written):
                self.assertEqual(path.read_text(), "said")
                self.assertEqual(path.stat().st_mode & 0o777, 0o600)


class Copying(ImageCase):
    """The package and the configuration are searched for and copied into the image's directory."""

    INSTALLS_NOTHING = {"acts": False}

    def test_old_copy_is_replaced(self):
        ways = {"file": lambda path: path.write_text("old"),
                "folder": lambda path: (path / "below" / "more").mkdir(parents=True),
                "link to a file": lambda path: path.symlink_to("Setup.iso"),
                "link to a folder": lambda path: path.symlink_to(".")}
        for name, make in ways.items():
            with self.subTest(old=name), self.prepared(fill_with_package) as endpoint:
                make(endpoint.path(PACKAGE))
                run = self.install(endpoint)
                self.assert_answer(run, 0, d.HEALTHY)
                self.assert_files(endpoint, IMAGE, *MOUNTED)

    @needs_sandbox
    def test_what_the_user_may_not_do(self):
        def lock_old_copy(endpoint):
            endpoint.path(PACKAGE).write_text("old")
            endpoint.path(PLACE).chmod(0o555)

        def fill_unreadable(folder):
            fill_with_small_package(folder)
            (folder / "Setup.pkg").chmod(0)

        self.check_end(13, [*FOUND, "Cannot remove app path", finish(13)], prepare=lock_old_copy,
                       left=[PACKAGE])
        self.check_end(2, [*FOUND, NOT_COPIED, finish(2)], fill_unreadable)

    def test_link_to_nothing_in_the_way_of_a_copy(self):
        for path, left in ((PACKAGE, [PACKAGE]), (CONFIGURATION, [CONFIGURATION, PACKAGE])):
            with self.subTest(path=path):
                self.check_end(2, [*FOUND, NOT_COPIED, finish(2)], left=left,
                               prepare=lambda endpoint, link=path:
                               endpoint.path(link).symlink_to("nowhere"))

    def test_package_with_something_that_cannot_be_copied(self):
        def fill(folder):
            (folder / "Setup.pkg").mkdir()
            (folder / "Setup.pkg" / "file").write_text("content")
            os.mkfifo(folder / "Setup.pkg" / "pipe")
            images.write_configuration(folder)

        self.check_end(2, [*FOUND, NOT_COPIED, finish(2)], fill)

    def test_links_are_not_followed(self):
        def fill(folder):
            (folder / "real").mkdir()
            (folder / "real" / "Setup.pkg").symlink_to("/demo/mine.pkg")
            images.write_configuration(folder / "real")
            (folder / "link").symlink_to("real")
            (folder / "loop").symlink_to(".")
            (folder / "outside").symlink_to("/")

        self.check_end(0, [*search("real/Setup.pkg", "real/installer.xml"), *install(0, d.NOTHING)],
                       fill, lambda endpoint: endpoint.path("/demo/mine.pkg").write_text("mine"),
                       left=["/demo/mine.pkg"], programs=(ATTACH, INSTALL, DETACH_DEVICE),
                       install=self.INSTALLS_NOTHING)

    def test_folder_and_what_is_found_in_it_later(self):
        def fill(folder):
            inner = folder / "Outer.pkg" / "Inner.pkg"
            inner.mkdir(parents=True)
            images.write_configuration(inner)

        self.check_end(0, [
            "Searching for app", "Found app path: Outer.pkg",
            "Found app path: Outer.pkg/Inner.pkg",
            "Found installer path:Outer.pkg/Inner.pkg/installer.xml",
            "Running ORVEX install process", *install(0, d.NOTHING)], fill, programs=(
                ATTACH, ["installer", "-pkg", f"{PLACE}/Inner.pkg", "-target", "/"], DETACH_DEVICE),
            install=self.INSTALLS_NOTHING)

    def test_folder_of_that_name_in_the_working_directory_hides_an_entry(self):
        mine = f"{installation.WORKING_DIRECTORY}/Setup.pkg"
        self.check_end(2, [*search(None, "installer.xml"), *missing(configuration="installer.xml")],
                       prepare=lambda endpoint: endpoint.path(mine).mkdir())

    def test_nothing_on_the_image(self):
        self.check_end(2, [*search(None, None), *missing()], lambda folder: None)

    def test_exit_status_of_the_installer(self):
        self.check_end(22, [*FOUND, *install(22, d.NOTHING)],
                       programs=(ATTACH, INSTALL, DETACH_DEVICE),
                       install={"acts": False, "status": 22})


class Inheritance(ImageCase):
    """What the programs inherit."""

    def run_with(self, words, output):
        with self.prepared(fill_with_small_package, scenario(
                attach=device_at_top(), install={"acts": False, "status": 5})) as endpoint:
            run = self.run_script_on(endpoint, f"{words.format(f'$TOOL -runInstaller {IMAGE}')}; "
                                               "echo \" $?\" >&9")
            self.assert_answer(run, 0, output)
            self.assert_whole_log(run, [*attach(), *FOUND, *install(5, d.NOTHING)])
            self.assert_programs(run, ATTACH, INSTALL, DETACH_DEVICE)
            for call, target in zip(run.calls, (TEMPORARY, "pipe", "pipe"), strict=True):
                self.assert_descriptors(call, target)
            self.assert_files(endpoint, IMAGE)

    def test_no_other_descriptors(self):
        self.run_with("exec 7</dev/null 8>/dev/null 9>&1; {}", f"{d.ABSENT} 5\n")

    def test_closed_standard_streams(self):
        self.run_with("exec 9>&1; {} <&- >&- 2>&-", " 5\n")

    def test_ignored_end_of_children(self):
        self.run_with("exec 9>&1; (trap '' CHLD PIPE; {})", f"{d.ABSENT} 5\n")
