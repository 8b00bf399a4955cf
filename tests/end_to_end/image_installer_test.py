"""Installing a package from a disk image: whole logs, the programs' arguments, and the files."""

import concurrent.futures
import contextlib
import fcntl
import os
import pathlib
import subprocess
import sys
import tempfile
import termios
import time

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
NEXT_TEMPORARY = f"{installation.TEMPORARY}/KXToolInstall_{FIRST_NUMBER + 1}"
NOT_MOUNTED = "Cannot find mount point"
NOT_COPIED = "Cannot copy new app or installer xml does not exist and it cannot be copied"


def property_list(value, **changes):
    """A scenario whose attach answer is this value."""
    return scenario(attach={"output": {"propertyList": value, **changes}})


def text(content):
    """A scenario whose attach answer is this text."""
    return scenario(attach={"output": {"text": content}})


class ImageCase(InstallerCase):
    """Base of these tests."""

    def install(self, endpoint, path=IMAGE):
        return self.run_tool_on(endpoint, "-runInstaller", path)

    def check_success(self, fill=fill_with_package, wanted=None, mounted=MOUNTED, detach=None):
        """The product is installed, and nothing but the image is left besides what is mounted."""
        with self.prepared(fill, wanted) as endpoint:
            run = self.install(endpoint)
            self.assert_answer(run, 0, d.HEALTHY)
            self.assert_whole_log(run, [*attach(), *FOUND, *install(0, d.healthy())])
            self.assert_programs(run, ATTACH, INSTALL, detach or DETACH)
            self.assert_files(endpoint, IMAGE, *mounted)
            return run


class Success(ImageCase):
    """The package is found, copied beside the image and installed."""

    def test_whole_road(self):
        run = self.check_success()
        programs = [call for call in run.calls if "arguments" in call]
        self.assert_descriptors(programs[0], TEMPORARY)
        self.assert_descriptors(programs[1])
        self.assert_descriptors(programs[2])

    def test_device_at_the_top_is_detached(self):
        self.check_success(wanted=scenario(attach=device_at_top()), mounted=(),
                           detach=DETACH_DEVICE)

    def test_demonstration_with_unusual_names_among_thousands(self):
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

    def test_slow_attaching_with_much_output(self):
        entities = [{"content-hint": f"filler {number}" * 20} for number in range(3000)]
        value = {"system-entities": [*entities, {"mount-point": "$mountPoint"}]}
        self.check_success(wanted=scenario(attach={
            "output": {"propertyList": value}, "delay": 300, "noise": 60000}))

    def test_volume_name_that_is_taken(self):
        with self.prepared(fill_with_package) as endpoint:
            endpoint.path("/Volumes/SETUP").mkdir()
            run = self.install(endpoint)
            self.assert_answer(run, 0, d.HEALTHY)
            self.assert_files(endpoint, IMAGE, "/Volumes/SETUP", "/Volumes/SETUP 1/Setup.pkg",
                              "/Volumes/SETUP 1/installer.xml")

    def test_launcher_lends_the_users_file_and_leaves_it_alone(self):
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


class Configuration(ImageCase):
    """The configuration on the image and the one beside it."""

    def install_with(self, fill, beside):
        with self.prepared(fill) as endpoint:
            if beside:
                images.write_configuration(endpoint.path(PLACE), group="beside")
            run = self.install(endpoint)
            left = sorted(os.listdir(endpoint.path(PLACE)))
            self.assertEqual(left, ["Setup.iso"])
            return run

    def test_one_beside_the_image_is_used(self):
        run = self.install_with(lambda folder: fill_with_package(folder), True)
        self.assert_answer(run, 0, d.HEALTHY.replace(d.GROUP, "beside"))
        self.assert_whole_log(run, [*attach(), *FOUND, *install(0, d.healthy(group="beside"))])

    def test_only_one_beside_the_image(self):
        def fill(folder):
            fill_with_package(folder)
            (folder / "installer.xml").unlink()

        run = self.install_with(fill, True)
        self.assert_answer(run, 0, d.HEALTHY.replace(d.GROUP, "beside"))
        self.assert_whole_log(run, [*attach(), *search("Setup.pkg", None),
                                    *install(0, d.healthy(group="beside"))])

    def test_only_one_on_the_image(self):
        def fill(folder):
            fill_with_package(folder)
            images.write_configuration(folder, group="on the image")

        run = self.install_with(fill, False)
        self.assert_answer(run, 0, d.HEALTHY.replace(d.GROUP, "on the image"))

    def test_one_beside_the_image_that_leads_nowhere(self):
        with self.prepared(fill_with_small_package) as endpoint:
            endpoint.path(CONFIGURATION).symlink_to("nowhere")
            run = self.install(endpoint)
            self.assert_answer(run, 2, d.ABSENT)
            self.assert_whole_log(run, [*attach(), *FOUND, NOT_COPIED, finish(2)])
            self.assert_files(endpoint, IMAGE, CONFIGURATION, PACKAGE, *MOUNTED)


