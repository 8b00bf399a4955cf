"""Installing from a package that was given directly, and what is decided before any installation.

Whole logs, the programs' arguments, and the files before and after.
"""

import os
import pathlib
import tempfile

from simulator import installation
from simulator import scenario as scenarios
from simulator.installers import images
from tests.end_to_end import detections as d
from tests.end_to_end.harness import needs_sandbox
from tests.end_to_end.installer_case import (
    ABSENT, CONFIGURATION, IMAGE, MEDIA, PACKAGE, PLACE, InstallerCase, attach, begin,
    from_package, scenario)

RUN_PACKAGE = ["installer", "-pkg", PACKAGE, "-target", "/"]


class PackageCase(InstallerCase):
    """Base of the tests that install a package."""

    def put_package(self, endpoint, path=PACKAGE, product=None, **owner):
        target = endpoint.path(path)
        target.parent.mkdir(parents=True, exist_ok=True)
        MEDIA.write_package(target, product)
        images.write_configuration(target.parent, **owner)

    def put_files(self, endpoint, path=PACKAGE):
        """A package and a configuration from which nothing is installed."""
        target = endpoint.path(path)
        target.parent.mkdir(parents=True, exist_ok=True)
        target.write_text("a package\n")
        images.write_configuration(target.parent)

    def check_failure(self, status, wanted=None, **options):
        """The installation of a package ends with `status` and installs nothing."""
        with self.prepared(wanted=wanted, **options) as endpoint:
            self.put_files(endpoint)
            run = self.run_tool_on(endpoint, "-runInstaller", PACKAGE)
            self.assert_answer(run, status, d.ABSENT)
            self.assert_whole_log(run, from_package(status, d.NOTHING))
            self.assert_files(endpoint, PLACE)
            return run


class Success(PackageCase):
    """The installer does what it is asked for."""

    def test_installs_and_deletes_what_was_given(self):
        with self.prepared() as endpoint:
            self.put_package(endpoint)
            self.assert_files(endpoint, PACKAGE, CONFIGURATION)
            run = self.run_tool_on(endpoint, "-runInstaller", PACKAGE)
            self.assert_answer(run, 0, d.HEALTHY)
            self.assert_whole_log(run, from_package(0, d.healthy()))
            self.assert_programs(run, RUN_PACKAGE)
            self.assert_descriptors(run.calls[0])
            self.assertEqual(run.calls[0]["directory"], installation.WORKING_DIRECTORY)
            self.assert_files(endpoint, PLACE)

    def test_extension_in_upper_case_and_option_in_mixed_case(self):
        path = "/demo/setup/Setup.PKG"
        with self.prepared() as endpoint:
            self.put_package(endpoint, path)
            run = self.run_tool_on(endpoint, "-RUNinstaller", path)
            self.assert_answer(run, 0, d.HEALTHY)
            self.assert_programs(run, ["installer", "-pkg", path, "-target", "/"])
            self.assert_files(endpoint, PLACE)

    def test_configuration_is_handed_on(self):
        with self.prepared() as endpoint:
            self.put_package(endpoint, group="another group")
            run = self.run_tool_on(endpoint, "-runInstaller", PACKAGE)
            self.assert_answer(run, 0, d.HEALTHY.replace(d.GROUP, "another group"))

    def test_other_files_beside_are_left_alone(self):
        with self.prepared() as endpoint:
            self.put_package(endpoint)
            others = [f"{PLACE}/Other.pkg", f"{PLACE}/Installer.xml", f"{PLACE}/Setup"]
            for other in others:
                endpoint.path(other).write_text("mine")
            self.run_tool_on(endpoint, "-runInstaller", PACKAGE)
            self.assert_files(endpoint, *others)

    def test_without_a_log(self):
        with self.prepared(logging=False) as endpoint:
            self.put_package(endpoint)
            run = self.run_tool_on(endpoint, "-runInstaller", PACKAGE)
            self.assert_answer(run, 0, d.HEALTHY)
            self.assertIsNone(run.log)

    def test_services_that_do_not_come_up(self):
        product = {**scenarios.load("healthy")["product"], "services": [{"name": "KXLDaemon"}]}
        with self.prepared() as endpoint:
            self.put_package(endpoint, product=product)
            run = self.run_tool_on(endpoint, "-runInstaller", PACKAGE)
            self.assert_answer(run, 0, d.UNHEALTHY)
            self.assert_whole_log(run, from_package(0, d.without_services()))

    def test_second_installation_is_refused(self):
        with self.prepared() as endpoint:
            self.put_package(endpoint)
            self.run_tool_on(endpoint, "-runInstaller", PACKAGE)
            self.put_package(endpoint)
            run = self.run_tool_on(endpoint, "-runInstaller", PACKAGE)
            self.assertEqual(run.status, 16)
            self.assert_files(endpoint, PACKAGE, CONFIGURATION)


