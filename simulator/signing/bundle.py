"""Signatures of bundles: the seal of their files, then the signature of their executable.

Sources: Apple's Technical Note TN2206 and open `Security` (resources.cpp, bundlediskrep.cpp).
"""

import os
import pathlib
import plistlib
import re

from simulator.signing import blobs, macho, reading, signature
from simulator.signing.host import SigningError, contents, read, write
from simulator.signing.layout import find_layout
from simulator.signing.signature import Options

# Keys of a sealed file's hashes.
HASH_KEYS = {"sha1": "hash", "sha256": "hash2", "sha256-truncated": "hash3", "sha384": "hash4"}

# Where the components are kept when the executable is not Mach-O. Alternate CodeDirectories go to
# CodeRequirements-1 and so on.
COMPONENT_FILES = {
    blobs.SLOT_CODE_DIRECTORY: "CodeDirectory",
    blobs.SLOT_REQUIREMENTS: "CodeRequirements",
    blobs.SLOT_ENTITLEMENTS: "CodeEntitlements",
    blobs.SLOT_DER_ENTITLEMENTS: "CodeEntitlementDER",
    blobs.SLOT_CMS: "CodeSignature",
}


def default_rules(resources):
    """The rules of version 1. `resources` is "Resources/", or "" if resources lie in the root."""
    return {
        f"^{resources}": True,
        f"^{resources}.*\\.lproj/": {"optional": True, "weight": 1000.0},
        f"^{resources}Base\\.lproj/": {"weight": 1010.0},
        f"^{resources}.*\\.lproj/locversion.plist$": {"omit": True, "weight": 1100.0},
        "^version.plist$": True,
    }


def default_rules_2(resources):
    """The rules of version 2. No two rules that match the same path have the same weight, because their
    order would be undefined."""
    return {
        "^.*": True,
        "^[^/]+$": {"nested": True, "weight": 10.0},
        "^(Frameworks|SharedFrameworks|PlugIns|Plug-ins|XPCServices|Helpers|MacOS"
        "|Library/(Automator|Spotlight|LoginItems))/": {"nested": True, "weight": 10.0},
        ".*\\.dSYM($|/)": {"weight": 11.0},
        "^(.*/)?\\.DS_Store$": {"omit": True, "weight": 2000.0},
        "^Info\\.plist$": {"omit": True, "weight": 20.0},
        "^version\\.plist$": {"weight": 20.0},
        "^embedded\\.provisionprofile$": {"weight": 20.0},
        "^PkgInfo$": {"omit": True, "weight": 20.0},
        f"^{resources}": {"weight": 20.0 if resources else 15.0},
        f"^{resources}.*\\.lproj/": {"optional": True, "weight": 1000.0},
        f"^{resources}Base\\.lproj/": {"weight": 1010.0},
        f"^{resources}.*\\.lproj/locversion.plist$": {"omit": True, "weight": 1100.0},
    }


class _Rules:
    def __init__(self, rules):
        self._rules = []
        for pattern, value in rules.items():
            fields = value if isinstance(value, dict) else {}
            self._rules.append({"weight": 1, **fields, "pattern": re.compile(pattern)})

    def find(self, path):
        """Returns the fields of the matching rule with the greatest weight, or None."""
        matching = [rule for rule in self._rules if rule["pattern"].search(path)]
        return max(matching, key=lambda rule: rule["weight"], default=None)


