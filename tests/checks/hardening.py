"""Checks how the release binary was linked: with its property list, position-independent,
relocations read-only from the start, no executable stack, stack protector and fortified calls in
use, no run path, and only the C library linked dynamically. Usage: hardening.py BINARY. Prints what
is wrong, if anything, and then exits with 1."""

import re
import subprocess
import sys

ALLOWED_LIBRARIES = {"libc.so.6", "libm.so.6", "ld-linux-x86-64.so.2"}


def readelf(*arguments):
    return subprocess.run(["readelf", "--wide", *arguments], check=True, capture_output=True,
                          text=True).stdout


def problems(binary):
    header = readelf("--file-header", binary)
    segments = readelf("--segments", binary)
    dynamic = readelf("--dynamic", binary)
    symbols = readelf("--dyn-syms", binary)
    if not re.search(r"Type:\s+DYN", header):
        yield "not position-independent"
    if "GNU_RELRO" not in segments or not re.search(r"BIND_NOW|Flags:.*NOW", dynamic):
        yield "relocations are not read-only from the start (full RELRO)"
    if not re.search(r"GNU_STACK\s+\S+\s+\S+\s+\S+\s+\S+\s+\S+\s+RW\s", segments):
        yield "the stack is executable"
    if "__stack_chk_fail" not in symbols:
        yield "no stack protector"
    if not re.search(r"__\w+_chk", symbols.replace("__stack_chk_fail", "")):
        yield "no fortified calls"
    if " __info_plist " not in readelf("--sections", binary):
        yield "has no information property list"
    if re.search(r"\((RPATH|RUNPATH)\)", dynamic):
        yield "has a run path"
    for library in re.findall(r"\(NEEDED\).*\[(.*)\]", dynamic):
        if library not in ALLOWED_LIBRARIES:
            yield f"needs {library}"


def main():
    found = list(problems(sys.argv[1]))
    print("\n".join(found))
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
