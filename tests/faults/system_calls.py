"""Makes the tool's system calls fail, one a run, by means of strace.

    ./kx faults                                    every call of every option, with every error
    python3 -m tests.faults.system_calls 20        every twentieth of these

First each option is run once under strace. Then it is run again for each system call that its main
thread made itself, outside the stand-ins and the loader's start, and the call fails. The tool must
not be ended by a signal, must return a code that such a failure can lead to, and must leave no
process and no temporary file behind. A call that was merely interrupted changes nothing at all.
"""

import collections
import dataclasses
import errno
import pathlib
import re
import sys
import time
from collections.abc import Callable
from typing import Any

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT))

# pylint: disable=wrong-import-position
from simulator import installation  # noqa: E402
from simulator import scenario as scenarios  # noqa: E402
from tests.end_to_end.installer_case import device_at_top  # noqa: E402
from tests.faults import session  # noqa: E402

Json = Any

TRACE = f"{installation.STAND_INS}/trace"
# The codes that the tool has for what goes wrong; those of the signature check when it cannot be
# made.
CODES = {0, 2, 3, 9, 12, 13, 14, 16, 20, 22, 35, 45, 60}
CHECK_CODES = {-67068, -67049, -67048, -67028, -67011, -108}
# What else can come of a call's failure: a thread cannot be made for want of a stack; a program
# cannot be run because it is still open for writing, since strace keeps the call from closing it.
FURTHER_CODES = {"mprotect": (errno.EAGAIN,), "close": (errno.ETXTBSY,)}
# How each call can fail. A call that waits can also be interrupted.
ERRORS = {
    "access": ("EACCES",), "faccessat2": ("EACCES",), "clone": ("EAGAIN",), "clone3": ("EAGAIN",),
    "vfork": ("EAGAIN",), "close": ("EIO",), "dup": ("EMFILE",), "fchmod": ("EPERM",),
    "fchmodat": ("EPERM",), "fcntl": ("EMFILE",), "fstat": ("EIO",), "getdents64": ("EIO",),
    "getrandom": ("EAGAIN",), "lseek": ("EINVAL",), "lstat": ("EACCES",), "mkdir": ("ENOSPC",),
    "mkdirat": ("ENOSPC",), "newfstatat": ("EACCES", "EIO"), "openat": ("EMFILE", "EACCES"),
    "pipe2": ("EMFILE",), "poll": ("ENOMEM",), "pread64": ("EIO", "EINTR"),
    "read": ("EIO", "EINTR"), "readlink": ("EACCES",), "readlinkat": ("EACCES",),
    "rmdir": ("EBUSY",), "stat": ("EACCES",), "statx": ("EACCES",), "symlinkat": ("ENOSPC",),
    "unlink": ("EACCES",), "unlinkat": ("EACCES",), "utimensat": ("EPERM",), "wait4": ("EINTR",),
    "write": ("ENOSPC", "EINTR"), "mmap": ("ENOMEM",), "mprotect": ("ENOMEM",),
}
# Where the memory of a file is mapped: that memory is out altogether is another matter.
_FILE_MAPPING = re.compile(r"^mmap\(.*, \d+, (0|0x[0-9a-f]+)\) ")
_CALL = re.compile(r"^(\w+)\(")
_FIRST_OWN_CALL = "fcntl(0, F_GETFD)"
_STAND_INS = re.compile(r"^ > \S*/(agentsdk\.dylib|libsl\.dylib|fast_sleep\.so)\(")
_LOADER = re.compile(r"^ > \S*/ld-linux\S*\(|^ > \S*/libc\.so\S*\(_dl_|\(dlopen|\(dlclose")
_FRAME = " > "

ABSENT = {"layout": None, "services": []}
WATCHED = {"sdk": {"answers": {"FileScan.OnDemand.RunScanTask": {"output": {}, "completions": []}}}}
UNWATCHED = {"sdk": {"answers": {"FileScan.OnDemand.RunScanTask": {"output": {}}}}}
IMAGES = {"product": ABSENT, "media": ["package-image", "downloader-image"],
          "installers": {"attach": device_at_top(), "install": {"acts": False},
                         "setupDownloader": {"acts": False}}}
# Each option with a scenario in which it does all it can.
OPTIONS: tuple[tuple[str, Json], ...] = (
    ("-getVersion", {}),
    ("-checkForUpdateErrors", {}),
    ("-getUpdateStatus Product", {}),
    ("-hasCriticalIssues", {}),
    ("-isUpToDate", {}),
    ("-getUpdateLocations", {}),
    ("-startUpdate", {}),
    ("-getProductVersion", {"product": {"layout": 3}}),
    ("-getLastUpdate", {"product": {"layout": 2}}),
    ("-getFeatureStatus", {}),
    ("-getLastSystemScan", {}),
    ("-startFullScan", UNWATCHED),
    ("-startQuickScan 5", WATCHED),
    ("-detect", {"product": {"layout": 2}}),
    ("-getInstallationLink -slUrl u -apiKey k -packageName p", {}),
    ("-runInstaller /demo/package/Setup.pkg",
     {"product": ABSENT, "media": ["package"], "installers": {"install": {"acts": False}}}),
    ("-runInstaller /demo/package-image/Setup.iso", IMAGES),
    ("-runSetupDownloader /demo/downloader-image/Setup.iso", IMAGES),
)