class Attaching(ImageCase):
    """What hdiutil can answer, and how it can fail."""

    def check_failure(self, status, line, wanted=None, mounted=MOUNTED, programs=None,
                      called=True):
        """The image is not taken as attached; the temporary file stays."""
        with self.prepared(fill_with_small_package, wanted, programs=programs) as endpoint:
            run = self.install(endpoint)
            self.assert_answer(run, status, d.ABSENT)
            self.assert_whole_log(run, [*attach(), line])
            self.assert_programs(run, *[ATTACH] * called)
            self.assert_files(endpoint, IMAGE, TEMPORARY, *mounted)

    def check_refusal(self, status, wanted=None, **options):
        self.check_failure(status, f"Failed to mount installer. Exit code: {status}", wanted,
                           **options)

    def test_exit_status_is_returned(self):
        for status in (1, 16, 255):
            with self.subTest(status=status):
                self.check_refusal(status, scenario(attach={"acts": False, "status": status}),
                                   mounted=())

    def test_exit_status_counts_also_with_a_mount_point(self):
        self.check_refusal(5, scenario(attach=device_at_top(status=5)))

    def test_exit_status_counts_also_without_a_mount_point(self):
        self.check_refusal(5, scenario(attach={"status": 5, "output": {"text": ""}}))

    def test_signals_number_is_the_status(self):
        for number in (9, 15):
            with self.subTest(signal=number):
                self.check_refusal(number, scenario(attach={"signal": number}))

    def test_program_that_is_not_there(self):
        self.check_refusal(2, programs={"/usr/bin/hdiutil": None}, mounted=(), called=False)

    def test_program_that_cannot_be_started(self):
        with tempfile.TemporaryDirectory() as folder:
            program = pathlib.Path(folder, "hdiutil")
            for mode, content, status in ((0o644, "#!/bin/sh\n", 13), (0o755, "\0\0\0\0", 8)):
                with self.subTest(status=status):
                    program.write_text(content)
                    program.chmod(mode)
                    self.check_refusal(status, programs={"/usr/bin/hdiutil": program}, mounted=(),
                                       called=False)

    def test_no_image(self):
        for content in (b"", b"no image at all\n", bytes(100_000)):
            with self.prepared() as endpoint:
                endpoint.path(IMAGE).write_bytes(content)
                run = self.install(endpoint)
                self.assert_answer(run, 1, d.ABSENT)
                self.assertEqual(run.log[-1], "Failed to mount installer. Exit code: 1")
                self.assert_files(endpoint, IMAGE, TEMPORARY)

    def test_folder_in_place_of_an_image(self):
        with self.prepared() as endpoint:
            run = self.install(endpoint, PLACE)
            self.assert_answer(run, 1, d.ABSENT)
            self.assert_files(endpoint, PLACE, TEMPORARY)

    def test_damaged_image(self):
        with self.prepared(fill_with_package) as endpoint:
            content = endpoint.path(IMAGE).read_bytes()
            endpoint.path(IMAGE).write_bytes(content[:40_000])
            run = self.install(endpoint)
            self.assert_answer(run, 1, d.ABSENT)
            self.assert_files(endpoint, IMAGE, TEMPORARY)

    def test_answers_without_a_mount_point(self):
        xml = '<?xml version="1.0"?><plist version="1.0">{}</plist>'
        entity = "<dict><key>mount-point</key>{}</dict>"
        answers = {
            "empty": text(""),
            "no property list": text("hdiutil: attached\n/dev/disk2\n"),
            "truncated": property_list(
                {"system-entities": [{"mount-point": "$mountPoint"}] * 2}, length=300),
            "truncated binary": property_list(
                {"system-entities": [{"mount-point": "$mountPoint"}]}, format="binary", length=60),
            "empty dictionary": property_list({}),
            "array at the top": property_list([{"mount-point": "$mountPoint"}]),
            "text at the top": property_list("$mountPoint"),
            "at the top": property_list({"mount-point": "$mountPoint"}),
            "in a dictionary": property_list({"system-entities": {"mount-point": "$mountPoint"}}),
            "too deep": property_list({"system-entities": [[{"mount-point": "$mountPoint"}]]}),
            "no entities": property_list({"system-entities": []}),
            "entities of other kinds": property_list({"system-entities": ["mount-point", 1, True]}),
            "values of other kinds": property_list({"a": "mount-point", "b": 1, "c": True}),
            "other capitals": property_list({"system-entities": [{"Mount-Point": "$mountPoint"}]}),
            "mount point of another kind": text(xml.format(
                "<dict><key>system-entities</key><array>"
                + "".join(map(entity.format, ("<integer>1</integer>", "<true/>", "<data></data>",
                                              "<array><string>/</string></array>")))
                + "</array></dict>")),
        }
        for name, wanted in answers.items():
            with self.subTest(answer=name):
                self.check_failure(2, NOT_MOUNTED, wanted)

    def test_answers_with_a_mount_point(self):
        mounted = {"mount-point": "$mountPoint"}
        answers = {
            "binary": property_list({"system-entities": [mounted]}, format="binary"),
            "in any array": property_list({"a": "text", "b": {"c": [1]}, "images": [mounted]}),
            "after other kinds": property_list(
                {"system-entities": ["text", 1, {"mount-point": 2}, ["x"], mounted]}),
            "first of several": property_list(
                {"system-entities": [mounted, {"mount-point": "/nowhere"}]}),
        }
        for name, wanted in answers.items():
            with self.subTest(answer=name):
                self.check_success(wanted=wanted)

    def test_mount_point_that_does_not_exist(self):
        with self.prepared(wanted=property_list(
                {"dev-entry": "/dev/disk9", "e": [{"mount-point": "/Volumes/Other"}]})) as endpoint:
            with tempfile.TemporaryDirectory() as folder:
                images.write_image(pathlib.Path(folder), endpoint.path(IMAGE))
            run = self.install(endpoint)
            self.assert_answer(run, 2, d.ABSENT)
            self.assert_whole_log(run, [*attach(), *search(None, None), *missing()])
            self.assert_programs(run, ATTACH, ["hdiutil", "detach", "/dev/disk9", "-quiet"])
            self.assert_files(endpoint, IMAGE, "/Volumes/SETUP")