class Names(PackageCase):
    """Paths reach the installer as they were given."""

    def check(self, path, given=None):
        with self.prepared() as endpoint:
            absolute = os.path.join(installation.WORKING_DIRECTORY, path)
            self.put_package(endpoint, absolute)
            run = self.run_tool_on(endpoint, "-runInstaller", given or path)
            self.assert_answer(run, 0, d.HEALTHY)
            self.assert_programs(run, ["installer", "-pkg", given or path, "-target", "/"])
            self.assertEqual(list(endpoint.path(absolute).parent.glob("*.pkg")), [])
            self.assertFalse(endpoint.path(absolute).with_name("installer.xml").exists())

    def test_blanks_quotes_and_shell_characters(self):
        self.check("/demo/it's a \"folder\"/$(touch x) `touch y`; rm -rf *.pkg")

    def test_characters_beyond_ascii(self):
        self.check("/demo/日本語/Übung – endpoint.pkg")

    def test_decomposed_characters_stay_decomposed(self):
        self.check("/demo/u\u0308bung.pkg")

    def test_bytes_that_are_no_characters(self):
        self.check(os.fsdecode(b"/demo/\xff\xfe/setup.pkg"))

    def test_newline(self):
        self.check("/demo/two\nlines.pkg")

    def test_name_alone_lies_in_the_working_directory(self):
        self.check("Setup.pkg")

    def test_relative_path(self):
        self.check("below/Setup.pkg")

    def test_leading_hyphen(self):
        self.check("-pkg.pkg")

    def test_detours(self):
        self.check("/demo/setup/Setup.pkg", "/demo//setup/./../setup/Setup.pkg")

    def test_link_is_removed_and_not_what_it_leads_to(self):
        with self.prepared() as endpoint:
            self.put_package(endpoint, "/demo/kept/Real.pkg")
            endpoint.path(PACKAGE).symlink_to("../kept/Real.pkg")
            endpoint.path(CONFIGURATION).symlink_to("../kept/installer.xml")
            run = self.run_tool_on(endpoint, "-runInstaller", PACKAGE)
            self.assert_answer(run, 0, d.HEALTHY)
            self.assert_programs(run, RUN_PACKAGE)
            self.assert_files(endpoint, PLACE, "/demo/kept/Real.pkg", "/demo/kept/installer.xml")

    def test_folder_with_a_trailing_slash(self):
        with self.prepared(wanted=scenario(install={"acts": False})) as endpoint:
            self.put_files(endpoint, f"{PACKAGE}/Contents/Archive.pax")
            images.write_configuration(endpoint.path(PLACE))
            run = self.run_tool_on(endpoint, "-runInstaller", f"{PACKAGE}/")
            self.assert_answer(run, 0, d.ABSENT)
            self.assert_whole_log(run, from_package(0, d.NOTHING))
            self.assert_programs(run, ["installer", "-pkg", f"{PACKAGE}/", "-target", "/"])
            self.assert_files(endpoint, PLACE)


