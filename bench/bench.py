"""Compares the tool with baseline programs and limits, and prints one table of ratios.

    bench.py [--build DIRECTORY] [--rounds-percent N] [ROW...]

Each row compares a subject with a baseline or a limit. Both run alternately on this machine. The row has
their medians, the median and the quartiles of the ratios of the individual rounds, and the target. ROW is
part of the name of a group of rows; by default, all rows are measured. --rounds-percent 10 runs a tenth of
the rounds, to see that all rows still work. A full run of all rows also writes the table and the plot of
docs/performance.md. The exit status is 1 when a ratio misses its target.
"""

import argparse
import contextlib
import dataclasses
import json
import os
import pathlib
import platform
import re
import shutil
import statistics
import subprocess
import sys
import tempfile
from collections.abc import Iterator

ROOT = pathlib.Path(__file__).resolve().parent.parent
sys.path.insert(0, str(ROOT))

# pylint: disable=wrong-import-position
from simulator import endpoints, installation, scenario, signing  # noqa: E402
from simulator.signing import macho  # noqa: E402

MEBIBYTE = 1 << 20
_DOCS = ROOT / "docs"
_BENCH = "/opt/kxtool/bench"  # the folder of these programs on an endpoint


def _number(value: float) -> str:
    places = 4 if value < 0.1 else 2 if value < 100 and value % 1 != 0 else 0
    return f"{value:,.{places}f}"


@dataclasses.dataclass
class Result:
    """One row of the table. `limit` is the target for the ratio."""

    name: str
    baseline: str
    unit: str
    subject_value: float
    baseline_value: float
    ratio: float
    quartiles: tuple[float, float]
    limit: float | None

    @property
    def is_met(self) -> bool:
        """Whether the row meets its target, if it has one."""
        return self.limit is None or self.ratio <= self.limit

    def __str__(self) -> str:
        """The line in the table; a ratio that misses its target is bold."""
        values = [f"{_number(value)} {self.unit}" for value in (self.subject_value, self.baseline_value)]
        target = "" if self.limit is None else f"{self.limit:.2f}"
        ratio = f"{self.ratio:.2f}" if self.is_met else f"**{self.ratio:.2f}**"
        low, high = self.quartiles
        return (f"| {self.name} | {self.baseline} | {' | '.join(values)} | {target} | "
                f"{ratio} ({low:.2f}–{high:.2f}) |")


@dataclasses.dataclass
class Runs:
    """The measurements of one command's runs."""

    milliseconds: list[float] = dataclasses.field(default_factory=list)
    mebibytes: list[float] = dataclasses.field(default_factory=list)  # peak resident memory