class TemporaryFile(ImageCase):
    """The file that receives what hdiutil answers."""

    def test_next_number_while_earlier_ones_are_taken(self):
        with self.prepared(fill_with_small_package, scenario(attach={
                "acts": False, "status": 3, "output": {"text": "said"}})) as endpoint:
            for number in range(3):
                self.assertEqual(self.install(endpoint).status, 3)
                path = endpoint.path(
                    f"{installation.TEMPORARY}/KXToolInstall_{FIRST_NUMBER + number}")
                self.assertEqual(path.read_text(), "said")
                self.assertEqual(path.stat().st_mode & 0o777, 0o600)
            self.assertEqual(len(os.listdir(endpoint.path(installation.TEMPORARY))), 3)

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
                self.assert_descriptors(run.calls[0], NEXT_TEMPORARY)
                after = path.lstat()
                self.assertEqual((after.st_mode, after.st_ino, after.st_size),
                                 (before.st_mode, before.st_ino, before.st_size))
                self.assert_files(endpoint, IMAGE, TEMPORARY, *MOUNTED)

    def test_number_starts_anew_when_the_file_is_gone(self):
        with self.prepared(fill_with_small_package, scenario(
                install={"acts": False}, attach=device_at_top())) as endpoint:
            for _ in range(2):
                self.assertEqual(self.install(endpoint).status, 0)
            for attached in [call for call in self.last_calls(endpoint) if "attach" in call[1]]:
                self.assertEqual(attached[0], TEMPORARY)
            self.assert_files(endpoint, IMAGE)

    def last_calls(self, endpoint):
        run = self.install(endpoint)
        return [(call["descriptors"]["1"], call["arguments"]) for call in run.calls]

    def test_runs_at_the_same_time_have_files_of_their_own(self):
        count = 6
        with self.prepared(fill_with_small_package, scenario(attach={
                "acts": False, "status": 3, "output": {"text": "said"}})) as endpoint:
            run = self.run_script_on(
                endpoint, f"for n in $(seq {count}); do $TOOL -runInstaller {IMAGE} & done; wait")
            self.assert_answer(run, 0, d.ABSENT * count)
            written = [f"{installation.TEMPORARY}/KXToolInstall_{FIRST_NUMBER + number}"
                       for number in range(count)]
            self.assertEqual(sorted(call["descriptors"]["1"] for call in run.calls), written)
            self.assertEqual([endpoint.path(path).read_text() for path in written],
                             ["said"] * count)

    @needs_sandbox
    def test_no_temporary_directory(self):
        with self.prepared(fill_with_small_package) as endpoint:
            endpoint.path("/tmp").rmdir()
            endpoint.path(installation.TEMPORARY).rmdir()
            run = self.install(endpoint)
            self.assert_answer(run, 2, d.ABSENT)
            self.assert_whole_log(run, [*attach(), "Cannot create temporary directory"])
            self.assert_programs(run)

    @needs_sandbox
    def test_directory_in_which_nothing_can_be_created(self):
        with self.prepared(fill_with_small_package) as endpoint:
            endpoint.path(installation.TEMPORARY).chmod(0o555)
            run = self.install(endpoint)
            self.assert_answer(run, 13, d.ABSENT)
            self.assert_whole_log(run, [*attach(), "Failed to mount installer. Exit code: 13"])
            self.assert_programs(run)

    @needs_sandbox
    def test_full_disk(self):
        filler = {"system-entities": [{"content-hint": "filler" * 2000},
                                      {"mount-point": "$mountPoint"}]}
        with self.prepared(fill_with_small_package, property_list(filler),
                           volumes={installation.TEMPORARY: 4096}) as endpoint:
            run = self.install(endpoint)
            self.assert_answer(run, 1, d.ABSENT)
            self.assert_whole_log(run, [*attach(), "Failed to mount installer. Exit code: 1"])


