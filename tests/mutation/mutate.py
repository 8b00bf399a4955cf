"""Asks of the tests whether they notice small mutations of the sources: ./kx mutate.

The tree is copied, mutated, built and tested in build/mutation/, one copy for each processor. Each
mutant meets the stages of tests that its file is listed with below, until one notices it: fails, or
does not come to an end. What compiles but passes all stages is a survivor; each gets a line of
standard output. The last line counts.
"""

import argparse
import concurrent.futures
import dataclasses
import os
import pathlib
import queue
import random
import shutil
import subprocess
import sys
import time
from collections import Counter
from collections.abc import Callable, Iterable, Sequence

from simulator import sandbox
from tests.mutation.operators import Mutation, mutations

ROOT = pathlib.Path(__file__).resolve().parents[2]
ROOMS = ("app", "diag", "product", "sdk", "queries", "install")

_PRESET = "mutation"
_BUILD = f"build/{_PRESET}"
# A mutant may take so many times as long as the unmutated tree did, and so many seconds more.
_PATIENCE = (10, 30)

NOTICED, ENDLESS, SURVIVED, NOT_BUILT = "noticed", "without end", "survived", "not compiled"


@dataclasses.dataclass(frozen=True)
class Stage:
    """Tests that run at the same time: what has to be built for them, and the commands.

    They are confined unless they run what they test in a sandbox themselves.
    """

    build: tuple[str, ...]
    tests: tuple[tuple[str, ...], ...]
    confined: bool = True


def _programs(*paths: str, cases: str = "*") -> Stage:
    """Test programs, each with its folder."""
    return Stage(tuple(pathlib.PurePath(path).name for path in paths),
                 tuple((f"{_BUILD}/{path}", "--gtest_brief=1", "--gtest_fail_fast",
                        f"--gtest_filter={cases}") for path in paths))


def _modules(targets: Iterable[str], *modules: str) -> Stage:
    return Stage(tuple(targets),
                 tuple(("/usr/bin/python3", "-m", "unittest", "--failfast", module)
                       for module in modules), confined=False)


def _end_to_end(*names: str) -> Stage:
    return _modules(("KXTool", "simulator"), *(f"tests.end_to_end.{name}_test" for name in names))


_UNIT_TESTS = {room: f"{room}/kx_{room}_tests" for room in ROOMS}
# Cases that take seconds.
_SLOW = "ConcurrencyTest.*:*/WalksPropertyTest.*:*.HugeFile"
# The end-to-end tests in which the code of a room has most to do.
_END_TO_END = {
    "app": ("command_line", "links"),
    "diag": ("command_line",),
    "product": ("detection", "invocation"),
    "sdk": ("actions", "envelope", "invocation"),
    "queries": ("scan_report", "status_queries"),
    "install": ("detection", "image_installer", "links", "package_installer", "setup_downloader"),
}
_PLATFORM = (
    _programs("tests/contract/kx_platform_contract_tests",
              "platform/linux/kx_platform_linux_tests"),
    _programs("tests/code_signing/kx_code_signing_tests"),
    _modules(("kx_check_signature",),
             *(f"tests.code_signing.signed_files.{name}_test"
               for name in ("plain", "signature", "trust", "macho"))),
    _end_to_end("command_line", "image_installer", "setup_downloader"),
)


def stages_of(file: str) -> Sequence[Stage]:
    """The tests of the file's own room, then what else might notice."""
    room = file.split("/")[0]
    if room not in ROOMS:
        return _PLATFORM
    others = [program for name, program in _UNIT_TESTS.items() if name != room]
    return (_programs(_UNIT_TESTS[room], cases=f"-{_SLOW}"),
            _programs(*others, "tests/faults/kx_faults_tests", cases=f"-{_SLOW}"),
            _programs(_UNIT_TESTS[room], cases=_SLOW), _end_to_end(*_END_TO_END[room]))


