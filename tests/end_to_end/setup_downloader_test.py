"""Installing with the setup downloader in a disk image: trust, whole logs, arguments, and files."""

import os

from simulator import installation
from simulator.installers import images
from tests.end_to_end import detections as d
from tests.end_to_end import transcripts as t
from tests.end_to_end.installer_case import (
    ABSENT, IMAGE, MEDIA, PLACE, TEMPORARY, InstallerCase, attach, device_at_top,
    install, missing, scenario, search)

NAME = "Setup Downloader.app"
APPLICATION = f"{PLACE}/{NAME}"
EXECUTABLE = "Contents/MacOS/Setup Downloader"
ATTACH = ["hdiutil", "attach", IMAGE, "-plist", "-private", "-nobrowse"]
DOWNLOADER = ["setupDownloader", "--silent"]
DETACH_DEVICE = ["hdiutil", "detach", "/dev/disk2", "-quiet"]
FOUND = search(NAME, "installer.xml")
INVALID = 'Invalid signature for "app"'


def fill(folder, signature="vendor"):
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
    """Runs setup downloaders."""

    def install(self, endpoint, path=IMAGE):
        return self.run_tool_on(endpoint, "-runSetupDownloader", path)

    def check_refusal(self, status, lines, fill_image=fill, wanted=None, beside=False):
        """Whatever was copied is deleted."""
        changed = {**(wanted or {}), "installers": {"attach": device_at_top()}}
        with self.prepared(fill_image, {"product": ABSENT, **changed}) as endpoint:
            if beside:
                images.write_configuration(endpoint.path(PLACE))
            run = self.install(endpoint)
            self.assert_answer(run, status % 256, d.ABSENT)
            self.assert_whole_log(run, [*attach("-runSetupDownloader"), *FOUND, *lines])
            self.assert_programs(run, ATTACH, DETACH_DEVICE)
            self.assert_files(endpoint, IMAGE)


class Success(DownloaderCase):
    """The vendor's application installs the product."""

    def test_whole_flow(self):
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

    def test_image_without_a_known_device_stays_attached(self):
        image = "/demo/downloader-image/Setup.iso"
        with self.endpoint(scenario={**scenario(), "media": ["downloader-image"]}) as endpoint:
            run = self.install(endpoint, image)
            self.assert_answer(run, 0, d.HEALTHY)
            self.assert_programs(
                run, ["hdiutil", "attach", image, "-plist", "-private", "-nobrowse"], DOWNLOADER,
                ["hdiutil", "detach"])
            self.assertEqual(sorted(os.listdir(endpoint.path("/Volumes/SETUP"))),
                             [NAME, "installer.xml"])
            self.assertEqual(os.listdir(endpoint.path(image).parent), ["Setup.iso"])
            self.assertEqual(os.listdir(endpoint.path(installation.TEMPORARY)), [])

    def test_certificate_that_has_expired_since(self):
        """The platform does not check dates unless it is told to."""
        with self.prepared(lambda folder: fill(folder, "expired"), trusting("expired")) as endpoint:
            run = self.install(endpoint)
            self.assert_answer(run, 0, d.HEALTHY)
            self.assertIn("Check complete. File is signed by Corvane", run.log)

    def test_unusual_names(self):
        def fill_deep(folder):
            deep = folder / "für \"Kunden\"" / "it's here; $HOME"
            deep.mkdir(parents=True)
            MEDIA.write_application(deep / "Установка – 1.0.APP")
            images.write_configuration(deep, group="deep")
            (folder / "Applications").symlink_to("/Applications")

        image = "/demo/two words/-it's.dmg"
        with self.prepared(fill_deep, scenario(attach=device_at_top()), image=image) as endpoint:
            run = self.install(endpoint, image)
            self.assert_answer(run, 0, d.HEALTHY.replace(d.GROUP, "deep"))
            self.assert_files(endpoint, image)

    def test_old_copy_is_replaced_and_a_configuration_beside_the_image_is_used(self):
        with self.prepared(fill, scenario(attach=device_at_top())) as endpoint:
            old = endpoint.path(f"{APPLICATION}/Contents/Resources/old")
            old.parent.mkdir(parents=True)
            old.write_text("old, and not sealed")
            images.write_configuration(endpoint.path(PLACE), group="beside")
            run = self.install(endpoint)
            self.assert_answer(run, 0, d.HEALTHY.replace(d.GROUP, "beside"))
            self.assert_files(endpoint, IMAGE)


