"""Repeats rows of the fault matrix, chosen at random, several at once.

    KX_BUILD=build/release python3 -m tests.faults.soak RUNS

Each row checks its own endpoint (see matrix_test.py). At the end, nothing from these runs may
remain on the machine: no file, no mount, no process, and no descriptor of this process.
"""

import concurrent.futures
import gc
import os
import pathlib
import random
import sys
import tempfile
import time

from simulator import sandbox
from tests.faults.matrix import FAMILIES
from tests.faults.matrix_test import AT_ONCE, Matrix

# What ctest reports as skipped.
_SKIPPED = 77


def _held() -> dict[str, list[str]]:
    """The resources of the machine that this process holds, by kind."""
    gc.collect()
    proc = pathlib.Path("/proc/self")
    children = (task / "children" for task in proc.glob("task/*"))
    return {
        "processes": sorted(" ".join(file.read_text() for file in children).split()),
        "mounts": sorted(proc.joinpath("mountinfo").read_text().splitlines()),
        "descriptors": sorted(os.listdir("/proc/self/fd")),
        "shared memory": pathlib.Path("/proc/sysvipc/shm").read_text().splitlines(),
    }


def main(words: list[str]) -> int:
    """Prints each run that went wrong and whatever is left; returns the exit status."""
    if len(words) != 1 or not words[0].isdecimal():
        print("usage: python3 -m tests.faults.soak RUNS", file=sys.stderr)
        return 2
    refusal = sandbox.refusal()
    if refusal is not None:
        print(f"this needs a sandbox: {refusal}")
        return _SKIPPED
    rows = [(family, row) for family, rows in FAMILIES.items() for row in rows]
    chosen = random.choices(rows, k=int(words[0]))
    start = time.monotonic()
    failures = 0
    with tempfile.TemporaryDirectory(prefix="kx-soak-") as folder:
        # Endpoints are made in this folder, where nobody else's files are.
        os.environ["TMPDIR"] = tempfile.tempdir = folder
        before = _held()
        with concurrent.futures.ThreadPoolExecutor(AT_ONCE) as pool:
            runs = {pool.submit(Matrix().check, row): (family, row) for family, row in chosen}
            for run in concurrent.futures.as_completed(runs):
                family, row = runs[run]
                if run.exception() is not None:
                    failures += 1
                    print(f"{family}: {row.name}: {row.words}: {run.exception()}", flush=True)
        left = {**_held(), "files": os.listdir(folder)}
    for kind, there in left.items():
        more = [entry for entry in there if entry not in before.get(kind, [])]
        if more:
            failures += 1
            print(f"{kind} left behind: {more}")
    print(f"soak: {len(chosen)} runs, {failures} failures, {time.monotonic() - start:.0f} s")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