class Failures(PackageCase):
    """The installation runs and fails; what was given is deleted all the same."""

    def test_exit_status_is_returned(self):
        run = self.check_failure(1)  # it is no package
        self.assert_programs(run, RUN_PACKAGE)
        for status in (2, 16, 255):
            with self.subTest(status=status):
                self.check_failure(status, scenario(install={"acts": False, "status": status}))

    def test_failure_after_the_product_was_installed(self):
        with self.prepared(wanted=scenario(install={"status": 9})) as endpoint:
            self.put_package(endpoint)
            run = self.run_tool_on(endpoint, "-runInstaller", PACKAGE)
            self.assert_answer(run, 9, d.HEALTHY)
            self.assert_whole_log(run, from_package(9, d.healthy()))
            self.assert_files(endpoint, PLACE)

    def test_signals_number_is_the_status(self):
        for number in (6, 9, 15):
            with self.subTest(signal=number):
                self.check_failure(number, scenario(install={"acts": False, "signal": number}))

    def test_slow_installer_that_talks(self):
        self.check_failure(3, scenario(install={"acts": False, "status": 3, "delay": 700,
                                                "noise": 60000}))

    def test_installer_that_is_not_there(self):
        self.assert_programs(self.check_failure(2, programs={"/usr/sbin/installer": None}))

    def test_installer_that_cannot_be_started(self):
        with tempfile.TemporaryDirectory() as folder:
            program = pathlib.Path(folder, "installer")
            for mode, text, status in ((0o644, "#!/bin/sh\n", 13), (0o755, "\0\0\0\0", 8),
                                       (0o755, "#!/nowhere/sh\n", 2)):
                with self.subTest(status=status):
                    program.write_text(text)
                    program.chmod(mode)
                    run = self.check_failure(status, programs={"/usr/sbin/installer": program})
                    self.assert_programs(run)

    @needs_sandbox
    def test_package_in_a_folder_that_may_not_be_changed(self):
        with self.prepared() as endpoint:
            self.put_package(endpoint)
            endpoint.path(PLACE).chmod(0o555)
            run = self.run_tool_on(endpoint, "-runInstaller", PACKAGE)
            self.assert_answer(run, 0, d.HEALTHY)
            self.assert_files(endpoint, PACKAGE, CONFIGURATION)


