"""Makes the tables of docs/performance.md, and its plot, out of what bench.py --json wrote.

    report.py DOCUMENT PLOT.svg REPORT.json...

Puts what it makes in the place of what stands between the "made by" comments of the document, and
draws the plot with gnuplot. The reports are of consecutive runs on one machine. The same reports
always give the same files.
"""

import argparse
import json
import pathlib
import re
import statistics
import subprocess

_BEGIN, _END = "<!-- made by bench/report.py: {} -->", "<!-- end of {} -->"


def table(reports: list[dict]) -> str:
    """All rows, with the ratios of each run."""
    runs = range(1, len(reports) + 1)
    lines = ["| subject | peer | amount | of peer | target | " +
             " | ".join(f"ratio, run {run}" for run in runs) + " |",
             "|---|---|--:|--:|--:|" + "--:|" * len(reports)]
    for rows in zip(*(report["rows"] for report in reports), strict=True):
        first = rows[0]
        if any((row["name"], row["peer"]) != (first["name"], first["peer"]) for row in rows):
            raise ValueError(f"the reports do not have the same rows: {first['name']}")
        amounts = [statistics.median(row[key] for row in rows)
                   for key in ("subject_amount", "peer_amount")]
        target = "" if first["limit"] is None else \
            f"{statistics.median(row['limit'] for row in rows):.2f}"
        lines.append(f"| {first['name']} | {first['peer']} | " +
                     " | ".join(f"{_number(amount)} {first['unit']}" for amount in amounts) +
                     f" | {target} | " + " | ".join(_ratio(row) for row in rows) + " |")
    return "\n".join(lines)


def _number(amount: float) -> str:
    places = 4 if amount < 0.1 else 2 if amount < 100 and amount % 1 != 0 else 0
    return f"{amount:,.{places}f}"


def _ratio(row: dict) -> str:
    low, high = row["quartiles"]
    missed = row["limit"] is not None and row["ratio"] > row["limit"]
    ratio = f"**{row['ratio']:.2f}**" if missed else f"{row['ratio']:.2f}"
    return f"{ratio} ({low:.2f}–{high:.2f})"


def machine(reports: list[dict]) -> str:
    """What the figures were measured on, as a list."""
    facts = reports[0]["machine"]
    loads = " and ".join(str(report["machine"]["load at the start"]) for report in reports)
    return "\n".join([f"* {name}: {value}" for name, value in facts.items()
                      if name != "load at the start"] + [f"* load when a run began: {loads}"])


def fleet(reports: list[dict]) -> str:
    """What the figures come to for a million endpoints that are asked every five minutes."""
    endpoints, runs_a_day = 1_000_000, 24 * 60 // 5
    lines = ["| every five minutes | one run | an endpoint's day | the fleet's day |",
             "|---|--:|--:|--:|"]

    def add(what: str, milliseconds: float) -> None:
        day = milliseconds * runs_a_day / 1000
        lines.append(f"| {what} | {milliseconds:.2f} ms | {day:.2f} s | "
                     f"{day * endpoints / 3600:,.0f} h |")

    def median(name: str, peer: str, key: str) -> float:
        return statistics.median(row[key] for report in reports for row in report["rows"]
                                 if (row["name"], row["peer"]) == (name, peer))

    version = ("-getVersion", "/bin/true")
    checked = "-getProductVersion, 1 MiB library"
    bare, unchecked = "the same and libcrypto's bare check", "the same SDK calls, no check"
    whole = median(checked, bare, "subject_amount")
    least = median(checked, bare, "peer_amount")
    sdk = median(checked, unchecked, "peer_amount")
    add("`-getVersion`", median(*version, "subject_amount"))
    add("`-getProductVersion`", whole)
    add("of which: the product's SDK and the loader", sdk)
    add("of which: libcrypto's part of the signature check", least - sdk)
    add("of which: the tool", whole - least)
    busy = whole * runs_a_day * endpoints / 1000 / 86_400
    lines += ["", f"`-getProductVersion` thus takes the time of {busy:,.0f} processors, of the million or "
              "more that the fleet has;", f"{(whole - least) / whole:.0%} of that is the tool's own."]
    return "\n".join(lines)


def fill(document: str, name: str, text: str) -> str:
    """The document with `text` in the place of the part with this name."""
    begin, end = _BEGIN.format(name), _END.format(name)
    filled, count = re.subn(f"{re.escape(begin)}\n.*?{re.escape(end)}",
                            lambda _: f"{begin}\n{text}\n{end}", document, flags=re.DOTALL)
    if count != 1:
        raise ValueError(f"the document has no place for {name}")
    return filled


def fill_all(document: str, reports: list[dict]) -> str:
    """The document with all that is made of the reports."""
    for name, make in (("machine", machine), ("table", table), ("fleet", fleet)):
        document = fill(document, name, make(reports))
    return document


def plot(reports: list[dict]) -> bytes:
    """The plot of cost against size: a panel for each way to grow, both axes logarithmic."""
    panels = reports[0]["curves"]
    script = [f"set terminal svg size 900,{300 * ((len(panels) + 1) // 2)} font 'sans-serif,12' "
              "background '#ffffff'",
              f"set multiplot layout {(len(panels) + 1) // 2},2",
              "set logscale xy", "set format '10^{%T}'", "set grid", "set key left top Left reverse",
              "set ylabel 'milliseconds'", "set offsets graph 0.05, graph 0.05, 0, 0"]
    for panel, curves in panels.items():
        drawn = []
        for number, (curve, points) in enumerate(curves.items()):
            script.append(f"$curve{number} << END")
            for index, (size, _) in enumerate(points):
                cost = statistics.median(report["curves"][panel][curve][index][1]
                                         for report in reports)
                script.append(f"{size} {cost:.4g}")
            script.append("END")
            drawn.append(f"$curve{number} with linespoints linewidth 2 title '{curve}'")
        title, _, unit = panel.partition(", by ")
        script += [f"set title '{title}'", f"set xlabel '{unit}'", "plot " + ", ".join(drawn)]
    done = subprocess.run(["gnuplot"], input="\n".join(script).encode(), check=True,
                          stdout=subprocess.PIPE)
    return done.stdout


def main() -> None:
    """Fills the document and draws the plot."""
    parser = argparse.ArgumentParser(prog="report", description=__doc__.splitlines()[0])
    parser.add_argument("document", type=pathlib.Path)
    parser.add_argument("plot", type=pathlib.Path)
    parser.add_argument("reports", type=pathlib.Path, nargs="+", metavar="REPORT")
    options = parser.parse_args()
    reports = [json.loads(path.read_text()) for path in options.reports]
    text = options.document.read_text(encoding="utf-8")
    options.document.write_text(fill_all(text, reports), encoding="utf-8")
    options.plot.write_bytes(plot(reports))


if __name__ == "__main__":
    main()
