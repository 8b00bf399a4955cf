"""Writes the results of bench.py into docs/performance.md and draws the plot beside it."""

import pathlib
import re
import subprocess

_DOCS = pathlib.Path(__file__).resolve().parents[1] / "docs"
_BEGIN, _END = "<!-- written by ./kx bench: {} -->", "<!-- end of {} -->"


def write(machine: dict, rows: list[dict], curves: dict[str, list[tuple[int, float]]]) -> None:
    """Replaces the machine, the table and the plot. `curves` are points of size and ratio."""
    document = _DOCS / "performance.md"
    text = document.read_text(encoding="utf-8")
    text = _fill(text, "machine", "; ".join(f"{name}: {value}" for name, value in machine.items()))
    text = _fill(text, "table", "\n".join([
        "| subject | peer | amount | of peer | target | ratio |", "|---|---|--:|--:|--:|--:|",
        *map(_line, rows)]))
    document.write_text(text, encoding="utf-8")
    (_DOCS / "performance.svg").write_bytes(_plot(curves))


def _fill(document: str, name: str, text: str) -> str:
    begin, end = _BEGIN.format(name), _END.format(name)
    filled, count = re.subn(f"{re.escape(begin)}\n.*?{re.escape(end)}",
                            lambda _: f"{begin}\n{text}\n{end}", document, flags=re.DOTALL)
    if count != 1:
        raise ValueError(f"the document has no place for the {name}")
    return filled


def _line(row: dict) -> str:
    amounts = [f"{_number(row[key])} {row['unit']}" for key in ("subject_amount", "peer_amount")]
    target, ratio = "", f"{row['ratio']:.2f}"
    if row["limit"] is not None:
        target = f"{row['limit']:.2f}"
        ratio = f"**{ratio}**" if row["ratio"] > row["limit"] else ratio
    low, high = row["quartiles"]
    return (f"| {row['name']} | {row['peer']} | {' | '.join(amounts)} | {target} | "
            f"{ratio} ({low:.2f}–{high:.2f}) |")


def _number(amount: float) -> str:
    places = 4 if amount < 0.1 else 2 if amount < 100 and amount % 1 != 0 else 0
    return f"{amount:,.{places}f}"


def _plot(curves: dict[str, list[tuple[int, float]]]) -> bytes:
    script = ["set terminal svg size 640,300 font 'sans-serif,12' background '#ffffff'",
              "set logscale xy", "set format x '10^{%T}'", "set grid", "set key outside below",
              "set xlabel 'bytes, entries or processes'", "set ylabel 'time of the peer'"]
    drawn = []
    for number, (title, points) in enumerate(curves.items()):
        data = [f"{size} {ratio:.3g}" for size, ratio in points]
        script += [f"$curve{number} << END", *data, "END"]
        drawn.append(f"$curve{number} with linespoints linewidth 2 title '{title}'")
    script.append("plot " + ", ".join(drawn))
    return subprocess.run(["gnuplot"], input="\n".join(script).encode(), check=True,
                          stdout=subprocess.PIPE).stdout
