"""Builds installation media: packages, applications and disk images.

    media = Media(build)
    media.write_package(folder / "Setup.pkg")
    write_configuration(folder)
    write_image(folder, pathlib.Path("Setup.iso"))

The demonstration media are made once and kept in the build folder.
"""

import hashlib
import io
import json
import os
import pathlib
import plistlib
import shutil
import subprocess
import tarfile
import tempfile
from typing import Any

from simulator import installation, scenario
from simulator.made_once import make_once
from simulator.signed_files import SignedFiles

Json = Any

CONFIGURATION_NAME = "installer.xml"
_CONFIGURATION = """<?xml version="1.0" encoding="utf-8"?>
<installer>
  <company>{company}</company>
  <group>{group}</group>
</installer>
"""
_COMPANY = "62f0c1a8b7d3e45f90a1b2c3"
_GROUP = "5e8d7c6b5a4f3e2d1c0b9a88"
_SETUP_DOWNLOADER = pathlib.Path(__file__).with_name("setup_downloader.py")
_PAGES = 2000


def write_configuration(folder: pathlib.Path, company: str = _COMPANY, group: str = _GROUP) -> None:
    """Writes the installer's configuration with the owner of the endpoint."""
    text = _CONFIGURATION.format(company=company, group=group)
    (folder / CONFIGURATION_NAME).write_text(text, encoding="utf-8")


def write_image(content: pathlib.Path, image: pathlib.Path, volume: str = "SETUP") -> None:
    """Makes a disk image of the folder `content`: ISO 9660 with Rock Ridge.

    Raises BuildError.
    """
    command = ["xorriso", "-no_rc", "-abort_on", "FAILURE", "-outdev", f"stdio:{image}",
               "-volid", volume, "-padding", "0", "-map", str(content), "/"]
    for path in pathlib.Path(content).rglob("*"):
        if path.is_file() and not path.is_symlink() and not os.access(path, os.R_OK):
            mode = path.stat().st_mode
            path.chmod(mode | 0o400)  # for xorriso; the image gets the original mode
            command += ["-chmod", f"{mode & 0o777:03o}", f"/{path.relative_to(content)}", "--"]
    made = subprocess.run(command, stdin=subprocess.DEVNULL, capture_output=True, check=False)
    if made.returncode != 0:
        reason = made.stderr.decode(errors="replace").strip()
        raise installation.BuildError(f"cannot make the disk image {image}: {reason}")


