"""Installing a package that was given directly, and what is refused before any installation.

Whole logs, the programs' arguments, and the files afterwards.
"""

import os

from simulator import installation
from simulator import scenario as scenarios
from simulator.installers import images
from tests.end_to_end import detections as d
from tests.end_to_end.installer_case import (
    CONFIGURATION, IMAGE, MEDIA, PACKAGE, PLACE, InstallerCase, begin, from_package, scenario)

OPTIONS = ("-runInstaller", "-runSetupDownloader")


def run_package(path):
    """The installer is run with this package."""
    return ["installer", "-pkg", path, "-target", "/"]


class PackageCase(InstallerCase):
    """Installs packages."""

    def put_package(self, endpoint, path=PACKAGE, product=None, **owner):
        target = endpoint.path(path)
        target.parent.mkdir(parents=True, exist_ok=True)
        MEDIA.write_package(target, product)
        images.write_configuration(target.parent, **owner)


class Success(PackageCase):
    """The installer runs; whatever it does, the package and its configuration are deleted."""

    def test_installs_and_deletes_what_was_given(self):
        with self.prepared() as endpoint:
            self.put_package(endpoint, group="another group")
            others = [f"{PLACE}/Other.pkg", f"{PLACE}/Installer.xml", f"{PLACE}/Setup"]
            for other in others:
                endpoint.path(other).write_text("mine")
            run = self.run_tool_on(endpoint, "-runInstaller", PACKAGE)
            self.assert_answer(run, 0, d.HEALTHY.replace(d.GROUP, "another group"))
            self.assert_whole_log(run, from_package(0, d.healthy(group="another group")))
            self.assert_programs(run, run_package(PACKAGE))
            self.assert_descriptors(run.calls[0])
            self.assertEqual(run.calls[0]["directory"], installation.WORKING_DIRECTORY)
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

    def test_failure_after_the_product_was_installed(self):
        with self.prepared(wanted=scenario(install={"status": 9})) as endpoint:
            self.put_package(endpoint)
            run = self.run_tool_on(endpoint, "-runInstaller", PACKAGE)
            self.assert_answer(run, 9, d.HEALTHY)
            self.assert_whole_log(run, from_package(9, d.healthy()))
            self.assert_files(endpoint, PLACE)

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
            run = self.run_tool_on(endpoint, "-RUNinstaller", given or path)
            self.assert_answer(run, 0, d.HEALTHY)
            self.assert_programs(run, run_package(given or path))
            self.assertFalse(endpoint.path(absolute).exists())
            self.assertFalse(endpoint.path(absolute).with_name("installer.xml").exists())

    def test_unusual_characters(self):
        for path in ("/demo/it's a \"folder\"/$(touch x) `touch y`; rm -rf *.PKG",
                     "/demo/日本語/u\u0308bung –\n.pkg"):
            with self.subTest(path=path):
                self.check(path)

    def test_bytes_that_are_not_characters(self):
        self.check(os.fsdecode(b"/demo/\xff\xfe/setup.pkg"))

    def test_relative_paths(self):
        for path in ("-pkg.pkg", "below/Setup.pkg"):
            with self.subTest(path=path):
                self.check(path)

    def test_detours(self):
        self.check("/demo/setup/Setup.pkg", "/demo//setup/./../setup/Setup.pkg")

    def test_link_is_removed_and_not_what_it_leads_to(self):
        with self.prepared() as endpoint:
            self.put_package(endpoint, "/demo/kept/Real.pkg")
            endpoint.path(PACKAGE).symlink_to("../kept/Real.pkg")
            endpoint.path(CONFIGURATION).symlink_to("../kept/installer.xml")
            run = self.run_tool_on(endpoint, "-runInstaller", PACKAGE)
            self.assert_answer(run, 0, d.HEALTHY)
            self.assert_programs(run, run_package(PACKAGE))
            self.assert_files(endpoint, PLACE, "/demo/kept/Real.pkg", "/demo/kept/installer.xml")

    def test_folder_with_a_trailing_slash(self):
        with self.prepared(wanted=scenario(install={"acts": False})) as endpoint:
            (endpoint.path(PACKAGE) / "Contents").mkdir(parents=True)
            (endpoint.path(PACKAGE) / "Contents/Archive.pax").write_text("a part of a package\n")
            images.write_configuration(endpoint.path(PLACE))
            run = self.run_tool_on(endpoint, "-runInstaller", f"{PACKAGE}/")
            self.assert_answer(run, 0, d.ABSENT)
            self.assert_whole_log(run, from_package(0, d.NOTHING))
            self.assert_programs(run, run_package(f"{PACKAGE}/"))
            self.assert_files(endpoint, PLACE)


class Refusals(PackageCase):
    """Nothing is run and nothing is deleted."""

    def test_configuration_missing(self):
        with self.prepared() as endpoint:
            self.put_package(endpoint)
            endpoint.path(CONFIGURATION).rename(endpoint.path(f"{PLACE}/Installer.xml"))
            endpoint.path(CONFIGURATION).symlink_to("nowhere")
            run = self.run_tool_on(endpoint, "-runInstaller", PACKAGE)
            self.assert_answer(run, 2, d.ABSENT)
            self.assert_whole_log(run, [*from_package(0, [])[:-4], "Installer xml does not exist"])
            self.assert_programs(run)
            self.assert_files(endpoint, PACKAGE, CONFIGURATION, f"{PLACE}/Installer.xml")

    def test_product_healthy(self):
        for option, start in zip(OPTIONS, ("run installer", "setup downloader"), strict=True):
            with self.subTest(option=option), self.prepared(wanted="healthy") as endpoint:
                self.put_package(endpoint)
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

    def test_path_that_is_not_accessible(self):
        with self.prepared() as endpoint:
            self.put_package(endpoint)
            endpoint.path("/demo/loop").symlink_to("loop")
            for option in OPTIONS:
                for path, error in (("/demo/nothing.pkg", 2), ("", 2), (f"{PACKAGE}/", 20),
                                    ("/demo/loop", 40), (f"/demo/{'n' * 256}.pkg", 36)):
                    with self.subTest(option=option, path=path):
                        endpoint.path(installation.LOG).unlink(missing_ok=True)
                        run = self.run_tool_on(endpoint, option, path)
                        self.assert_answer(run, error, d.ABSENT)
                        self.assert_whole_log(run, [
                            *begin(option), "Invalid file attributes or Installer is a directory"])
                        self.assert_programs(run)
