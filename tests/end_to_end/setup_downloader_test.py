"""Installing by the setup downloader of a disk image: trust, whole logs, arguments, and files."""

import os
import stat

from simulator import installation
from simulator.installers import images
from tests.end_to_end import detections as d
from tests.end_to_end import transcripts as t
from tests.end_to_end.installer_case import (
    ABSENT, CONFIGURATION, IMAGE, MEDIA, PLACE, TEMPORARY, InstallerCase, attach,
    device_at_top, finish, install, missing, scenario, search)

NAME = "Setup Downloader.app"
APPLICATION = f"{PLACE}/{NAME}"
EXECUTABLE = "Contents/MacOS/Setup Downloader"
ATTACH = ["hdiutil", "attach", IMAGE, "-plist", "-private", "-nobrowse"]
DOWNLOADER = ["setupDownloader", "--silent"]
DETACH_DEVICE = ["hdiutil", "detach", "/dev/disk2", "-quiet"]
FOUND = search(NAME, "installer.xml")


def fill(folder, signature="maker"):
    """The application and its configuration."""
    MEDIA.write_application(folder / NAME, signature)
    images.write_configuration(folder)


def check(outcome):
    """The check of the copied application."""
    return [f"Checking code signature for {APPLICATION}", *t.check(APPLICATION, outcome)]


def trusting(signature):
    """An endpoint that accepts the root of this signature."""
    return {"product": {**ABSENT, "library": {"signature": signature}}}


class DownloaderCase(InstallerCase):
    """Base of these tests."""

    def install(self, endpoint, path=IMAGE):
        return self.run_tool_on(endpoint, "-runSetupDownloader", path)


class Success(DownloaderCase):
    """The maker's application installs the product."""

    def test_whole_road(self):
        with self.prepared(fill, scenario(attach=device_at_top())) as endpoint:
            run = self.install(endpoint)
            self.assert_answer(run, 0, d.HEALTHY)
            self.assert_whole_log(run, [
                *attach("-runSetupDownloader"), *FOUND, *check("signed"),
                *install(0, d.healthy())])
            self.assert_programs(run, ATTACH, DOWNLOADER, DETACH_DEVICE)
            programs = [call for call in run.calls if "arguments" in call]
            self.assert_descriptors(programs[0], TEMPORARY)
            self.assert_descriptors(programs[1])
            self.assert_files(endpoint, IMAGE)

    def test_demonstration_stays_attached(self):
        image = "/demo/downloader-image/Setup.iso"
        with self.endpoint(scenario={**scenario(), "media": ["downloader-image"]}) as endpoint:
            run = self.install(endpoint, image)
            self.assert_answer(run, 0, d.HEALTHY)
            self.assert_programs(
                run, ["hdiutil", "attach", image, "-plist", "-private", "-nobrowse"], DOWNLOADER,
                ["hdiutil", "detach"])
            mounted = endpoint.path("/Volumes/SETUP")
            self.assertEqual(sorted(os.listdir(mounted)), [NAME, "installer.xml"])
            self.assertEqual(os.listdir(endpoint.path(image).parent), ["Setup.iso"])
            self.assertEqual(os.listdir(endpoint.path(installation.TEMPORARY)), [])

    def test_certificate_that_has_expired_since(self):
        """The platform checks no dates unless it is told to."""
        with self.prepared(lambda folder: fill(folder, "expired"), trusting("expired")) as endpoint:
            run = self.install(endpoint)
            self.assert_answer(run, 0, d.HEALTHY)
            self.assertIn("Check complete. File is signed by Corvane", run.log)

    def test_unusual_names(self):
        def fill_with_much(folder):
            deep = folder / "für \"Kunden\"" / "it's here; $HOME"
            deep.mkdir(parents=True)
            MEDIA.write_application(deep / "Установка – 1.0.APP")
            images.write_configuration(deep, group="deep")
            (folder / "Applications").symlink_to("/Applications")

        image = "/demo/two words/-it's.dmg"
        with self.prepared(fill_with_much, scenario(attach=device_at_top()),
                           image=image) as endpoint:
            run = self.install(endpoint, image)
            self.assert_answer(run, 0, d.HEALTHY.replace(d.GROUP, "deep"))
            self.assert_files(endpoint, image)

    def test_image_in_the_working_directory(self):
        image = f"{installation.WORKING_DIRECTORY}/Setup.iso"
        with self.prepared(fill, scenario(attach=device_at_top()), image=image) as endpoint:
            run = self.install(endpoint, "Setup.iso")
            self.assert_answer(run, 0, d.HEALTHY)
            self.assertIn(f"Checking code signature for {NAME}", run.log)
            left = os.listdir(endpoint.path(installation.WORKING_DIRECTORY))
            self.assertEqual([name for name in left if not name.startswith("libsl")],
                             ["Setup.iso"])

    def test_configuration_beside_the_image_is_used(self):
        with self.prepared(fill, scenario(attach=device_at_top())) as endpoint:
            images.write_configuration(endpoint.path(PLACE), group="beside")
            run = self.install(endpoint)
            self.assert_answer(run, 0, d.HEALTHY.replace(d.GROUP, "beside"))
            self.assert_files(endpoint, IMAGE)

    def test_old_copy_is_replaced(self):
        with self.prepared(fill, scenario(attach=device_at_top())) as endpoint:
            old = endpoint.path(f"{APPLICATION}/Contents/Resources/old")
            old.parent.mkdir(parents=True)
            old.write_text("old, and not sealed")
            run = self.install(endpoint)
            self.assert_answer(run, 0, d.HEALTHY)
            self.assert_files(endpoint, IMAGE)

    def test_configuration_that_leads_into_the_old_copy(self):
        with self.prepared(fill, scenario(attach=device_at_top())) as endpoint:
            old = endpoint.path(f"{APPLICATION}/Contents/Resources")
            old.mkdir(parents=True)
            images.write_configuration(old, group="old")
            endpoint.path(CONFIGURATION).symlink_to(f"{NAME}/Contents/Resources/installer.xml")
            run = self.install(endpoint)
            self.assert_answer(run, 2, d.ABSENT)
            self.assert_whole_log(run, [
                *attach("-runSetupDownloader"), *FOUND,
                "Cannot copy new app or installer xml does not exist and it cannot be copied",
                finish(2)])
            self.assertTrue(endpoint.path(CONFIGURATION).is_symlink())
            self.assertFalse((old / "installer.xml").exists())
            self.assertTrue(endpoint.path(f"{APPLICATION}/{EXECUTABLE}").is_file())