class Media:
    """Packages and applications with the stand-ins of a build folder."""

    def __init__(self, build: pathlib.Path):
        self._build = build
        self._signed = SignedFiles(build / "simulator" / "signing")

    def write_package(self, path: pathlib.Path, product: Json = None) -> None:
        """Writes a package with the product of a scenario, by default that of healthy."""
        product = product or scenario.load(scenario.DEFAULT)["product"]
        with tempfile.TemporaryDirectory() as folder:
            installed = installation.Installation(pathlib.Path(folder), self._build)
            installed.write_product(product)
            description = {
                "configuration": _configuration(installed, product),
                "services": [service["path"] for service in installed.services(product)],
            }
            with tarfile.open(path, "w") as archive:
                _add_text(archive, "package.json", json.dumps(description))
                archive.add(folder, "payload")

    def write_application(self, path: pathlib.Path, signature: str = "vendor") -> None:
        """Writes the setup downloader's application bundle with a kind of signature that scenarios define."""
        contents = path / "Contents"
        executable = contents / "MacOS" / "Setup Downloader"
        for folder in (executable.parent, contents / "Resources"):
            folder.mkdir(parents=True)
        self.write_package(contents / "Resources" / "Setup.pkg")
        shutil.copy(_SETUP_DOWNLOADER, executable)
        (contents / "Info.plist").write_bytes(plistlib.dumps({
            "CFBundleExecutable": executable.name,
            "CFBundleIdentifier": "example.corvane.setupdownloader",
            "CFBundleName": "Setup Downloader",
            "CFBundlePackageType": "APPL",
        }))
        self.sign(path, signature)

    def sign(self, path: pathlib.Path, signature: str) -> None:
        """Signs an application again."""
        self._signed.sign(path, signature)

    def place(self, names: list[str], folder: pathlib.Path) -> None:
        """Puts copies of demonstration media, by their names in scenarios, into `folder`."""
        for name in names:
            made = self._build / "simulator" / "media" / self._version() / name
            make_once(made, lambda target, name=name: self._make(name, target))
            shutil.copytree(made, folder / name)

    def _version(self) -> str:
        """A key for everything that the demonstration media are made of."""
        made_of = [pathlib.Path(__file__), _SETUP_DOWNLOADER,
                   *(self._build / "simulator" / name for name in ("agentsdk.so", "service"))]
        content = [self._signed.anchors([]).encode(), *(path.read_bytes() for path in made_of)]
        return hashlib.sha256(b"".join(content)).hexdigest()[:32]

    def _make(self, name: str, target: pathlib.Path) -> None:
        if name == "package":
            self._fill_with_package(target)
            return
        with tempfile.TemporaryDirectory() as content:
            _CONTENTS[name](self, pathlib.Path(content))
            write_image(pathlib.Path(content), target / "Setup.iso")

    def _fill_with_package(self, folder: pathlib.Path) -> None:
        self.write_package(folder / "Setup.pkg")
        write_configuration(folder)

    def _fill_with_much(self, folder: pathlib.Path) -> None:
        """A package deep inside a large tree, under unusual names."""
        pages = folder / "Documentation"
        pages.mkdir()
        for number in range(_PAGES):
            (pages / f"page {number}.html").write_text(f"<p>Page {number}</p>\n")
        deep = folder / "Setup Files" / "für \"Kunden\"" / "it's here; $HOME" / "日本"
        deep.mkdir(parents=True)
        self.write_package(deep / "Endpoint Security – Setup.PKG")
        write_configuration(deep)
        (folder / "Latest").symlink_to("Setup Files")
        (folder / "Applications").symlink_to("/Applications")
        (folder / "Loop").symlink_to(".")
        (deep / CONFIGURATION_NAME).chmod(0o440)
        deep.chmod(0o555)

    def _fill_with_application(self, folder: pathlib.Path, signature: str = "vendor") -> None:
        self.write_application(folder / "Setup Downloader.app", signature)
        write_configuration(folder)

    def _fill_with_tampered_application(self, folder: pathlib.Path) -> None:
        self._fill_with_application(folder)
        with open(folder / "Setup Downloader.app/Contents/Resources/Setup.pkg", "ab") as package:
            package.write(b"something more")

    def _fill_with_hollow_application(self, folder: pathlib.Path) -> None:
        self._fill_with_application(folder)
        (folder / "Setup Downloader.app/Contents/MacOS/Setup Downloader").unlink()


# The functions that make the contents of the demonstration images.
_CONTENTS = {
    "package-image": Media._fill_with_package,
    "nested-image": Media._fill_with_much,
    "downloader-image": Media._fill_with_application,
    "other-vendor-image": lambda media, folder: media._fill_with_application(folder, "otherVendor"),
    "tampered-image": Media._fill_with_tampered_application,
    "no-executable-image": Media._fill_with_hollow_application,
}


def _configuration(installed: installation.Installation, product: Json) -> str | None:
    """The agent configuration file of the product's layout, if it has one."""
    if product["layout"] is None:
        return None
    path = installation.LAYOUTS[product["layout"]].agcfng
    return path if installed.path(path).exists() else None


def _add_text(archive: tarfile.TarFile, name: str, text: str) -> None:
    information = tarfile.TarInfo(name)
    information.size = len(text.encode())
    archive.addfile(information, io.BytesIO(text.encode()))
