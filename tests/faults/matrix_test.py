"""Runs the fault matrix, or some families of it: see matrix.py.

    KX_BUILD=build/release python3 -m unittest tests.faults.matrix_test
    KX_BUILD=build/release python3 -m tests.faults.matrix_test [FAMILY...]     lists the rows
"""

import concurrent.futures
import hashlib
import os
import pathlib
import shutil
import stat
import sys
import tempfile
import unittest
from collections.abc import Iterable

from simulator import installation
from tests.end_to_end.harness import BUILD, DIFFERENCES, EndToEndCase, needs_sandbox
from tests.faults.matrix import ABORTED, FAMILIES, Row

# Many rows only wait.
AT_ONCE = 3 * (os.cpu_count() or 1)
_FEWEST_ROWS = 150
# Impossible with sanitizers, which take memory and descriptors for themselves.
_LIMITS = "limits"
# What the stand-ins write for themselves, and where the sandbox sees the machine's programs.
_NOT_COMPARED = (installation.STAND_INS, "/run/host")
# Reports at the tool's exit, on standard error, which descriptors are still open.
_REPORTER = f"{installation.STAND_INS}/open_descriptors.so"
# What is left in the sandbox after a run, one per line.
_LEFT = f"{installation.STAND_INS}/left"
# Runs a row's command, and lists shared memory and new processes, except the product's services. A process
# gets two seconds to end.
_AROUND = f"""
before=" $(echo /proc/[0-9]*) "
({{command}})
status=$?
left() {{{{
  for process in /proc/[0-9]*; do
    case $before in *" $process "*) continue ;; esac
    program=$(readlink "$process/exe") || continue # a process that has just ended
    case $program in {installation.SERVICES}/*) ;; *) echo "$program" ;; esac
  done
}}}}
tries=20
while left >{_LEFT}; [ -s {_LEFT} ] && [ "$tries" -gt 0 ]; do
  tries=$((tries - 1))
  sleep 0.1
done
tail -n +2 /proc/sysvipc/shm >>{_LEFT}
ls -A /dev/shm >>{_LEFT}
exit "$status"
"""
# Larger files, and files that are not readable, are compared by their size and time.
_MAX_HASHED = 1 << 20

Entry = tuple[str | int, ...]


def _entry(path: pathlib.Path) -> Entry:
    status = path.lstat()
    if stat.S_ISLNK(status.st_mode):
        return (status.st_mode, os.readlink(path))
    if not stat.S_ISREG(status.st_mode):
        return (status.st_mode,)
    if status.st_size > _MAX_HASHED or not os.access(path, os.R_OK):
        return (status.st_mode, status.st_size, status.st_mtime_ns)
    mode = stat.S_IMODE(status.st_mode)
    return (mode, hashlib.sha256(path.read_bytes()).hexdigest())


def _snapshot(root: pathlib.Path) -> dict[str, Entry]:
    """Everything below `root`, by its path on the endpoint."""
    found = {}
    for folder, directories, files in os.walk(root):
        for name in [*directories, *files]:
            path = pathlib.Path(folder, name)
            found[f"/{path.relative_to(root)}"] = _entry(path)
    return {path: entry for path, entry in found.items()
            if not _is_at_or_below(path, _NOT_COMPARED)}


def _is_at_or_below(path: str, places: Iterable[str]) -> bool:
    return any(path == place or path.startswith(f"{place}/") for place in places)


def _write_programs(row: Row, folder: pathlib.Path) -> dict[str, pathlib.Path | None]:
    programs: dict[str, pathlib.Path | None] = {}
    for number, (path, program) in enumerate(row.programs.items()):
        programs[path] = None
        if program is not None:
            content, mode = program
            file = folder / str(number)
            file.write_bytes(content)
            file.chmod(mode)
            programs[path] = file
    return programs


class Matrix(EndToEndCase):
    """Every row of the matrix."""

    def check(self, row: Row) -> None:
        with tempfile.TemporaryDirectory() as folder, self.endpoint(
                scenario=row.scenario, logging=row.logging, volumes=row.volumes,
                programs=_write_programs(row, pathlib.Path(folder))) as endpoint:
            for volume in row.volumes:  # otherwise the sandbox would create the mount point
                endpoint.path(volume).mkdir(parents=True, exist_ok=True)
            root = endpoint.path("/")
            shutil.copy(BUILD / "simulator" / "open_descriptors.so", endpoint.path(_REPORTER))
            before = _snapshot(root)
            preload = f"LD_PRELOAD={installation.FAST_SLEEP}"
            if not DIFFERENCES:  # GNUstep keeps descriptors for itself
                preload += f":{_REPORTER}"
            command = f"{row.before} exec $FAST {preload} {row.under} $TOOL {row.words}"
            run = self.run_script_on(endpoint, _AROUND.format(command=command))
            after = _snapshot(root)
            self.assertEqual(endpoint.path(_LEFT).read_text(), "")
        self.assertEqual((run.status, run.output), (row.status, row.output.encode()), run.log)
        if row.status != ABORTED:
            self.assertEqual(run.errors, b"")
            self.assert_balanced(run)
        self.assertEqual(run.main_log[-1] if run.main_log else None, row.last)
        expected = [*row.changes, *([installation.LOG] if row.last is not None else [])]
        changed = sorted(path for path in before.keys() | after.keys()
                         if before.get(path) != after.get(path))
        self.assertEqual([path for path in changed if not _is_at_or_below(path, expected)], [])

    def check_families(self, families: Iterable[str]) -> None:
        rows = [(family, row) for family in families for row in FAMILIES[family]]
        with concurrent.futures.ThreadPoolExecutor(AT_ONCE) as pool:
            for family, row, result in [  # a case has one endpoint at a time
                    (family, row, pool.submit(Matrix().check, row)) for family, row in rows]:
                with self.subTest(family=family, fault=row.name, words=row.words):
                    if f"matrix.{row.name}: {row.words}" in DIFFERENCES:
                        self.assertIsInstance(result.exception(), AssertionError)
                    else:
                        result.result()

    @needs_sandbox
    def test_faults(self):
        self.assertGreaterEqual(sum(map(len, FAMILIES.values())), _FEWEST_ROWS)
        self.check_families(FAMILIES.keys() - {_LIMITS})

    @needs_sandbox
    def test_limits(self):
        self.check_families([_LIMITS])


if __name__ == "__main__":
    for chosen in sys.argv[1:] or FAMILIES:
        print(f"{chosen}: {len(FAMILIES[chosen])} rows")
        for line in FAMILIES[chosen]:
            print(f"  {line.name}: {line.words}: {line.status}")
