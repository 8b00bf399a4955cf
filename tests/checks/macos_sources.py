#!/usr/bin/env python3
"""Configures the build as on a Mac, without an SDK, and checks what its sources include: the project's
own headers, outside platform/linux/, and system headers that the oldest macOS has."""

import json
import re
import shutil
import subprocess
import sys
import tempfile
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
# The standard library's, except those that need a newer libc++ than macOS 10.11 has.
STANDARD = set("""algorithm array atomic cctype cerrno charconv chrono climits clocale cmath condition_variable
    csetjmp csignal cstddef cstdint cstdio cstdlib cstring ctime deque exception fstream functional future
    initializer_list iomanip ios iosfwd iostream istream iterator limits list locale map memory mutex new
    numeric optional ostream queue random ratio regex set sstream stack stdexcept streambuf string
    string_view system_error thread tuple type_traits typeinfo unordered_map unordered_set utility
    variant vector""".split())
SYSTEM = set("""dirent.h dlfcn.h errno.h fcntl.h ftw.h libproc.h limits.h poll.h pthread.h pwd.h sched.h
    signal.h spawn.h stdint.h stdio.h stdlib.h string.h sys/file.h sys/mman.h sys/resource.h sys/socket.h
    sys/stat.h sys/sysctl.h sys/time.h sys/types.h sys/un.h sys/wait.h time.h unistd.h utime.h uuid/uuid.h
    """.split())
OTHER = re.compile(r"(AppKit|CoreFoundation|Foundation|Security)/\1\.h|(rapidjson|rapidxml|gtest|gmock)/[\w/]+\.hp?p?")
INCLUDE = re.compile(r'^\s*#\s*(?:include|import)\s*([<"])([^>"]+)[>"]', re.M)


def sources(folder):
    """Yields the project's sources that the build for macOS compiles."""
    clang = shutil.which("clang")
    # The compilers are only identified, not used for a build.
    subprocess.run(
        ["cmake", "-S", ROOT, "-B", folder, "-G", "Ninja", "-DCMAKE_SYSTEM_NAME=Darwin",
         "-DCMAKE_TRY_COMPILE_TARGET_TYPE=STATIC_LIBRARY", "-DCMAKE_INSTALL_NAME_TOOL=/bin/true",
         f"-DCMAKE_C_COMPILER={clang}", f"-DCMAKE_CXX_COMPILER={clang}++",
         f"-DCMAKE_OBJCXX_COMPILER={clang}++"], check=True, stdout=subprocess.DEVNULL)
    for entry in json.loads(Path(folder, "compile_commands.json").read_text(encoding="utf-8")):
        path = Path(entry["file"])
        if path.is_relative_to(ROOT):
            yield path


def check(path, seen, findings):
    if path in seen:
        return
    seen.add(path)
    name = path.relative_to(ROOT)
    for kind, header in INCLUDE.findall(path.read_text(encoding="utf-8")):
        own = ROOT / header
        if kind == "<":
            if header not in STANDARD | SYSTEM and not OTHER.fullmatch(header):
                findings.append(f"{name} includes <{header}>, which macOS is not known to have")
        elif not own.exists():
            findings.append(f"{name} includes {header}, which is not there")
        elif header.startswith("platform/linux/"):
            findings.append(f"{name} includes {header}")
        else:
            check(own, seen, findings)


def main():
    findings, seen = [], set()
    with tempfile.TemporaryDirectory() as folder:
        for source in sources(folder):
            check(source, seen, findings)
    print("\n".join(findings) or f"{len(seen)} files include only headers that macOS has")
    return 1 if findings else 0


if __name__ == "__main__":
    sys.exit(main())