def sign_bundle(path, identity=None, *, nested_requirements=None, **options):
    """Signs the bundle at `path`. Code that is nested in it must have been signed before.

    A Mach-O executable gets an embedded signature; any other has its components in files of
    `_CodeSignature`. `nested_requirements` are texts that replace what is sealed for nested code, by
    relative path. In places for nested code, anything that is not signed code is sealed as a file. The
    other options are those of Options.
    """
    path = pathlib.Path(path)
    chosen = Options(**options)
    if chosen.linker_signed:
        raise SigningError("linkers do not sign bundles: sign the executable alone")
    layout = find_layout(path)
    seal = _Seal(layout, nested_requirements or {}, chosen.hashes)
    _prepare(layout.signature_directory)
    resources = plistlib.dumps(seal.content())
    write(layout.signature_directory / "CodeResources", resources)
    special = {blobs.SLOT_RESOURCES: resources}
    if layout.information is not None:
        special[blobs.SLOT_INFO_PLIST] = read(layout.information)
    with contents(layout.executable) as code:
        if not macho.is_macho(code):
            name = macho.bundle_identifier(special.get(blobs.SLOT_INFO_PLIST)) or layout.name
            found = signature.components(code, identity, chosen, name=name, special=special)
            _write_components(layout.signature_directory, found)
            return path
    macho.sign_macho(layout.executable, identity, special=special, **options)
    return path


def _prepare(directory):
    """Makes room for a new signature in `directory`."""
    try:
        directory.mkdir(exist_ok=True)
        for old in directory.iterdir():
            old.unlink()
    except OSError as error:
        raise SigningError(f"cannot prepare {directory}: {error.strerror}") from error


def _write_components(directory, found):
    for slot, encoding in found.items():
        if slot == blobs.SLOT_CMS:
            encoding = encoding[8:]
        name = COMPONENT_FILES.get(slot) or f"CodeRequirements-{slot - blobs.SLOT_ALTERNATE + 1}"
        write(directory / name, encoding)


class _Seal:
    """What CodeResources says about the files of one bundle."""

    def __init__(self, layout, nested_requirements, hashes):
        self._root = pathlib.Path(os.path.realpath(layout.root))
        self._executable = os.path.realpath(layout.executable)
        self._resources = layout.resources
        self._nested_requirements = nested_requirements
        self._hashes = hashes

    def content(self):
        rules, rules2 = default_rules(self._resources), default_rules_2(self._resources)
        return {"rules": rules, "files": dict(self._walk(_Rules(rules), 1)),
                "rules2": rules2, "files2": dict(self._walk(_Rules(rules2), 2))}

    def _walk(self, rules, version):
        """The relative path and the entry of everything that is sealed."""
        for directory, folders, files in os.walk(self._root):
            directory = pathlib.Path(directory)
            links = [name for name in folders if (directory / name).is_symlink()]
            for name in [*files, *links]:
                yield from self._seal_file(directory / name, rules, version)
            entered = []
            for name in sorted(set(folders) - set(links)):
                relative = self._relative(directory / name)
                if relative in ("_CodeSignature", "_MASReceipt"):
                    continue
                rule = rules.find(relative)
                if rule and rule.get("nested") and "." in name:
                    yield relative, self._nested(directory / name, rule)
                else:
                    entered.append(name)
            folders[:] = entered

    def _relative(self, path):
        return path.relative_to(self._root).as_posix()

    def _seal_file(self, path, rules, version):
        relative = self._relative(path)
        rule = rules.find(relative)
        if (rule is None or rule.get("omit") or str(path) == self._executable or
                relative == "CodeResources"):
            return
        if path.is_symlink():
            if version == 2:
                yield relative, _entry(rule, symlink=os.readlink(path))
        elif rule.get("nested") and reading.read_signed(path):
            yield relative, self._nested(path, rule)
        elif path.is_file():
            yield relative, self._hashed(path, rule, version)

    def _nested(self, path, rule):
        signed = reading.read_signed(path)
        if not signed:
            raise SigningError(f"{path} is nested code and must be signed first")
        text = self._nested_requirements.get(self._relative(path), reading.requirement(signed))
        return _entry(rule, cdhash=signed[0].cdhash, requirement=text)

    def _hashed(self, path, rule, version):
        with contents(path) as data:
            if version == 1:
                value = blobs.HASH_TYPES["sha1"].digest(data)
                return _entry(rule, hash=value) if rule.get("optional") else value
            return _entry(rule, **{HASH_KEYS[name]: blobs.HASH_TYPES[name].digest(data)
                                   for name in self._hashes})


def _entry(rule, **fields):
    return {**fields, **({"optional": True} if rule.get("optional") else {})}