class Searching(ImageCase):
    """Which entries of the image are taken."""

    def check_missing(self, fill, item="(null)", configuration="(null)"):
        """The search fails, the image is detached and the temporary file deleted."""
        with self.prepared(fill, scenario(attach=device_at_top())) as endpoint:
            run = self.install(endpoint)
            self.assert_answer(run, 2, d.ABSENT)
            found = [None if path == "(null)" else path for path in (item, configuration)]
            self.assert_whole_log(run, [*attach(), *search(*found), *missing(item, configuration)])
            self.assert_programs(run, ATTACH, DETACH_DEVICE)
            self.assert_files(endpoint, IMAGE)

    def search_for(self, fill, prepare=None, status=0):
        """Runs an installation in which the installer does nothing; gives its run."""
        wanted = scenario(attach=device_at_top(), install={"acts": False})
        with self.prepared(fill, wanted) as endpoint:
            if prepare is not None:
                prepare(endpoint)
            run = self.install(endpoint)
            self.assert_answer(run, status, d.ABSENT)
            self.assert_files(endpoint, IMAGE)
            return run

    def test_empty_image(self):
        self.check_missing(lambda folder: None)

    def test_no_package(self):
        self.check_missing(images.write_configuration, configuration="installer.xml")

    def test_no_configuration(self):
        self.check_missing(lambda folder: (folder / "Setup.pkg").touch(), item="Setup.pkg")

    def test_applications_are_not_looked_for(self):
        self.check_missing(lambda folder: (folder / "Setup.app").mkdir())

    def test_names_that_are_not_taken(self):
        def fill(folder):
            for name in ("Installer.xml", "installer.XML", "installer.xml.txt", ".pkg", "pkg",
                         "Setup.pkg.zip", "Setup.mpkg", "Setup.pkg "):
                (folder / name).touch()

        self.check_missing(fill)

    def test_extension_in_any_capitals(self):
        def fill(folder):
            (folder / "sub.folder").mkdir()
            (folder / "sub.folder" / "My Setup.2.pKg").touch()
            images.write_configuration(folder / "sub.folder")

        run = self.search_for(fill)
        self.assert_programs(run, ATTACH, [
            "installer", "-pkg", f"{PLACE}/My Setup.2.pKg", "-target", "/"], DETACH_DEVICE)

    def test_configurations_name_with_the_packages_extension_is_a_package(self):
        def fill(folder):
            (folder / "installer.xml.pkg").touch()
            images.write_configuration(folder)

        run = self.search_for(fill)
        self.assertIn("Found app path: installer.xml.pkg", run.log)

    def test_folder_and_what_is_found_in_it_later(self):
        def fill(folder):
            inner = folder / "Outer.pkg" / "Inner.pkg"
            inner.mkdir(parents=True)
            images.write_configuration(inner)

        run = self.search_for(fill)
        self.assert_log(run, [
            *attach(), "Searching for app", "Found app path: Outer.pkg",
            "Found app path: Outer.pkg/Inner.pkg",
            "Found installer path:Outer.pkg/Inner.pkg/installer.xml",
            "Running ORVEX install process", *install(0, d.NOTHING)])
        self.assert_programs(run, ATTACH, [
            "installer", "-pkg", f"{PLACE}/Inner.pkg", "-target", "/"], DETACH_DEVICE)

    def test_walk_ends_when_both_are_found(self):
        def fill(folder):
            for number in range(20):
                (folder / f"folder {number}").mkdir()
                (folder / f"folder {number}" / f"{number}.pkg").touch()
                images.write_configuration(folder / f"folder {number}")

        run = self.search_for(fill)
        found = [line.partition(":")[2].strip() for line in run.log if line.startswith("Found ")]
        self.assertEqual(len(found), 2)
        self.assertEqual(os.path.dirname(found[0]), os.path.dirname(found[1]))

    def test_entry_that_is_a_folder_in_the_working_directory_is_passed_over(self):
        with self.prepared(fill_with_small_package, scenario(attach=device_at_top())) as endpoint:
            mine = endpoint.path(f"{installation.WORKING_DIRECTORY}/Setup.pkg")
            mine.mkdir()
            run = self.install(endpoint)
            self.assert_answer(run, 2, d.ABSENT)
            self.assert_whole_log(run, [*attach(), *search(None, "installer.xml"),
                                        *missing(configuration="installer.xml")])
            self.assertTrue(mine.is_dir())

    def test_entry_that_is_a_file_in_the_working_directory_is_not_passed_over(self):
        with self.prepared(fill_with_small_package, scenario(install={"acts": False})) as endpoint:
            mine = endpoint.path(f"{installation.WORKING_DIRECTORY}/Setup.pkg")
            mine.write_text("mine")
            run = self.install(endpoint)
            self.assert_answer(run, 0, d.ABSENT)
            self.assertEqual(mine.read_text(), "mine")

    def test_links_are_not_followed(self):
        def fill(folder):
            (folder / "real").mkdir()
            (folder / "real" / "Setup.pkg").touch()
            images.write_configuration(folder / "real")
            (folder / "link").symlink_to("real")
            (folder / "loop").symlink_to(".")
            (folder / "outside").symlink_to("/")

        run = self.search_for(fill)
        self.assert_whole_log(run, [*attach(), *search("real/Setup.pkg", "real/installer.xml"),
                                    *install(0, d.NOTHING)])

    def test_package_that_is_a_link_is_copied_as_one(self):
        def fill(folder):
            (folder / "Setup.pkg").symlink_to("/demo/mine.pkg")
            images.write_configuration(folder)

        with self.prepared(fill, scenario(install={"acts": False})) as endpoint:
            endpoint.path("/demo/mine.pkg").write_text("mine")
            run = self.install(endpoint)
            self.assert_answer(run, 0, d.ABSENT)
            self.assert_files(endpoint, IMAGE, "/demo/mine.pkg", *MOUNTED)