class Trust(DownloaderCase):
    """Only the vendor's application is run."""

    def test_other_signatures(self):
        for signature, outcome, status, wanted in (
                ("otherVendor", "other signer", 22, None),
                ("otherTeam", "other signer", 22, trusting("otherTeam")),
                ("none", "invalid", 22, None),
                ("unknownRoot", "invalid", 22, None),
                ("vendor", "invalid", 22, {"product": {**ABSENT, "trust": "absent"}}),
                ("adHoc", "no certificate", 2, None)):
            with self.subTest(signature=signature):
                line = INVALID if status == 22 else \
                    f'Cannot check signature for "app". Exit code: {status}'
                self.check_refusal(status, [*check(outcome), line],
                                   lambda folder, name=signature: fill(folder, name), wanted)

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
            "missing executable": lambda folder: (folder / NAME / EXECUTABLE).unlink(),
        }
        for name, change in changes.items():
            with self.subTest(changed=name):
                def fill_changed(folder, change=change):
                    fill(folder)
                    change(folder)

                self.check_refusal(22, [*check("invalid"), INVALID], fill_changed)

    def test_another_executable_than_the_one_that_is_signed(self):
        def fill_around(folder):
            attack = folder / NAME
            MEDIA.write_application(attack / "Versions/Current")
            (attack / "Info.plist").write_text(
                "<plist><dict><key>CFBundleExecutable</key><string>evil</string></dict></plist>")
            (attack / "evil").write_text("#!/bin/sh\n")
            (attack / "evil").chmod(0o755)
            images.write_configuration(folder)

        self.check_refusal(22, [*check("invalid"), INVALID], fill_around)

    def test_link_to_an_application(self):
        def fill_with_link(folder):
            MEDIA.write_application(folder / "genuine")
            (folder / NAME).symlink_to("/Volumes/SETUP/genuine")
            images.write_configuration(folder)

        self.check_refusal(22, [*check("invalid"), INVALID], fill_with_link)

    def test_folder_that_is_not_a_bundle(self):
        def fill_with_folder(folder):
            (folder / NAME).mkdir()
            images.write_configuration(folder)

        with self.prepared(fill_with_folder, scenario(attach=device_at_top())) as endpoint:
            run = self.install(endpoint)
            code = int(run.log[-1].removeprefix(
                'Cannot check signature for "app". Exit code: '))
            self.assertLess(code, -60000)
            self.assert_answer(run, code % 256, d.ABSENT)
            self.assert_whole_log(run, [
                *attach("-runSetupDownloader"), *FOUND,
                f"Checking code signature for {APPLICATION}",
                *t.check_without_code(APPLICATION, code),
                f'Cannot check signature for "app". Exit code: {code}'])
            self.assert_files(endpoint, IMAGE)

    def test_configuration_that_was_beside_is_deleted_too(self):
        self.check_refusal(22, [*check("other signer"), INVALID],
                           lambda folder: fill(folder, "otherVendor"), beside=True)


class Failures(DownloaderCase):
    """An accepted application that fails or cannot be run, and an image without one."""

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
        self.check(255, setupDownloader={"acts": False, "status": 255})

    def test_configuration_that_is_not_xml(self):
        def fill_with_text(folder):
            fill(folder)
            (folder / "installer.xml").write_text("no XML")

        self.check(1, fill_with_text)

    def test_executable_without_the_permission_to_run(self):
        def fill_without_permission(folder):
            fill(folder)
            (folder / NAME / EXECUTABLE).chmod(0o644)

        self.check(13, fill_without_permission, started=False)

    def test_executable_that_is_not_a_program(self):
        def fill_with_text(folder):
            MEDIA.write_application(folder / NAME, "none")
            (folder / NAME / EXECUTABLE).write_text("no program\n")
            MEDIA.sign(folder / NAME, "vendor")
            images.write_configuration(folder)

        self.check(8, fill_with_text, started=False)

    def test_no_application(self):
        def fill_with_package(folder):
            (folder / "Setup.pkg").touch()
            images.write_configuration(folder)

        with self.prepared(fill_with_package, scenario(attach=device_at_top())) as endpoint:
            run = self.install(endpoint)
            self.assert_answer(run, 2, d.ABSENT)
            self.assert_whole_log(run, [
                *attach("-runSetupDownloader"), *search(None, "installer.xml"),
                *missing(configuration="installer.xml")])
            self.assert_programs(run, ATTACH, DETACH_DEVICE)
            self.assert_files(endpoint, IMAGE)