class Trust(DownloaderCase):
    """Only the maker's application is run. Whatever was copied is deleted, and nothing logged."""

    def check_refusal(self, status, lines, fill_image=fill, wanted=None, beside=False):
        changed = {**(wanted or {}), "installers": {"attach": device_at_top()}}
        with self.prepared(fill_image, {"product": ABSENT, **changed}) as endpoint:
            if beside:
                images.write_configuration(endpoint.path(PLACE))
            run = self.install(endpoint)
            self.assert_answer(run, status % 256, d.ABSENT)
            self.assert_whole_log(run, [*attach("-runSetupDownloader"), *FOUND, *lines])
            self.assert_programs(run, ATTACH, DETACH_DEVICE)
            self.assert_files(endpoint, IMAGE)

    def check_signature(self, signature, status, outcome, wanted=None):
        line = 'Invalid signature for "app"'
        if status != 22:
            line = f'Cannot check signature for "app". Exit code: {status}'
        self.check_refusal(status, [*check(outcome), line],
                           lambda folder: fill(folder, signature), wanted)

    def test_other_maker(self):
        self.check_signature("otherMaker", 22, "other signer")

    def test_other_team_under_the_makers_name(self):
        self.check_signature("otherTeam", 22, "other signer", trusting("otherTeam"))

    def test_unsigned(self):
        self.check_signature("none", 22, "invalid")

    def test_unknown_root(self):
        self.check_signature("unknownRoot", 22, "invalid")

    def test_no_accepted_roots(self):
        self.check_signature("maker", 22, "invalid", {"product": {**ABSENT, "trust": "absent"}})

    def test_ad_hoc_signature_has_no_certificate(self):
        self.check_signature("adHoc", 2, "no certificate")

    def test_no_team(self):
        self.check_signature("noTeam", 2, "no team", trusting("noTeam"))

    def test_changed_after_it_was_signed(self):
        def append(folder, name):
            with open(folder / NAME / name, "ab") as file:
                file.write(b"\n")

        changes = {
            "executable": lambda folder: append(folder, EXECUTABLE),
            "resource": lambda folder: append(folder, "Contents/Resources/Setup.pkg"),
            "information": lambda folder: append(folder, "Contents/Info.plist"),
            "seal": lambda folder: append(folder, "Contents/_CodeSignature/CodeResources"),
            "added file": lambda folder: (folder / NAME / "Contents/Resources/new").touch(),
            "missing resource":
                lambda folder: (folder / NAME / "Contents/Resources/Setup.pkg").unlink(),
            "missing executable": lambda folder: (folder / NAME / EXECUTABLE).unlink(),
        }
        for name, change in changes.items():
            with self.subTest(changed=name):
                def fill_changed(folder, change=change):
                    fill(folder)
                    change(folder)

                self.check_refusal(22, [*check("invalid"), 'Invalid signature for "app"'],
                                   fill_changed)

    def test_another_executable_than_the_one_that_is_signed(self):
        def fill_around(folder):
            attack = folder / NAME
            MEDIA.write_application(attack / "Versions/Current")
            (attack / "Info.plist").write_text(
                "<plist><dict><key>CFBundleExecutable</key><string>evil</string></dict></plist>")
            (attack / "evil").write_text("#!/bin/sh\n")
            (attack / "evil").chmod(0o755)
            images.write_configuration(folder)

        self.check_refusal(22, [*check("invalid"), 'Invalid signature for "app"'], fill_around)

    def test_link_to_an_application(self):
        def fill_with_link(folder):
            MEDIA.write_application(folder / "genuine")
            (folder / NAME).symlink_to("/Volumes/SETUP/genuine")
            images.write_configuration(folder)

        self.check_refusal(22, [*check("invalid"), 'Invalid signature for "app"'], fill_with_link)

    def test_no_bundle(self):
        def fill_with_file(folder):
            (folder / NAME).write_text("no bundle")
            images.write_configuration(folder)

        self.check_refusal(22, [*check("invalid"), 'Invalid signature for "app"'], fill_with_file)

    def test_configuration_that_was_beside_is_deleted_too(self):
        self.check_refusal(22, [*check("other signer"), 'Invalid signature for "app"'],
                           lambda folder: fill(folder, "otherMaker"), beside=True)

    def test_demonstrations(self):
        for name in ("other-maker-image", "tampered-image", "no-executable-image"):
            with self.subTest(image=name), self.endpoint(scenario={
                    **scenario(attach=device_at_top()), "media": [name]}) as endpoint:
                run = self.install(endpoint, f"/demo/{name}/Setup.iso")
                self.assert_answer(run, 22, d.ABSENT)
                self.assertEqual(run.log[-1], 'Invalid signature for "app"')
                self.assert_files(endpoint, f"/demo/{name}/Setup.iso")

    def test_image_without_a_known_device_stays_attached(self):
        with self.prepared(lambda folder: fill(folder, "otherMaker")) as endpoint:
            run = self.install(endpoint)
            self.assert_answer(run, 22, d.ABSENT)
            self.assert_programs(run, ATTACH, ["hdiutil", "detach"])
            self.assertEqual(os.listdir(endpoint.path(PLACE)), ["Setup.iso"])
            self.assertEqual(os.listdir(endpoint.path(installation.TEMPORARY)), [])