class Copying(ImageCase):
    """Both are copied into the image's directory."""

    def check_failure(self, line, status, prepare, left=(), **options):
        """The copying fails, the image is detached and the temporary file deleted."""
        with self.prepared(fill_with_small_package, scenario(attach=device_at_top()),
                           **options) as endpoint:
            prepare(endpoint)
            run = self.install(endpoint)
            self.assert_answer(run, status, d.ABSENT)
            self.assert_whole_log(run, [*attach(), *FOUND, line, finish(status)])
            self.assert_programs(run, ATTACH, DETACH_DEVICE)
            self.assert_files(endpoint, IMAGE, *left)

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
    def test_old_copy_that_cannot_be_deleted(self):
        def prepare(endpoint):
            endpoint.path(PACKAGE).write_text("old")
            endpoint.path(PLACE).chmod(0o555)

        self.check_failure("Cannot remove app path", 13, prepare, left=[PACKAGE])

    @needs_sandbox
    def test_directory_in_which_nothing_can_be_created(self):
        self.check_failure(NOT_COPIED, 2, lambda endpoint: endpoint.path(PLACE).chmod(0o555))

    def test_old_link_that_leads_nowhere_is_in_the_way(self):
        self.check_failure(NOT_COPIED, 2,
                           lambda endpoint: endpoint.path(PACKAGE).symlink_to("nowhere"),
                           left=[PACKAGE])

    def test_package_with_something_that_cannot_be_copied(self):
        def fill(folder):
            (folder / "Setup.pkg").mkdir()
            (folder / "Setup.pkg" / "file").write_text("content")
            os.mkfifo(folder / "Setup.pkg" / "pipe")
            images.write_configuration(folder)

        with self.prepared(fill, scenario(attach=device_at_top())) as endpoint:
            run = self.install(endpoint)
            self.assert_answer(run, 2, d.ABSENT)
            self.assert_whole_log(run, [*attach(), *FOUND, NOT_COPIED, finish(2)])
            self.assert_files(endpoint, IMAGE)

    @needs_sandbox
    def test_package_that_cannot_be_read(self):
        def fill(folder):
            fill_with_small_package(folder)
            (folder / "Setup.pkg").chmod(0)

        with self.prepared(fill, scenario(attach=device_at_top())) as endpoint:
            run = self.install(endpoint)
            self.assert_answer(run, 2, d.ABSENT)
            self.assert_whole_log(run, [*attach(), *FOUND, NOT_COPIED, finish(2)])
            self.assert_files(endpoint, IMAGE)

    @needs_sandbox
    def test_full_disk(self):
        """The image lies on a small disk on which there is no room for the package."""
        with self.prepared(fill_with_package, scenario(attach=device_at_top()),
                           volumes={"/demo/small": 8 * 1024}) as endpoint:
            run = self.run_script_on(endpoint, (
                f"ln -s {IMAGE} /demo/small; $TOOL -runInstaller /demo/small/Setup.iso; "
                "echo \" $?\"; ls /demo/small"))
            self.assert_answer(run, 0, f"{d.ABSENT} 2\nSetup.iso\n")
            self.assertEqual(run.log[-2:], [NOT_COPIED, finish(2)])


