"""The files of a simulated endpoint: the product and the tool."""

import dataclasses
import json
import os
import pathlib
import shutil
from typing import Any

from simulator import scenario as scenarios
from simulator.signed_files import SignedFiles

Json = Any

TOOL_DIRECTORY = "/usr/local/libexec/kxtool"
TOOL = f"{TOOL_DIRECTORY}/KXTool"
REPORT = f"{TOOL_DIRECTORY}/kxtool-report"
LOG = f"{TOOL_DIRECTORY}/log.txt"
CALLER_DIRECTORY = "/opt/kxtool"  # of the tool's caller
WORKING_DIRECTORY = f"{CALLER_DIRECTORY}/work"
FAST_SLEEP = f"{CALLER_DIRECTORY}/fast_sleep.so"
PROGRAM_DIRECTORY = f"{CALLER_DIRECTORY}/bin"  # on PATH before the machine's programs
TEMPORARY = f"{CALLER_DIRECTORY}/tmp"
STAND_INS = "/Library/Corvane/XQP/simulator"
CALL_RECORD = f"{STAND_INS}/calls.jsonl"
SERVICES = "/Library/Corvane/XQP/services"
SCAN_LOGS = "/Library/Application Support/Halvard/Logs"
ANCHORS = "/etc/kxtool/anchors.pem"
VOLUMES = "/Volumes"
DEMONSTRATIONS = "/demo"

# The folders that belong to the endpoint entirely.
OWN_DIRECTORIES = (
    "/Library/Corvane", "/Library/Application Support/Halvard", "/etc/kxtool", CALLER_DIRECTORY,
    TOOL_DIRECTORY, VOLUMES, DEMONSTRATIONS)

# The stand-ins for system programs, by path.
_INSTALLERS = pathlib.Path(__file__).with_name("installers")
_DEFAULTS = pathlib.Path(__file__).with_name("defaults.py")
_PACKAGING = pathlib.Path(__file__).resolve().parents[1] / "packaging"
PROGRAMS = {
    "/usr/bin/hdiutil": _INSTALLERS / "hdiutil.py",
    "/usr/sbin/installer": _INSTALLERS / "installer.py",
}
# The modules that these and the setup downloader import on the endpoint.
_PROGRAM_MODULES = ("stand_in.py", "installer.py")


@dataclasses.dataclass(frozen=True)
class Layout:
    """The paths of one of the product's layouts."""

    directory: str
    agcfng: str
    agcf: str | None

    @property
    def library(self) -> str:
        return f"{self.directory}/agentsdk.dylib"


_ENTERPRISE = "/Library/Corvane/XQP/enterprise"
LAYOUTS = {
    1: Layout("/Library/Corvane/XQP/product/lib",
              "/Library/Corvane/XQP/settings/agcfng/agcfng.jso", None),
    2: Layout(f"{_ENTERPRISE}.bundle", f"{_ENTERPRISE}.bundle/agcfng/agcfng.jso",
              f"{_ENTERPRISE}.bundle/agcf.jso"),
    3: Layout(_ENTERPRISE, f"{_ENTERPRISE}/agcfng/agcfng.jso", f"{_ENTERPRISE}/agcf.jso"),
}

_SDK_BUILDS = {
    "complete": "agentsdk.so",
    "withoutGetInstance": "agentsdk_without_get_instance.so",
    "withoutReleaseInstance": "agentsdk_without_release_instance.so",
}
_LINKS_BUILDS = {"complete": "sl.so", "withoutExport": "sl_without_export.so"}


class BuildError(Exception):
    """A part of the simulated endpoint has not been built."""