class Unchecked(DownloaderCase):
    """What cannot be checked at all."""

    def test_folder_that_is_no_bundle(self):
        def fill_with_folder(folder):
            (folder / NAME).mkdir()
            images.write_configuration(folder)

        with self.prepared(fill_with_folder, scenario(attach=device_at_top())) as endpoint:
            run = self.install(endpoint)
            self.assertEqual((run.output, run.errors), (d.ABSENT.encode(), b""))
            code = int(run.log[-1].removeprefix(
                'Cannot check signature for "app". Exit code: '))
            self.assertLess(code, -60000)
            self.assertEqual(run.status, code % 256)
            self.assert_whole_log(run, [
                *attach("-runSetupDownloader"), *FOUND,
                f"Checking code signature for {APPLICATION}",
                *t.check_without_code(APPLICATION, code),
                f'Cannot check signature for "app". Exit code: {code}'])
            self.assert_programs(run, ATTACH, DETACH_DEVICE)
            self.assert_files(endpoint, IMAGE)


class Failures(DownloaderCase):
    """The accepted application runs, or cannot be run; what was copied is deleted."""

    def check(self, status, fill_image=fill, started=True, **installers):
        with self.prepared(fill_image, scenario(
                **{"attach": device_at_top(), **installers})) as endpoint:
            run = self.install(endpoint)
            self.assert_answer(run, status, d.ABSENT)
            self.assert_whole_log(run, [
                *attach("-runSetupDownloader"), *FOUND, *check("signed"),
                *install(status, d.NOTHING)])
            self.assert_programs(run, ATTACH, *[DOWNLOADER] * started, DETACH_DEVICE)
            self.assert_files(endpoint, IMAGE)

    def test_exit_status(self):
        for status in (1, 22, 255):
            with self.subTest(status=status):
                self.check(status, setupDownloader={"acts": False, "status": status})

    def test_signal(self):
        for number in (9, 11):
            with self.subTest(signal=number):
                self.check(number, setupDownloader={"acts": False, "signal": number})

    def test_slow_and_talking(self):
        self.check(0, setupDownloader={"acts": False, "delay": 500, "noise": 60000})

    def test_configuration_that_is_no_xml(self):
        def fill_with_text(folder):
            fill(folder)
            (folder / "installer.xml").write_text("no XML")

        self.check(1, fill_with_text)

    def test_executable_without_the_right_to_run(self):
        def fill_without_right(folder):
            fill(folder)
            executable = folder / NAME / EXECUTABLE
            executable.chmod(executable.stat().st_mode & ~(stat.S_IXUSR | stat.S_IXGRP
                                                           | stat.S_IXOTH))

        self.check(13, fill_without_right, started=False)

    def test_executable_that_is_no_program(self):
        def fill_with_text(folder):
            MEDIA.write_application(folder / NAME, "none")
            (folder / NAME / EXECUTABLE).write_text("no program\n")
            MEDIA.sign(folder / NAME, "maker")
            images.write_configuration(folder)

        self.check(8, fill_with_text, started=False)