class Refusals(PackageCase):
    """Nothing is run and nothing is deleted."""

    OPTIONS = ("-runInstaller", "-runSetupDownloader")

    def test_configuration_missing(self):
        with self.prepared() as endpoint:
            self.put_files(endpoint)
            endpoint.path(CONFIGURATION).rename(endpoint.path(f"{PLACE}/Installer.xml"))
            run = self.run_tool_on(endpoint, "-runInstaller", PACKAGE)
            self.assert_answer(run, 2, d.ABSENT)
            self.assert_whole_log(run, [*from_package(0, [])[:-4], "Installer xml does not exist"])
            self.assert_programs(run)
            self.assert_files(endpoint, PACKAGE, f"{PLACE}/Installer.xml")

    def test_configuration_that_leads_nowhere(self):
        with self.prepared() as endpoint:
            self.put_files(endpoint)
            endpoint.path(CONFIGURATION).unlink()
            endpoint.path(CONFIGURATION).symlink_to("nowhere")
            run = self.run_tool_on(endpoint, "-runInstaller", PACKAGE)
            self.assert_answer(run, 2, d.ABSENT)
            self.assertEqual(run.log[-1], "Installer xml does not exist")
            self.assert_files(endpoint, PACKAGE, CONFIGURATION)

    def test_product_healthy(self):
        for option, start in zip(self.OPTIONS, ("run installer", "setup downloader"), strict=True):
            with self.subTest(option=option), self.prepared(wanted="healthy") as endpoint:
                self.put_files(endpoint)
                run = self.run_tool_on(endpoint, option, PACKAGE)
                self.assert_answer(run, 16, d.HEALTHY)
                self.assert_whole_log(run, [
                    f"Starting ORVEX installer with {start}", "Starting ORVEX Detect",
                    *d.healthy(), "ORVEX Already exists"])
                self.assert_programs(run)
                self.assert_files(endpoint, PACKAGE, CONFIGURATION)

    def test_product_not_healthy(self):
        run = self.run_tool("-runInstaller", IMAGE, scenario="services-missing")
        self.assert_answer(run, 16, d.UNHEALTHY)
        self.assert_whole_log(run, [
            "Starting ORVEX installer with run installer", "Starting ORVEX Detect",
            *d.without_services(), "ORVEX Already exists"])

    def test_product_of_which_nothing_is_known(self):
        product = {"services": [], "configuration": {"agcfng": None, "agcf": None}}
        run = self.run_tool("-runInstaller", IMAGE, scenario={"product": product})
        self.assert_answer(run, 16, "2|||")

    def test_path_that_is_not_accessible(self):
        for option in self.OPTIONS:
            with self.prepared() as endpoint:
                self.put_files(endpoint)
                endpoint.path("/demo/loop").symlink_to("loop")
                endpoint.path("/demo/astray.pkg").symlink_to("nowhere")
                for path, error in (("/demo/nothing.pkg", 2), ("/nowhere/Setup.iso", 2), ("", 2),
                                    (f"{PACKAGE}/Setup.iso", 20), (f"{PACKAGE}/", 20),
                                    ("/demo/loop", 40),
                                    ("/demo/astray.pkg", 2), (f"/demo/{'n' * 256}.pkg", 36)):
                    with self.subTest(option=option, path=path):
                        endpoint.path(installation.LOG).unlink(missing_ok=True)
                        run = self.run_tool_on(endpoint, option, path)
                        self.assert_answer(run, error, d.ABSENT)
                        self.assert_whole_log(run, [
                            *begin(option), "Invalid file attributes or Installer is a directory"])
                        self.assert_programs(run)

    @needs_sandbox
    def test_path_in_a_folder_that_may_not_be_entered(self):
        with self.prepared() as endpoint:
            endpoint.path("/demo/closed/below").mkdir(parents=True)
            endpoint.path("/demo/closed").chmod(0)
            run = self.run_tool_on(endpoint, "-runInstaller", "/demo/closed/below")
            self.assert_answer(run, 13, d.ABSENT)
            endpoint.path("/demo/closed").chmod(0o755)

    def test_wrong_number_of_arguments(self):
        for option, name in zip(self.OPTIONS, ("installerPath", "setupDownloaderPath"),
                                strict=True):
            for words in ([], [PACKAGE, PACKAGE]):
                with self.subTest(option=option, words=words):
                    run = self.run_tool(option, *words, scenario={"product": ABSENT})
                    self.assert_answer(run, 22, "")
                    self.assert_whole_log(run, [
                        f'Bad arguments. <{name}> is required after "{option}" was provided'])


class OtherRoad(PackageCase):
    """What is no package by its name, or not for this option, is taken for a disk image."""

    def check(self, option, path):
        with self.prepared() as endpoint:
            self.put_files(endpoint, path)
            run = self.run_tool_on(endpoint, option, path)
            self.assert_answer(run, 1, d.ABSENT)
            self.assert_whole_log(run, [*attach(option),
                                        "Failed to mount installer. Exit code: 1"])
            self.assert_programs(run, ["hdiutil", "attach", path, "-plist", "-private",
                                       "-nobrowse"])

    def test_package_for_the_setup_downloader(self):
        self.check("-runSetupDownloader", PACKAGE)

    def test_names_without_the_extension(self):
        for name in (".pkg", "Setup.pkg.", "Setup.pkg.zip", "pkg", "Setup.mpkg"):
            with self.subTest(name=name):
                self.check("-runInstaller", f"{PLACE}/{name}")