class Tree:
    """A copy of the sources with a build folder of its own."""

    def __init__(self, folder: pathlib.Path, build_command: Sequence[str]) -> None:
        self.folder = folder
        self._build_command = build_command
        self._seconds: dict[Stage, float] = {}
        self._environment = {
            **os.environ, "KX_BUILD": str(folder / _BUILD), "PYTHONDONTWRITEBYTECODE": "1",
            "KX_CHECK_SIGNATURE": str(folder / _BUILD / "tests/real_signatures/kx_check_signature"),
            # Copies at different places share what was compiled.
            "CCACHE_BASEDIR": str(folder), "CCACHE_NOHASHDIR": "1"}

    def copy(self, source: pathlib.Path, files: Iterable[str]) -> None:
        """Makes the sources those at `source`; what is the same keeps its time."""
        for file in files:
            target = self.folder / file
            content = (source / file).read_bytes()
            if not target.exists() or target.read_bytes() != content:
                target.parent.mkdir(parents=True, exist_ok=True)
                target.write_bytes(content)
                shutil.copymode(source / file, target)

    def _run(self, command: Sequence[str], seconds: float | None = None) -> tuple[int | None, str]:
        """The status of a command, None when it was too slow; and the last of what it wrote."""
        try:
            done = subprocess.run(command, cwd=self.folder, env=self._environment, timeout=seconds,
                                  stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, check=False,
                                  stderr=subprocess.STDOUT)
        except subprocess.TimeoutExpired:
            return None, ""
        return done.returncode, "\n".join(done.stdout.decode(errors="replace").splitlines()[-40:])

    def build(self, stage: Stage) -> tuple[bool, str]:
        """Whether everything that the stage needs could be built, and what the tools said."""
        status, output = self._run([*self._build_command, *stage.build])
        return status == 0, output

    def _confined(self, command: Sequence[str], bind: str) -> Sequence[str]:
        """A command that takes its children along and changes nothing but what `bind` lets it."""
        folder = str(self.folder)
        return ["bwrap", "--ro-bind", "/", "/", "--dev", "/dev", "--proc", "/proc",
                "--tmpfs", "/tmp", bind, folder, folder, "--chdir", folder, "--unshare-pid",
                "--unshare-ipc", "--die-with-parent", "--new-session", *command]

    def try_unmutated(self, stage: Stage) -> None:
        """Builds and runs a stage, and keeps how long it takes. Fails when a test fails."""
        built, output = self.build(stage)
        if not built:
            raise SystemExit(f"{output}\nthe unmutated tree cannot be built")
        start = time.monotonic()
        for test, (status, output) in zip(stage.tests, self._run_all(stage, "--bind")):
            if status != 0:
                raise SystemExit(f"{output}\nthe unmutated tree fails: {' '.join(test)}")
        self._seconds[stage] = time.monotonic() - start

    def judge(self, mutation: Mutation, stages: Iterable[Stage]) -> str:
        """What becomes of a mutant."""
        path = self.folder / mutation.file
        text = path.read_text(encoding="utf-8")
        for stage in stages:
            if stage not in self._seconds:
                self.try_unmutated(stage)
            path.write_text(mutation.apply(text), encoding="utf-8")
            try:
                verdict = self._meet(stage)
            finally:
                path.write_text(text, encoding="utf-8")
            if verdict != SURVIVED:
                return verdict
        return SURVIVED

    def _meet(self, stage: Stage) -> str:
        if not self.build(stage)[0]:
            return NOT_BUILT
        limit = _PATIENCE[0] * self._seconds[stage] + _PATIENCE[1]
        statuses = {status for status, _ in self._run_all(stage, "--ro-bind", limit)}
        return SURVIVED if statuses == {0} else ENDLESS if statuses <= {0, None} else NOTICED

    def _run_all(self, stage: Stage, bind: str,
                 seconds: float | None = None) -> list[tuple[int | None, str]]:
        tests = [self._confined(test, bind) if stage.confined else test for test in stage.tests]
        with concurrent.futures.ThreadPoolExecutor(len(tests)) as pool:
            return list(pool.map(lambda test: self._run(test, seconds), tests))