@dataclasses.dataclass(frozen=True)
class Fault:
    """One call of an option that fails: the `number`th of its name, with `error`.

    complete: the scenario. status, output: what comes of the run when nothing fails.
    """

    words: str
    complete: Json
    call: str
    number: int
    error: str
    status: int
    output: str


def _run(endpoint: session.Session, words: str, complete: Json,
         options: list[str]) -> session.Ended:
    services = endpoint.lay_out(complete, True)
    return endpoint.run(["strace", "-qq", "-o", TRACE, *options, installation.TOOL, *words.split()],
                        {}, services)


def _calls(trace: str) -> list[tuple[str, list[str]]]:
    """The calls of a trace, each with its stack."""
    calls: list[tuple[str, list[str]]] = []
    for line in trace.splitlines():
        if line.startswith(_FRAME):
            calls[-1][1].append(line)
        elif _CALL.match(line):
            calls.append((line, []))
    # A new thread or process has no stack of its own at first: that of the next call tells.
    for (line, stack), (_, following) in zip(calls, calls[1:]):
        if line.startswith("clone") or line.startswith("vfork"):
            stack += following
    return calls


def _faults(endpoint: session.Session, words: str, scenario: Json) -> list[Fault]:
    """All that can fail in an option's run."""
    complete = scenarios.load(scenario)
    ended = _run(endpoint, words, complete, ["-k"])
    counts: collections.Counter[str] = collections.Counter()
    found = []
    is_started = False
    for line, stack in _calls(endpoint.path(TRACE).read_text(errors="replace")):
        call = _CALL.match(line)[1]
        counts[call] += 1
        is_started |= line.startswith(_FIRST_OWN_CALL)
        is_stand_ins = any(_STAND_INS.match(frame) for frame in stack)
        is_anonymous = call == "mmap" and not _FILE_MAPPING.match(line)
        if not is_started or is_stand_ins or is_anonymous:
            continue
        # The loader does not go on after an interrupt.
        is_loaders = any(_LOADER.search(frame) for frame in stack)
        found += [Fault(words, complete, call, counts[call], error, ended.status, ended.output)
                  for error in ERRORS.get(call, ()) if not (is_loaders and error == "EINTR")]
    return found


def _check(endpoint: session.Session, fault: Fault) -> dict[str, Json]:
    """Makes the call fail; gives what is not as it must be."""
    ended = _run(endpoint, fault.words, fault.complete, [
        "-e", f"trace={fault.call}",
        "-e", f"inject={fault.call}:error={fault.error}:when={fault.number}"])
    trace = endpoint.path(TRACE).read_text(errors="replace")
    injected = next((line for line in trace.splitlines() if "(INJECTED)" in line), None)
    if "stand-in library: " in ended.errors:
        return {}  # the count was another this time, and it has hit a stand-in
    number = getattr(errno, fault.error)
    codes = {number, *CODES, *(code % 256 for code in (100_000 + number, *CHECK_CODES)),
             *FURTHER_CODES.get(fault.call, ())}
    log = endpoint.path(installation.LOG)
    text = log.read_text(errors="replace") if log.exists() else ""
    # The file stays when the image could not be attached, or when its deletion is what failed.
    leaves_output = ("Failed to mount installer" in text or "Cannot find mount point" in text
                     or installation.TEMPORARY in (injected or ""))
    found = endpoint.unexpected(ended)
    if leaves_output:
        found.pop(installation.TEMPORARY, None)
    if ended.errors:
        found["errors"] = (ended.errors, "")
    if ended.status is None or ended.status not in codes:
        found["status"] = (ended.status, sorted(codes))
    if fault.error == "EINTR" and (ended.status, ended.output) != (fault.status, fault.output):
        found["interrupted"] = ((ended.status, ended.output), (fault.status, fault.output))
    if found:
        found["call"] = (injected, None)
    return found


def _find(share: list[tuple[str, Json]], put: Callable[[Any], None]) -> None:
    with session.open_session() as endpoint:
        for words, scenario in share:
            put(_faults(endpoint, words, scenario))


def _work(share: list[Fault], put: Callable[[Any], None]) -> None:
    with session.open_session() as endpoint:
        for fault in share:
            put((fault, _check(endpoint, fault)))


def main(words: list[str]) -> int:
    """Prints what was wrong and how much was tried; gives the exit status."""
    session.require_sandbox()
    step = int(words[0]) if words else 1
    start = time.monotonic()
    faults = [fault for found in session.spread(_find, list(OPTIONS)) for fault in found]
    made: collections.Counter[str] = collections.Counter()
    failures = 0
    for fault, differences in session.spread(_work, faults[::step]):
        made[fault.words.split()[0]] += 1
        if differences:
            failures += 1
            print(f"{fault.words}: {fault.call} {fault.number}, {fault.error}", flush=True)
        for name, (found, wanted) in differences.items():
            print(f"    {name}: {found!r} instead of {wanted!r}", flush=True)
    for option, count in sorted(made.items()):
        print(f"  {count:6} {option}")
    print(f"system calls: {sum(made.values())} of {len(faults)} failures, {failures} not as they "
          f"must be, {time.monotonic() - start:.0f} s")
    return 1 if failures or not made else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
