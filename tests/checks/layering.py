"""Checks what the modules include: only the headers of the modules that they build on, without cycles, and
no headers or macros of a host outside platform/. Prints each breach as "file:line: what is wrong" or as the
cycle, and exits with 1 when there is one."""

import graphlib
import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]

# The modules whose headers each module may include besides its own.
MAY_INCLUDE = {
    "app": {"diag", "product", "sdk", "queries", "install", "json", "platform"},
    "diag": {"platform"},
    "product": {"diag", "platform"},
    "sdk": {"product", "diag", "json", "platform"},
    "queries": {"sdk", "diag", "json", "platform"},
    "install": {"queries", "sdk", "product", "diag", "json", "platform"},
    "json": set(),
    "platform": set(),
}
# Headers that every module of the tool may include: operations are methods of the tool object.
FOR_EVERY_MODULE = {"app/kx_tool.h", "app/error_codes.h"}
PORTABLE_MODULES = set(MAY_INCLUDE) - {"platform"}
# Makes RapidJSON throw when it runs out of memory. Its forward declarations (fwd.h) do not need this.
JSON_HEADER = "json/document.h"

# Host headers, and the macros with which code detects the host.
HOST_HEADERS = re.compile(
    r"#\s*(?:include|import)\s*<(?:unistd|fcntl|dlfcn|dirent|pthread|spawn|poll|signal|libproc|"
    r"sys/|mach|linux/|uuid/|openssl/|plist/|Foundation/|Security/|AppKit/|CoreFoundation/)"
)
HOST_MACROS = re.compile(r"^\s*#.*\b(__APPLE__|__linux__|__MACH__|__unix__|__GLIBC__|TARGET_OS_\w+)")
NEWER_THAN_THE_OLDEST_MACOS = re.compile(
    r"#\s*include\s*<(?:filesystem|shared_mutex|any|memory_resource)>|"
    r"\bstd::(?:filesystem|shared_mutex|any_cast|pmr|to_chars)\b"
)
INCLUDE = re.compile(r'#\s*include\s*"([^"]+)"')


def tracked_sources():
    listing = subprocess.run(
        ["git", "ls-files", "--", *[f"{module}/*" for module in MAY_INCLUDE]],
        cwd=ROOT, check=True, capture_output=True, text=True).stdout
    return [name for name in listing.splitlines() if name.endswith((".h", ".cc", ".mm"))]


def breaches(name):
    module = name.split("/")[0]
    is_test = name.endswith(("_test.cc", "_test.mm"))
    is_json_ready = name == JSON_HEADER
    for number, line in enumerate((ROOT / name).read_text().splitlines(), 1):
        include = INCLUDE.search(line)
        is_json_ready = is_json_ready or bool(include) and include.group(1) == JSON_HEADER
        if include and not is_test:
            target = include.group(1)
            other = target.split("/")[0]
            if other != module and other not in MAY_INCLUDE[module] and target not in FOR_EVERY_MODULE:
                yield number, f"{module}/ may not include {target}"
            if other == "app" and module not in ("app",) and target not in FOR_EVERY_MODULE:
                yield number, f"only app/ may include {target}"
            if module in PORTABLE_MODULES and re.match(r"platform/(posix|linux|macos)/", target):
                yield number, f"{target} is private to platform/"
        if re.search(r"<rapidjson/(?!fwd\.h)", line) and not is_json_ready:
            yield number, f"{JSON_HEADER} must come first"
        if module in PORTABLE_MODULES and not is_test:
            if HOST_HEADERS.search(line):
                yield number, "a header of the host outside platform/"
            if HOST_MACROS.search(line):
                yield number, "a macro of the host outside platform/"
            if NEWER_THAN_THE_OLDEST_MACOS.search(line):
                yield number, "not available on the oldest macOS"


def cycles(names):
    """Cycles between units (a header with its source) and between the folders of a module."""
    units, folders = {}, {}
    for name in names:
        if "_test." in name:
            continue
        path = pathlib.PurePath(name)
        for target in map(pathlib.PurePath, INCLUDE.findall((ROOT / name).read_text())):
            if str(target) in FOR_EVERY_MODULE:
                continue
            if target.with_suffix("") != path.with_suffix(""):
                units.setdefault(path.with_suffix(""), set()).add(target.with_suffix(""))
            if target.parent != path.parent and target.parts[0] == path.parts[0]:
                folders.setdefault(path.parent, set()).add(target.parent)
    for graph in (units, folders):
        try:
            graphlib.TopologicalSorter(graph).prepare()
        except graphlib.CycleError as error:
            yield "cycle: " + " -> ".join(map(str, error.args[1][::-1]))


def main():
    names = tracked_sources()
    found = [f"{name}:{number}: {what}" for name in names for number, what in breaches(name)]
    found += cycles(names)
    print("\n".join(found))
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