class Installation:
    """Lays an endpoint out below `root`, whose paths are as on the endpoint itself.

    `build` is the build folder that the tool and the stand-ins come from.
    """

    def __init__(self, root: pathlib.Path, build: pathlib.Path):
        self._root = root
        self._build = build
        self._signed = SignedFiles(build / "simulator" / "signing")

    def path(self, absolute: str) -> pathlib.Path:
        """Maps a path of the endpoint to this machine."""
        return self._root / absolute.lstrip("/")

    def write(self, scenario: dict[str, Json], logging: bool) -> None:
        """Writes everything of a complete scenario. Raises BuildError, SigningError."""
        for directory in (TOOL_DIRECTORY, PROGRAM_DIRECTORY, TEMPORARY, VOLUMES, DEMONSTRATIONS):
            self.path(directory).mkdir(parents=True, exist_ok=True)
        self._write_tool(logging)
        self.write_answers(scenario)
        self._write_program_modules()
        shutil.copy(_DEFAULTS, self.path(f"{PROGRAM_DIRECTORY}/defaults"))
        self._write_trust(scenario)
        for file in scenario["files"]:
            self._write_content(self.path(file["path"]), file)

    def write_answers(self, scenario: dict[str, Json]) -> None:
        """Writes what queries need: the product, the script for its libraries, and the scan logs.
        Raises BuildError, SigningError."""
        for directory in (WORKING_DIRECTORY, STAND_INS):
            self.path(directory).mkdir(parents=True, exist_ok=True)
        self.write_product(scenario["product"])
        self._write_links(scenario["links"])
        self._write_scan_logs(scenario["scanLogs"])
        script = json.dumps(scenarios.stand_in_script(scenario), ensure_ascii=False)
        self.path(f"{STAND_INS}/scenario.json").write_text(script, encoding="utf-8")

    def services(self, product: dict[str, Json]) -> list[Json]:
        """The product's service processes, each with the path of its executable."""
        return [{**service, "path": f"{SERVICES}/{number}/{service['name']}"}
                for number, service in enumerate(product["services"])]

    def write_product(self, product: dict[str, Json]) -> None:
        """Writes the files of the product. Raises BuildError, SigningError."""
        for service in self.services(product):
            executable = self.path(service["path"])
            executable.parent.mkdir(parents=True)
            shutil.copy(self._built("simulator/service"), executable)
        if product["layout"] is None:
            return
        layout = LAYOUTS[product["layout"]]
        self.path(layout.directory).mkdir(parents=True)
        self._write_library(layout.library, product["library"], _SDK_BUILDS)
        for name, path in (("agcfng", layout.agcfng), ("agcf", layout.agcf)):
            content = product["configuration"][name]
            if path is not None and content is not None:
                self._write_content(self.path(path), content)

    def _write_tool(self, logging: bool) -> None:
        # The folder is on PATH, see endpoints.py.
        for program in (self._built("KXTool"), _PACKAGING / "kxtool-report"):
            shutil.copy(program, self.path(TOOL_DIRECTORY))
        shutil.copy(self._built("simulator/fast_sleep.so"), self.path(FAST_SLEEP))
        if logging:
            self.path(f"{TOOL_DIRECTORY}/configfile.txt").write_text("Logging=true\n")

    def _write_program_modules(self) -> None:
        directory = self.path(f"{STAND_INS}/installers")
        directory.mkdir()
        for name in _PROGRAM_MODULES:
            shutil.copy(_INSTALLERS / name, directory / name)

    def _write_links(self, links: dict[str, Json]) -> None:
        self._write_library(f"{WORKING_DIRECTORY}/libsl.dylib", links, _LINKS_BUILDS)

    def _write_library(self, path: str, library: dict[str, Json], builds: dict[str, str]) -> None:
        if library["build"] == "absent":
            return
        if library["build"] == "notALibrary":
            content = b"This is not a library.\n"
        else:
            content = self._built(f"simulator/{builds[library['build']]}").read_bytes()
        size = library.get("size")
        if size is not None:
            content = content[:size].ljust(size, b"\0")
        self._signed.place(content, self.path(path), library["signature"])

    def _write_trust(self, scenario: dict[str, Json]) -> None:
        path = self.path(ANCHORS)
        path.parent.mkdir(parents=True, exist_ok=True)
        trust = scenario["product"]["trust"]
        if trust == "pinned":
            signatures = [scenario["product"]["library"]["signature"],
                          scenario["links"]["signature"]]
            path.write_text(self._signed.anchors(signatures))
        elif trust == "empty":
            path.write_text("")

    def _write_scan_logs(self, logs: list[Json] | None) -> None:
        if logs is None:
            return
        directory = self.path(SCAN_LOGS)
        directory.mkdir(parents=True)
        for log in logs:
            path = directory / log["name"]
            self._write_content(path, log if "summary" not in log else {"text": _summary(**log)})
            if "modified" in log:
                moment = log["modified"] * 1_000_000_000 + log.get("nanoseconds", 0)
                os.utime(path, ns=(moment, moment))

    @staticmethod
    def _write_content(path: pathlib.Path, content: dict[str, Json]) -> None:
        """Replaces whatever is at `path` with `content`."""
        if path.is_dir() and not path.is_symlink():
            shutil.rmtree(path)
        path.unlink(missing_ok=True)
        path.parent.mkdir(parents=True, exist_ok=True)
        if "text" in content:
            path.write_text(content["text"], encoding="utf-8")
        elif "json" in content:
            path.write_text(json.dumps(content["json"], ensure_ascii=False), encoding="utf-8")
        elif "directory" in content:
            path.mkdir()
        elif "link" in content:
            path.symlink_to(content["link"])
        elif "fifo" in content:
            os.mkfifo(path)
        if "size" in content:
            os.truncate(path, content["size"])
        if "mode" in content:
            path.chmod(int(content["mode"], 8))

    def _built(self, name: str) -> pathlib.Path:
        path = self._build / name
        if not path.exists():
            raise BuildError(f"{path} has not been built")
        return path


def _summary(summary: dict[str, Json], **_: Json) -> str:
    return (
        '<?xml version="1.0" encoding="utf-8"?>\n'
        "<ScanSession>\n"
        f'  <ScanSummary startTime="{summary["startTime"]}" duration="{summary["duration"]}"'
        ' scannedItems="48211"/>\n'
        "</ScanSession>\n")