def judge_all(trees: Sequence[Tree], chosen: Iterable[Mutation],
              stages: Callable[[str], Sequence[Stage]]) -> Counter[str]:
    """Judges mutants, one at a time in each tree, prints the survivors, and counts.

    An unmutated tree has to pass whatever a mutant meets, before it does; and once more in the end,
    lest the machine gave out meanwhile.
    """
    chosen = sorted(chosen)
    first = list(dict.fromkeys(stages(mutation.file)[0] for mutation in chosen))
    free: queue.SimpleQueue[Tree] = queue.SimpleQueue()
    counts: Counter[str] = Counter()

    def try_unmutated(tree: Tree) -> None:
        for stage in first:
            tree.try_unmutated(stage)

    def judge(mutation: Mutation) -> tuple[Mutation, str]:
        tree = free.get()
        try:
            return mutation, tree.judge(mutation, stages(mutation.file))
        finally:
            free.put(tree)

    with concurrent.futures.ThreadPoolExecutor(len(trees)) as pool:
        list(pool.map(try_unmutated, trees))
        for tree in trees:
            free.put(tree)
        for mutation, verdict in pool.map(judge, chosen):
            counts[verdict] += 1
            if verdict == SURVIVED:
                print(f"survived: {mutation}", flush=True)
        list(pool.map(try_unmutated, trees))
    return counts


def _listed(*patterns: str) -> list[str]:
    """What git knows of the sources, and what is new among them."""
    listing = subprocess.run(
        ["git", "ls-files", "-z", "--cached", "--others", "--exclude-standard", "--", *patterns],
        cwd=ROOT, check=True, capture_output=True, text=True).stdout
    return [name for name in listing.split("\0") if (ROOT / name).is_file()]


def _make_tree(folder: pathlib.Path) -> Tree:
    tree = Tree(folder, ["ninja", "-C", _BUILD])
    tree.copy(ROOT, _listed())
    subprocess.run(["cmake", "--preset", _PRESET], cwd=folder, check=True,
                   stdout=subprocess.DEVNULL)
    return tree


def main() -> None:
    """The command line."""
    parser = argparse.ArgumentParser(prog="./kx mutate", description=(__doc__ or "").split("\n")[0])
    parser.add_argument("count", nargs="?", type=int, default=300, metavar="COUNT",
                        help="how many mutations are tried (300)")
    parser.add_argument("seed", nargs="?", type=int, default=random.randrange(10**6),
                        metavar="SEED", help="what they are chosen by (any)")
    parser.add_argument("folders", nargs="*", metavar="FOLDER", default=ROOMS,
                        help="where: a room, platform/linux, platform/posix (all rooms)")
    arguments = parser.parse_args()
    if reason := sandbox.refusal():
        raise SystemExit(f"mutants run in a sandbox only: {reason}")

    files = [file for file in _listed(*(f"{folder}/*" for folder in arguments.folders))
             if file.endswith((".cc", ".h")) and not file.endswith("_test.cc")]
    possible = [mutation for file in files
                for mutation in mutations(file, (ROOT / file).read_text(encoding="utf-8"))]
    chosen = random.Random(arguments.seed).sample(possible, min(arguments.count, len(possible)))
    print(f"{len(chosen)} of {len(possible)} mutations, by seed {arguments.seed}", flush=True)

    trees = [_make_tree(ROOT / _BUILD / str(number + 1)) for number in range(os.cpu_count() or 1)]
    counts = judge_all(trees, chosen, stages_of)
    print(f"{counts[NOTICED] + counts[ENDLESS]} noticed ({counts[ENDLESS]} by not ending), "
          f"{counts[SURVIVED]} survived, {counts[NOT_BUILT]} not compiled")


if __name__ == "__main__":
    sys.exit(main())