class Vanishing(ImageCase):
    """Something is gone between the search and the copying.

    The log is a pipe with just so much room that the tool waits in between: before the line that
    follows the search.
    """

    PAGE = 4096

    def check(self, vanishing, left):
        expected = [*attach(), *FOUND, NOT_COPIED, finish(2)]
        before = b"".join(b"0000-00-00 00:00:00 %b\n" % line.encode()
                          for line in expected[:expected.index("Running ORVEX install process")])
        with self.prepared(fill_with_small_package, scenario(attach=device_at_top())) as endpoint, \
                tempfile.TemporaryFile() as output:
            os.mkfifo(endpoint.path(installation.LOG))
            pipe = os.open(endpoint.path(installation.LOG), os.O_RDWR | os.O_NONBLOCK)
            self.assertEqual(fcntl.fcntl(pipe, fcntl.F_SETPIPE_SZ, self.PAGE), self.PAGE)
            filler = b"." * (self.PAGE - len(before))
            os.write(pipe, filler)
            with concurrent.futures.ThreadPoolExecutor() as pool:
                end = pool.submit(endpoint.run_tool, ["-runInstaller", IMAGE], 1000, stdout=output,
                                  timeout=60)
                self.await_content(pipe, self.PAGE, end)
                endpoint.path(vanishing).unlink()
                log = self.read_until(pipe, end)
            os.close(pipe)
            endpoint.path(installation.LOG).unlink()
            self.assertEqual(end.result(), 2)
            lines = log[len(filler):].decode().splitlines()
            self.assertEqual(sorted(line[20:] for line in lines), sorted(expected))
            self.assertEqual([line[20:] for line in lines[-2:]], expected[-2:])
            self.assert_files(endpoint, IMAGE, *left)

    def await_content(self, pipe, size, end):
        while int.from_bytes(fcntl.ioctl(pipe, termios.FIONREAD, bytes(4)), sys.byteorder) < size:
            self.assertFalse(end.done(), "the tool did not wait")
            time.sleep(0.001)

    @staticmethod
    def read_until(pipe, end):
        content = b""
        while True:
            done = end.done()
            with contextlib.suppress(BlockingIOError):
                content += os.read(pipe, 65536)
                continue
            if done:
                return content
            time.sleep(0.001)

    def test_package(self):
        self.check("/Volumes/SETUP/Setup.pkg", left=[])

    def test_configuration(self):
        """The package has been copied by then, and stays."""
        self.check("/Volumes/SETUP/installer.xml", left=[PACKAGE])


