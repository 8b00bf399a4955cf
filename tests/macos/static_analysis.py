#!/usr/bin/env python3
"""Looks for faults in the macOS adapters without running them: static_analysis.py BUILD

Runs clang-tidy, with clang's static analyser (leaks, nullability, what the frameworks require of their
callers), on platform/macos/, with the compile commands of the cross-build in BUILD. It must report nothing
there, and must find a leak that was planted for this purpose.
"""

import json
import os
import shlex
import subprocess
import sys
import tempfile
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
ADAPTERS = ROOT / "platform" / "macos"
LEAK = """#import <Foundation/Foundation.h>
NSUInteger LengthOfALeakedText();
NSUInteger LengthOfALeakedText() {
  NSString* const text = [[NSString alloc] initWithUTF8String:"text"];
  return [text length];
}
"""


def analyse(source, command):
    """Returns what clang-tidy reports about a source that is compiled with a command like this."""
    words = shlex.split(command)
    flags = words[1:words.index("-o")]
    # In Cocoa, a caller passes NULL if it does not want the error.
    run = subprocess.run(["clang-tidy-19", "--quiet", f"--config-file={ROOT / '.clang-tidy'}",
                          "--checks=-modernize-use-nullptr", source, "--", *flags], cwd=ROOT, check=False,
                         capture_output=True, text=True)
    return run.stdout + (run.stderr if run.returncode else "")


def main(arguments):
    commands = {Path(entry["file"]): entry["command"] for entry in json.loads(
        Path(arguments[1], "compile_commands.json").read_text(encoding="utf-8"))}
    adapters = [path for path in commands if path.parent == ADAPTERS]
    if not adapters:
        sys.exit(f"{arguments[1]} compiles no macOS adapter")
    with ThreadPoolExecutor(os.cpu_count()) as pool:
        findings = [*pool.map(lambda path: analyse(path, commands[path]), adapters)]
    with tempfile.TemporaryDirectory() as folder:
        planted = Path(folder, "planted.mm")
        planted.write_text(LEAK, encoding="utf-8")
        if "Potential leak" not in analyse(planted, commands[ADAPTERS / "files.mm"]):
            findings.append("the planted leak was not found")
    print("".join(findings) or f"{len(adapters)} adapters: nothing found")
    return 1 if any(findings) else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
