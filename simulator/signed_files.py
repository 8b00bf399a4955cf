"""Signed stand-in files. Signing takes time, so the results are kept in the build folder."""

import hashlib
import os
import pathlib
import shutil

from simulator import signing
from simulator.made_once import make_once

_OTHER_TEAM = "ZZ4OTHER99"
# The differences from the vendor's identity.
_IDENTITIES = {
    "vendor": {},
    "otherVendor": {
        "common_name": f"Developer ID Application: Someone Else Ltd ({_OTHER_TEAM})",
        "team_identifier": _OTHER_TEAM,
        "organization": "Someone Else Ltd",
    },
    "otherTeam": {"team_identifier": _OTHER_TEAM},
    "noTeam": signing.VARIANTS["no-team"],
    "expired": signing.VARIANTS["expired"],
    "unknownRoot": {"root_name": "Unknown Root CA"},
}
_UNTRUSTED = "unknownRoot"
_ALWAYS_TRUSTED = ("vendor", "otherVendor")


class SignedFiles:
    """Writes signed copies of files; keeps identities and results below `directory`."""

    def __init__(self, directory: pathlib.Path):
        self._directory = directory

    def place(self, content: bytes, destination: pathlib.Path, signature: str) -> None:
        """Writes `content` to `destination` with one of the kinds of signature that scenarios define."""
        key = hashlib.sha256(content).hexdigest()[:32]
        made = self._directory / "signed" / f"{key}-{signature}-{destination.name}"
        make_once(made, lambda folder: self._make(folder, content, destination.name, signature))
        for path in made.iterdir():
            shutil.copy(path, destination.with_name(path.name))

    def anchors(self, signatures: list[str]) -> str:
        """PEM texts of the roots of both vendors and of these signatures."""
        names = {*_ALWAYS_TRUSTED, *(name for name in signatures if name in _IDENTITIES)}
        names -= {_UNTRUSTED}
        return "".join(self._identity(name).anchor_path.read_text() for name in sorted(names))

    def _identity(self, name: str) -> signing.Identity:
        return signing.Identity.create(self._directory / "identities" / name, **_IDENTITIES[name])

    def _make(self, folder: pathlib.Path, content: bytes, name: str, signature: str) -> None:
        path = folder / name
        path.write_bytes(content)
        path.chmod(0o755)
        self.sign(path, signature)
        self._damage(path, signature)

    def sign(self, path: pathlib.Path, signature: str) -> None:
        """Signs the bundle or file at `path`; one that will be damaged gets the vendor's signature."""
        if signature == "adHoc":
            signing.sign(path, adhoc=True)
        elif signature != "none":
            known = signature if signature in _IDENTITIES else "vendor"
            signing.sign(path, self._identity(known))

    @staticmethod
    def _damage(path: pathlib.Path, signature: str) -> None:
        if signature == "tampered":
            content = bytearray(path.read_bytes())
            content[len(content) // 2] ^= 0x01
            path.write_bytes(content)
        elif signature == "truncated":
            os.truncate(path, path.stat().st_size // 2)
        elif signature == "garbled":
            sidecar = path.with_name(path.name + ".codesignature")
            sidecar.write_bytes(sidecar.read_bytes()[:40])
