"""Checks that every test, benchmark and fuzz source is named by the build description of its folder
or one above it: a file that is not built cannot fail. Prints those that are not, and exits
with 1 if there are any."""

import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
PATTERNS = ("*_test.cc", "*_test.mm", "*_bench.cc", "*_fuzzer.cc", "*_test.py")


def is_named(source):
    for folder in source.parents:
        description = ROOT / folder / "CMakeLists.txt"
        if not description.exists():
            continue
        name = re.escape(str(source.relative_to(folder).with_suffix("")))
        module = re.escape(str(source.relative_to(folder).with_suffix("")).replace("/", "."))
        if re.search(rf"(?<![\w])(?:[\w./]*[./])?(?:{name}|{module})(?:\.cc|\.mm|\.py)?(?!\w)",
                     description.read_text()):
            return True
    return False


def main():
    listing = subprocess.run(["git", "ls-files", "--", *PATTERNS], cwd=ROOT, check=True,
                             capture_output=True, text=True).stdout
    unbuilt = [name for name in listing.splitlines() if not is_named(pathlib.Path(name))]
    print("\n".join(f"{name}: in no CMakeLists.txt" for name in unbuilt))
    return 1 if unbuilt else 0


if __name__ == "__main__":
    sys.exit(main())