class Missing(DownloaderCase):
    """What the image lacks."""

    def check(self, fill_image, **found):
        with self.prepared(fill_image, scenario(attach=device_at_top())) as endpoint:
            run = self.install(endpoint)
            self.assert_answer(run, 2, d.ABSENT)
            self.assert_whole_log(run, [
                *attach("-runSetupDownloader"),
                *search(found.get("item"), found.get("configuration")), *missing(**found)])
            self.assert_programs(run, ATTACH, DETACH_DEVICE)
            self.assert_files(endpoint, IMAGE)

    def test_no_application(self):
        def fill_with_package(folder):
            (folder / "Setup.pkg").touch()
            images.write_configuration(folder)

        self.check(fill_with_package, configuration="installer.xml")

    def test_no_configuration(self):
        self.check(lambda folder: (folder / NAME).mkdir(), item=NAME)

    def test_application_that_is_a_folder_in_the_working_directory(self):
        with self.prepared(fill, scenario(attach=device_at_top())) as endpoint:
            endpoint.path(f"{installation.WORKING_DIRECTORY}/{NAME}").mkdir()
            run = self.install(endpoint)
            self.assert_answer(run, 2, d.ABSENT)
            self.assertEqual(run.log[-2:], missing(configuration="installer.xml"))

    def test_attaching_fails(self):
        with self.prepared(fill, scenario(attach={"acts": False, "status": 77})) as endpoint:
            run = self.install(endpoint)
            self.assert_answer(run, 77, d.ABSENT)
            self.assert_whole_log(run, [*attach("-runSetupDownloader"),
                                        "Failed to mount installer. Exit code: 77"])
            self.assert_files(endpoint, IMAGE, TEMPORARY)

    def test_copying_fails(self):
        def fill_with_pipe(folder):
            fill(folder)
            os.mkfifo(folder / NAME / "Contents" / "Resources" / "pipe")

        with self.prepared(fill_with_pipe, scenario(attach=device_at_top())) as endpoint:
            run = self.install(endpoint)
            self.assert_answer(run, 2, d.ABSENT)
            self.assert_whole_log(run, [
                *attach("-runSetupDownloader"), *FOUND,
                "Cannot copy new app or installer xml does not exist and it cannot be copied",
                finish(2)])
            self.assert_files(endpoint, IMAGE)
