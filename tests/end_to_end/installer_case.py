"""Shared by the tests of the installer runner."""

import dataclasses
import pathlib
import tempfile
from collections.abc import Callable, Iterator
from contextlib import contextmanager

from simulator import endpoints, installation
from simulator.installers import images
from tests.end_to_end import detections as d
from tests.end_to_end.harness import BUILD, EndToEndCase, ToolRun

PLACE = "/demo/setup"
IMAGE = f"{PLACE}/Setup.iso"
PACKAGE = f"{PLACE}/Setup.pkg"
CONFIGURATION = f"{PLACE}/installer.xml"
ABSENT = {"layout": None, "services": []}
FIRST_NUMBER = 1804289383  # rand() without a seed
TEMPORARY = f"{installation.TEMPORARY}/KXToolInstall_{FIRST_NUMBER}"
MEDIA = images.Media(BUILD)

_STARTS = {"-runInstaller": "run installer", "-runSetupDownloader": "setup downloader"}


def scenario(**installers) -> dict:
    """An endpoint without the product, with these installer tools."""
    return {"product": ABSENT, "installers": installers}


def device_at_top(**changes) -> dict:
    """An answer of hdiutil with the device in the top dictionary, too."""
    entity = {"content-hint": "Apple_HFS", "dev-entry": "$devices2", "mount-point": "$mountPoint"}
    value = {"dev-entry": "$device", "system-entities": [{"dev-entry": "$device"}, entity]}
    return {"output": {"propertyList": value}, **changes}


def fill_with_package(folder: pathlib.Path) -> None:
    """A package and its configuration."""
    MEDIA.write_package(folder / "Setup.pkg")
    images.write_configuration(folder)


def fill_with_small_package(folder: pathlib.Path) -> None:
    """The same for tests in which nothing is installed."""
    (folder / "Setup.pkg").write_text("a package\n")
    images.write_configuration(folder)


def begin(option: str) -> list[str]:
    """The beginning of an installation that is not refused."""
    return [f"Starting ORVEX installer with {_STARTS[option]}", "Starting ORVEX Detect",
            *d.NOTHING, "Get installer path attributes"]


def from_package(status: int, detection: list[str]) -> list[str]:
    """The whole log of the installation of a package that was given directly."""
    return [*begin("-runInstaller"), "Running ORVEX Install",
            'Running ORVEX Install with "pkg installer"', "Check for pkg filename",
            "Checking for installer xml", "Running ORVEX Install",
            f"ORVEX Install finished with exit code: {status}", "Starting ORVEX detect",
            *detection, "Finished ORVEX detect"]


def attach(option: str = "-runInstaller") -> list[str]:
    """Up to the attachment of an image."""
    lines = [*begin(option), "Running ORVEX Install"]
    if option == "-runInstaller":
        lines += ['Running ORVEX Install with "pkg installer"', "Check for pkg filename"]
    return [*lines, "Running ORVEX Install with installer"]


def search(item: str | None, configuration: str | None) -> list[str]:
    """The search, which finds at most one of each."""
    lines = ["Searching for app"]
    if item is not None:
        lines.append(f"Found app path: {item}")
    if configuration is not None:
        lines.append(f"Found installer path:{configuration}")
    return [*lines, "Running ORVEX install process"]


def install(status: int, detection: list[str]) -> list[str]:
    """The installation of what was found, to the end."""
    return ["Running ORVEX Install", f"ORVEX Install finished with exit code: {status}",
            "Starting final ORVEX Detect", *detection, "Finished ORVEX Detect", finish(status)]


def finish(status: int) -> str:
    """The last line of an installation from an image."""
    return f"Finished ORVEX install with status: {status}"


def missing(item: str = "(null)", configuration: str = "(null)",
            beside: str = CONFIGURATION) -> list[str]:
    """The end if the image lacks something."""
    return [f"app or installer xml does exist at given path:  {item}  {configuration}  {beside}",
            finish(2)]


class InstallerCase(EndToEndCase):
    """Base of the tests of the installer runner."""

    @contextmanager
    def prepared(self, fill: Callable[[pathlib.Path], None] | None = None, wanted=None,
                 image: str = IMAGE, **options) -> Iterator[endpoints.Endpoint]:
        """An endpoint with a disk image that holds what `fill` has put into a folder.

        `wanted` is the scenario; the default is an endpoint without the product.
        """
        with self.endpoint(scenario=wanted or scenario(), **options) as endpoint:
            target = endpoint.path(image)
            target.parent.mkdir(parents=True, exist_ok=True)
            if fill is not None:
                with tempfile.TemporaryDirectory() as folder:
                    fill(pathlib.Path(folder))
                    images.write_image(pathlib.Path(folder), target)
            yield endpoint

    def assert_programs(self, run: ToolRun, *expected: list[str]) -> None:
        """The programs that were run, each as its name and its arguments."""
        self.assertEqual([[call["what"], *call["arguments"]] for call in run.calls
                          if "arguments" in call], list(expected))

    def assert_descriptors(self, call: dict, output: str = "pipe") -> None:
        """A program inherited only its standard streams; the output can be a file."""
        kinds = {number: "pipe" if target.startswith("pipe:") else target
                 for number, target in call["descriptors"].items()}
        self.assertEqual(kinds, {"0": "pipe", "1": output, "2": "pipe"})

    def assert_files(self, endpoint: endpoints.Endpoint, *expected: str) -> None:
        """All files, links and empty folders in the places that installations touch."""
        found = []
        for place in (installation.DEMONSTRATIONS, installation.TEMPORARY, installation.VOLUMES):
            top = endpoint.path(place)
            found += [f"{place}/{path.relative_to(top)}" for path in top.rglob("*")
                      if path.is_symlink() or not path.is_dir() or not any(path.iterdir())]
        self.assertEqual(sorted(found), sorted(expected))

    def assert_whole_log(self, run: ToolRun, expected: list[str]) -> None:
        """Like assert_log(); the entries of an image can be found in any order."""
        log = list(run.log)
        for index, line in enumerate(log[:-1]):
            if line.startswith("Found installer path:") and log[index + 1].startswith("Found app"):
                log[index:index + 2] = log[index + 1], line
        self.assert_log(dataclasses.replace(run, log=log), expected, d.callbacks(run))