class Bench:
    """What all rows share: the build, the work folder, the number of rounds, and the curves."""

    def __init__(self, build: pathlib.Path, rounds_percent: int, work: pathlib.Path):
        self.build = build
        self.work = work
        self._percent = rounds_percent
        # The curves of the plot by title: sizes, each with the ratio to the baseline's time.
        self.curves: dict[str, list[tuple[int, float]]] = {}

    def point(self, curve: str, size: int, subject: list[float], baseline: list[float]) -> None:
        """Adds a point to a curve of the plot."""
        self.curves.setdefault(curve, []).append(
            (size, statistics.median(subject) / statistics.median(baseline)))

    def rounds(self, count: int) -> int:
        """The number of rounds to run instead of `count`."""
        return max(3, count * self._percent // 100)

    def measure(self, commands: dict[str, list[str]], rounds: int,
                endpoint: endpoints.Endpoint | None = None) -> dict[str, Runs]:
        """Measures commands on this machine, or on an endpoint. Returns the runs by the commands' names."""
        program = f"{_BENCH}/kx_measure" if endpoint else str(self.program("kx_measure"))
        words = [program, str(self.rounds(rounds))]
        for number, command in enumerate(commands.values()):
            words += (["--"] if number > 0 else []) + command
        with tempfile.TemporaryFile() as output:
            run = endpoint.run if endpoint else subprocess.call
            if run(words, stdout=output) != 0:
                raise RuntimeError(f"cannot measure {commands}")
            output.seek(0)
            lines = output.read().decode().splitlines()
        runs = {name: Runs() for name in commands}
        for number, seconds, memory in map(str.split, lines):
            one = runs[list(commands)[int(number)]]
            one.milliseconds.append(float(seconds) * 1000)
            one.mebibytes.append(float(memory) / 1024)
        return runs

    def program(self, name: str) -> pathlib.Path:
        """The path of a program that is built from this folder."""
        return self.build / "bench" / name

    @contextlib.contextmanager
    def endpoint(self, changes: dict) -> Iterator[endpoints.Endpoint]:
        """An endpoint with the programs that are built from this folder."""
        with endpoints.open_endpoint(self.build, scenario.load(changes)) as opened:
            folder = opened.path(_BENCH)
            folder.mkdir(parents=True)
            for name in ("kx_measure", "kx_minimal_client", "kx_checking_client"):
                shutil.copy(self.program(name), folder)
            yield opened


def compare(name: str, baseline: str, unit: str, subject: list[float], others: list[float],
            limit: float | None) -> Result:
    """The row that compares the values of `subject` with those of `others`, round by round."""
    ratios = [mine / theirs for mine, theirs in zip(subject, others)]
    low, _, high = statistics.quantiles(ratios, n=4)
    return Result(name, baseline, unit, statistics.median(subject), statistics.median(others),
                  statistics.median(ratios), (low, high), limit)


def keep_within(name: str, unit: str, values: list[float], limit: float) -> Result:
    """The row for values that a fixed number limits."""
    return compare(name, f"limit of {limit:g} {unit}", unit, values, [limit] * len(values), 1.0)


def start_to_exit(bench: Bench) -> Iterator[Result]:
    """The minimum cost of a run."""
    tool = [str(bench.build / "KXTool"), "-getVersion"]
    true = ["/bin/true"]
    idle = [str(bench.program("kx_checking_client"))]
    runs = bench.measure({"tool": tool, "true": true, "idle": idle}, 600)
    mine, others = runs["tool"], runs["true"]
    yield compare("-getVersion", "/bin/true", "ms", mine.milliseconds, others.milliseconds, 1.4)
    yield compare("-getVersion", "an empty program linked with libcrypto", "ms", mine.milliseconds,
                  runs["idle"].milliseconds, 1.25)
    yield compare("-getVersion, peak memory", "/bin/true", "MiB", mine.mebibytes, others.mebibytes,
                  None)


def product_version(bench: Bench) -> Iterator[Result]:
    """The cost of trust: the same SDK calls with and without the check of the library."""
    with bench.endpoint({"product": {"library": {"size": MEBIBYTE}}}) as endpoint:
        library = installation.LAYOUTS[1].library
        runs = bench.measure({
            "tool": [installation.TOOL, "-getProductVersion"],
            "client": [f"{_BENCH}/kx_minimal_client", library],
            "checking": [f"{_BENCH}/kx_checking_client", library]}, 300, endpoint)
    mine, client, checking = (runs[name].milliseconds for name in ("tool", "client", "checking"))
    row = compare("-getProductVersion, 1 MiB library", "the same SDK calls, no check", "ms", mine,
                  client, None)
    # The target is a difference of 1.5 ms. As a ratio it depends on the baseline.
    row.limit = 1 + 1.5 / row.baseline_value
    yield row
    yield compare("-getProductVersion, 1 MiB library", "the same, plus a minimal libcrypto check", "ms",
                  mine, checking, 1.25)


def _signed_plain_file(bench: Bench, identity: signing.Identity, size: int) -> pathlib.Path:
    path = bench.work / "plain"
    block = bytes(range(256)) * 4096
    with path.open("wb") as file:
        for _ in range(size):
            file.write(block)
    signing.sign_file(path, identity)
    return path


def _signed_universal_file(bench: Bench, identity: signing.Identity) -> pathlib.Path:
    path = bench.work / "universal"
    pieces = [macho.build_thin(macho.Slice(processor=processor, code_size=100 * MEBIBYTE))
              for processor in ("x86_64", "arm64")]
    path.write_bytes(macho.build_fat(pieces))
    signing.sign_macho(path, identity)
    return path


def signature_check(bench: Bench) -> Iterator[Result]:
    """The speed of hashing a file."""
    identity = signing.Identity.create(bench.work / "identity")
    program = str(bench.build / "tests" / "real_signatures" / "kx_check_signature")
    has_instructions = " sha_ni " in pathlib.Path("/proc/cpuinfo").read_text()

    def measure(path: pathlib.Path) -> dict[str, Runs]:
        return bench.measure({
            "check": [program, str(identity.anchor_path), str(path)],
            "sha256sum": ["/usr/bin/sha256sum", str(path)],
            "libcrypto, one thread": [str(bench.program("kx_hash_file")), str(path)]}, 9)

    def rows_of(name: str, runs: dict[str, Runs]) -> Iterator[Result]:
        mine = runs["check"]
        for baseline, limit in (("sha256sum", 0.3 if has_instructions else 0.6),
                                ("libcrypto, one thread", 0.65)):
            yield compare(f"signature of a {name}", baseline, "ms", mine.milliseconds,
                          runs[baseline].milliseconds, limit)
        yield keep_within(f"signature of a {name}, peak memory", "MiB", mine.mebibytes, 32)

    for size in (1, 8, 64, 512):
        path = _signed_plain_file(bench, identity, size)
        runs = measure(path)
        bench.point("signature (libcrypto)", size * MEBIBYTE, runs["check"].milliseconds,
                    runs["libcrypto, one thread"].milliseconds)
        if size == 512:
            yield from rows_of("512 MiB plain file", runs)
        path.unlink()
    path = _signed_universal_file(bench, identity)
    yield from rows_of("200 MiB universal Mach-O", measure(path))
    path.unlink()


def _fill_scan_logs(folder: pathlib.Path, count: int) -> None:
    summary = '<Scan><ScanSummary startTime="1700000000" duration="60000"/></Scan>'
    for number in range(count):
        (folder / f"{number:07}.log").touch()
    for number in range(5):
        for kind in ("Full Scan", "Quick Scan"):
            (folder / f"{number}_{kind}.xml").write_text(summary)


def last_system_scan(bench: Bench) -> Iterator[Result]:
    """A scan-log directory of a million entries, ten of them summaries."""
    runs = {}
    for count in (1_000, 30_000, 1_000_000):
        with bench.endpoint({}) as endpoint:
            _fill_scan_logs(endpoint.path(installation.SCAN_LOGS), count)
            runs[count] = bench.measure({
                "-getLastSystemScan": [installation.TOOL, "-getLastSystemScan"],
                "ls -U": ["/bin/ls", "-U", installation.SCAN_LOGS]}, 20, endpoint)
        bench.point("scan logs (ls)", count, runs[count]["-getLastSystemScan"].milliseconds,
                    runs[count]["ls -U"].milliseconds)
    name = "-getLastSystemScan, 1,000,000 entries"
    most = runs[1_000_000]["-getLastSystemScan"]
    fewest = runs[1_000]["-getLastSystemScan"]
    yield compare(name, "ls -U", "ms", most.milliseconds, runs[1_000_000]["ls -U"].milliseconds,
                  1.0)
    yield keep_within(f"{name}, peak memory", "MiB", most.mebibytes, 8)
    yield compare(name, "1,000 times 1,000 entries", "ms", most.milliseconds,
                  [1_000 * one for one in fewest.milliseconds], 1.0)


def _google_benchmark(bench: Bench, repetitions: int, clock: str, pattern: str) -> dict[str, list[float]]:
    """Runs the benchmarks whose names match `pattern`, in random order. Returns the milliseconds of each
    repetition by the clock `real_time` or `cpu_time`."""
    results = bench.work / "results.json"
    subprocess.run([bench.program("kx_sdk_bench"), f"--benchmark_filter={pattern}",
                    f"--benchmark_repetitions={bench.rounds(repetitions)}",
                    "--benchmark_enable_random_interleaving=true", "--benchmark_min_time=0.02",
                    f"--benchmark_out={results}", "--benchmark_out_format=json"],
                   check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    milliseconds: dict[str, list[float]] = {}
    for run in json.loads(results.read_text())["benchmarks"]:
        if run["run_type"] == "iteration":
            name = run["run_name"].removesuffix("/manual_time").removesuffix("/real_time")
            # All are in microseconds.
            milliseconds.setdefault(name, []).append(run[clock] / 1e3)
    return milliseconds


def answers(bench: Bench) -> Iterator[Result]:
    """Unpacking the SDK's answer against a copy of its text and a bare parse."""
    # Nothing waits here, so processor time is compared.
    sizes = (10_000, 1_000_000, 100_000_000)
    times: dict[str, list[float]] = {}
    for size, repetitions in zip(sizes, (151, 51, 15), strict=True):
        times |= _google_benchmark(bench, repetitions, "cpu_time", f"(Answer|Status|Parse)/{size}$")
    baseline = "copy and bare iterative parse"
    for size in sizes:
        bench.point("query (bare parse)", size, times[f"GetFeatureStatus/{size}"],
                    times[f"CopyAndParse/{size}"])
    for name in ("UnpackAnswer", "GetFeatureStatus"):
        for size in sizes:
            yield compare(f"{name}, {size:,} bytes", baseline, "ms", times[f"{name}/{size}"],
                          times[f"CopyAndParse/{size}"], 1.25)

    def once(name: str) -> list[str]:
        return [str(bench.program("kx_sdk_bench")), "--benchmark_min_time=0.001",
                f"--benchmark_filter=^{name}/{sizes[2]}$"]

    runs = bench.measure({name: once(name) for name in ("GetFeatureStatus", "CopyAndParse")}, 3)
    yield compare(f"GetFeatureStatus, {sizes[2]:,} bytes, peak memory",
                  "two copies of the text and one parsed document", "MiB",
                  runs["GetFeatureStatus"].mebibytes, runs["CopyAndParse"].mebibytes, 1.2)


def scan_events(bench: Bench) -> Iterator[Result]:
    """The time from an event to the return of a watched scan, and the cost of many events."""
    times = _google_benchmark(bench, 20, "real_time", "WatchedScan|TwoHandOvers|StormOfEvents")
    row = compare("watched scan, from event to return", "two hand-overs between threads", "ms",
                  times["WatchedScan"], times["TwoHandOvers"], None)
    # The target is a time of 5 ms. As a ratio it depends on the baseline.
    row.limit = 5 / row.baseline_value
    yield row
    yield compare("watched scan, 100,000 events", "10 times 10,000 events", "ms",
                  times["StormOfEvents/100000"],
                  [10 * one for one in times["StormOfEvents/10000"]], 1.25)


@contextlib.contextmanager
def _sleepers(count: int) -> Iterator[None]:
    script = f"import os, time\nfor _ in range({count}):\n if not os.fork(): time.sleep(900)\n"
    with subprocess.Popen([sys.executable, "-I", "-S", "-c", script + "print(flush=True)\n"
                           "time.sleep(900)"], stdout=subprocess.PIPE,
                          start_new_session=True) as parent:
        try:
            parent.stdout.readline()
            yield
        finally:
            subprocess.run(["/usr/bin/pkill", "-KILL", "--session", str(parent.pid)], check=False)


def process_table(bench: Bench) -> Iterator[Result]:
    """Listing 5,000 processes."""
    for count in (500, 5_000):
        with _sleepers(count):
            runs = bench.measure({"listing": [str(bench.program("kx_process_look"))],
                                  "pgrep -c .": ["/usr/bin/pgrep", "-c", "."]}, 20)
        bench.point("process table (pgrep)", count, runs["listing"].milliseconds,
                    runs["pgrep -c ."].milliseconds)
    yield compare("listing 5,000 processes", "pgrep -c .", "ms", runs["listing"].milliseconds,
                  runs["pgrep -c ."].milliseconds, 0.3)


GROUPS = (start_to_exit, product_version, signature_check, last_system_scan, answers, scan_events,
          process_table)


_HEAD = "| subject | baseline | value | baseline's value | target | ratio |\n|---|---|--:|--:|--:|--:|"


def _machine() -> dict[str, str | int | float]:
    """The properties of the machine that affect the results."""
    processor = re.search(r"model name\s*: (.*)", pathlib.Path("/proc/cpuinfo").read_text())
    return {"processor": processor[1] if processor else platform.machine(),
            "processors": os.cpu_count() or 1,
            "memory in GiB": round(os.sysconf("SC_PAGE_SIZE") * os.sysconf("SC_PHYS_PAGES") / 2**30),
            "kernel": platform.release(),
            "system": platform.freedesktop_os_release()["PRETTY_NAME"],
            "load at the start": round(os.getloadavg()[0], 1)}


def _plot(curves: dict[str, list[tuple[int, float]]]) -> bytes:
    script = ["set terminal svg size 640,300 font 'sans-serif,12' background '#ffffff'",
              "set logscale xy", "set format x '10^{%T}'", "set grid", "set key outside below",
              "set xlabel 'bytes, entries or processes'", "set ylabel 'time relative to the baseline'"]
    drawn = []
    for number, (title, points) in enumerate(curves.items()):
        data = [f"{size} {ratio:.3g}" for size, ratio in points]
        script += [f"$curve{number} << END", *data, "END"]
        drawn.append(f"$curve{number} with linespoints linewidth 2 title '{title}'")
    script.append("plot " + ", ".join(drawn))
    return subprocess.run(["gnuplot"], input="\n".join(script).encode(), check=True,
                          stdout=subprocess.PIPE).stdout


def _write(bench: Bench, **parts: str) -> None:
    """Replaces the named parts of docs/performance.md, and its plot."""
    document = _DOCS / "performance.md"
    text = document.read_text(encoding="utf-8")
    for name, part in parts.items():
        begin, end = f"<!-- written by ./kx bench: {name} -->\n", f"\n<!-- end of {name} -->"
        before, rest = text.split(begin)
        _, after = rest.split(end)
        text = before + begin + part + end + after
    document.write_text(text, encoding="utf-8")
    (_DOCS / "performance.svg").write_bytes(_plot(bench.curves))


def main() -> int:
    """Measures the wanted rows."""
    parser = argparse.ArgumentParser(prog="bench", description=__doc__.splitlines()[0])
    parser.add_argument("--build", type=pathlib.Path, default=ROOT / "build" / "bench")
    parser.add_argument("--rounds-percent", type=int, default=100, metavar="N")
    parser.add_argument("rows", nargs="*", metavar="ROW",
                        help=", ".join(group.__name__ for group in GROUPS))
    options = parser.parse_args()
    wanted = [group for group in GROUPS
              if not options.rows or any(part in group.__name__ for part in options.rows)]
    if not wanted:
        parser.error(f"no row is named {' or '.join(options.rows)}")
    print(_HEAD)
    machine = "; ".join(f"{name}: {value}" for name, value in _machine().items())
    rows = []
    with tempfile.TemporaryDirectory(prefix="kx-bench-") as work:
        bench = Bench(options.build.resolve(), options.rounds_percent, pathlib.Path(work))
        for group in wanted:
            for row in group(bench):
                print(row, flush=True)
                rows.append(row)
    if wanted == list(GROUPS) and options.rounds_percent >= 100:
        _write(bench, machine=machine, table="\n".join([_HEAD, *map(str, rows)]))
    return 0 if rows and all(row.is_met for row in rows) else 1


if __name__ == "__main__":
    sys.exit(main())