class Ending(ImageCase):
    """What follows the installation happens whatever its end was."""

    def check(self, status, mounted=(), **installers):
        wanted = scenario(**{"attach": device_at_top(), "install": {"acts": False}, **installers})
        with self.prepared(fill_with_small_package, wanted) as endpoint:
            run = self.install(endpoint)
            self.assert_answer(run, status, d.ABSENT)
            self.assert_whole_log(run, [*attach(), *FOUND, *install(status, d.NOTHING)])
            self.assert_programs(run, ATTACH, INSTALL, DETACH_DEVICE)
            self.assert_files(endpoint, IMAGE, *mounted)

    def test_installers_exit_status(self):
        for status in (1, 22, 255):
            with self.subTest(status=status):
                self.check(status, install={"acts": False, "status": status})

    def test_installer_ended_by_a_signal(self):
        self.check(11, install={"acts": False, "signal": 11})

    def test_failing_detachment_changes_nothing(self):
        for detach in ({"status": 16}, {"signal": 9}, {"noise": 60000}):
            with self.subTest(detach=detach):
                self.check(0, MOUNTED, detach={"acts": False, **detach})

    def test_installer_that_is_not_there(self):
        with self.prepared(fill_with_small_package, scenario(attach=device_at_top()),
                           programs={"/usr/sbin/installer": None}) as endpoint:
            run = self.install(endpoint)
            self.assert_answer(run, 2, d.ABSENT)
            self.assert_whole_log(run, [*attach(), *FOUND, *install(2, d.NOTHING)])
            self.assert_files(endpoint, IMAGE)


class Inheritance(ImageCase):
    """What the programs get of what the tool was started with."""

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


class Tools(ImageCase):
    """The stand-ins fail as the system's own tools do."""

    def test_statuses(self):
        cases = (
            ("hdiutil", 1), ("hdiutil nothing", 1), ("hdiutil detach", 1),
            ("hdiutil detach -quiet", 1), ("hdiutil detach /dev/disk9 -quiet", 1),
            ("hdiutil attach", 1), ("hdiutil attach /nowhere", 1),
            (f"hdiutil attach {IMAGE} -unknown", 1), (f"hdiutil attach {IMAGE} -plist", 0),
            ("hdiutil detach disk2s2", 0), ("hdiutil detach disk2", 1), ("installer", 1),
            ("installer -pkg /nowhere.pkg -target /", 1), ("installer -target / -pkg x", 1))
        script = "\n".join(f"{command} >/dev/null 2>&1; echo $?" for command, _ in cases)
        with self.prepared(fill_with_small_package) as endpoint:
            run = self.run_script_on(endpoint, script)
            self.assertEqual(run.output.decode().split(), [str(code) for _, code in cases])
            self.assert_files(endpoint, IMAGE)
