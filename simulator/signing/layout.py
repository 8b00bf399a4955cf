"""The layout of bundles: finds the parts of one, and builds small ones.

Sources: Apple's "Bundle Programming Guide" and open CoreFoundation (CFBundle).
"""

import dataclasses
import os
import pathlib
import plistlib

from simulator.signing.host import SigningError


@dataclasses.dataclass(frozen=True)
class Form:
    """One way to lay out a bundle; paths are relative to it, "" is the bundle itself.

    `marker` is the directory that identifies the form. `root` holds `_CodeSignature` and is what
    CodeResources seals. Executables are looked for in `executables`, in this order.
    """

    marker: str
    root: str
    information: str
    executables: tuple[str, ...]


FORMS = {
    "contents": Form("Contents", "Contents", "Contents", ("Contents/MacOS", "Contents", "")),
    "resources": Form("Resources", "", "Resources", ("",)),
    "support-files": Form("Support Files", "Support Files", "Support Files",
                          ("Support Files/Executables/MacOS", "Support Files/Executables", "")),
    "flat": Form("", "", "", ("MacOS", "")),
}


@dataclasses.dataclass(frozen=True)
class Layout:
    """The parts of a bundle. `information` is the Info.plist, or None.

    `resources` is the prefix of resources below the root: "Resources/", or "".
    """

    name: str
    root: pathlib.Path
    information: pathlib.Path | None
    executable: pathlib.Path
    resources: str

    @property
    def signature_directory(self):
        return self.root / "_CodeSignature"


def find_layout(path):
    """The Layout of the bundle at `path`; for a versioned one, that of its current version."""
    bundle = pathlib.Path(path)
    name, framework = bundle.stem, bundle.suffix == ".framework"
    present = _directories(bundle)
    if not present & {"contents", "support files"} and (bundle / "Versions/Current/.").is_dir():
        bundle = pathlib.Path(os.path.realpath(bundle / "Versions" / "Current"))
        present = _directories(bundle)
    order = ("resources", "contents") if framework else ("contents", "resources")
    form = next((FORMS[each] for each in (*order, "support-files")
                 if FORMS[each].marker.lower() in present), FORMS["flat"])
    information = next((file for file in (bundle / form.information / "Info-macos.plist",
                                          bundle / form.information / "Info.plist")
                        if file.is_file()), None)
    values = _information_values(information)
    wanted = values.get("CFBundleExecutable") or values.get("NSExecutable") or name
    found = (bundle / folder / wanted for folder in form.executables)
    executable = next((file for file in found if file.is_file()), information)
    if executable is None:
        raise SigningError(f"{path} is not a bundle: it has no executable and no Info.plist")
    resources = "" if form == FORMS["flat"] else "Resources/"
    return Layout(name, bundle / form.root, information, executable, resources)


def _directories(path):
    try:
        return {each.name.lower() for each in path.iterdir() if each.is_dir()}
    except OSError as error:
        raise SigningError(f"cannot read {path}: {error.strerror}") from error


def _information_values(path):
    try:
        values = plistlib.loads(path.read_bytes()) if path else {}
    except (OSError, ValueError, plistlib.InvalidFileException):
        return {}
    return values if isinstance(values, dict) else {}


def build_bundle(path, executable, *, form="contents", files=None):
    """Builds an unsigned bundle whose executable (octets) is named like the bundle. Returns its path.

    `form` is one of FORMS, or "framework" for a framework with a version A. `files` maps paths
    relative to the sealed root to contents (octets) or to the targets of symbolic links (text).
    """
    path = pathlib.Path(path)
    if form != "framework":
        _build(path, path.stem, executable, FORMS[form], files or {})
        return path
    _build(path / "Versions" / "A", path.stem, executable, FORMS["resources"], files or {})
    (path / "Versions" / "Current").symlink_to("A")
    for name in (path.stem, "Resources"):
        (path / name).symlink_to(f"Versions/Current/{name}")
    return path


def _build(path, name, executable, form, files):
    information = plistlib.dumps({
        "CFBundleExecutable": name, "CFBundleIdentifier": "com.example.agent", "CFBundleName": name,
        "CFBundlePackageType": "APPL", "CFBundleShortVersionString": "1.0"})
    folder = "" if form == FORMS["flat"] else form.executables[0]
    _add(path / form.information / "Info.plist", information)
    _add(path / folder / name, executable)
    (path / folder / name).chmod(0o755)
    for relative, content in files.items():
        _add(path / form.root / relative, content)


def _add(path, content):
    path.parent.mkdir(parents=True, exist_ok=True)
    if isinstance(content, str):
        path.symlink_to(content)
    else:
        path.write_bytes(content)
