"""The transcripts of the contract are what the tool logs, line by line and in this order, when all
goes well."""

import itertools
import re

from tests.documents import option_table
from tests.documents.contract_test import CONTRACT
from tests.end_to_end.harness import EndToEndCase

_PACKAGE, _IMAGE = "/demo/package/Setup.pkg", "/demo/package-image/Setup.iso"
# A run of each option that goes well, and which transcript of the option's section it is.
RUNS = (
    (f"-runInstaller {_PACKAGE}", "installer", 0),
    (f"-runInstaller {_IMAGE}", "installer", 1),
    ("-runSetupDownloader /demo/downloader-image/Setup.iso", "installer", None),
    ("-detect", "healthy", 0),
    ("-detect", "critical-issues", 0),
    ("-detect", "services-missing", 0),
    ("-getInstallationLink -slUrl u -apiKey k -packageName p", "healthy", 0),
    ("-checkForUpdateErrors", "update-failed", None),
    ("-getUpdateStatus Product", "healthy", None),
    ("-hasCriticalIssues", "critical-issues", None),
    ("-isUpToDate", "healthy", None),
    ("-isUpToDate", "update-stale", None),
    ("-getUpdateLocations", "healthy", None),
    ("-startUpdate", "healthy", 0),
    ("-getProductVersion", "healthy", None),
    ("-getProductVersion", "run-again-once", None),
    ("-getLastUpdate", "healthy", None),
    ("-getFeatureStatus", "healthy", None),
    ("-getLastSystemScan", "healthy", 0),
    ("-startFullScan", "healthy", 0),
    ("-startQuickScan", "healthy", None),
    ("-getVersion", "healthy", 0),
)
# What the text says of transcripts: which others may stand in the place of one, and the remarks that
# begin and end a group of lines.
_IN_PLACE = {
    "detection": [['Starting ORVEX Detect. Assign "0" to the result', "Get product directory",
                   "ORVEX directory not found"]],
    "endpoint information": [["Empty values are entered"]],
}
_BEGIN = {"[up to five tries:]", "[with a time limit:]", "[if they run:]", "[if the services run:]"}
_END = {"[end of the tries]": "+", "[in both cases:]": "?"}
# The remark of lines that come in any order; they stand together.
_UNORDERED = "[as the image lists them]"


def section_of(heading: str) -> str:
    """What stands below a heading that begins so, up to the next heading."""
    return re.search(rf"^##+ {re.escape(heading)}.*\n((?:(?!##+ ).*\n)*)", CONTRACT, re.MULTILINE)[1]


def transcripts_of(heading: str) -> list[str]:
    return re.findall(r"^```text\n((?:.*\n)*?)^```$", section_of(heading), re.MULTILINE)


def status_query(option: str) -> list[str]:
    """The transcript of the common status query with the option's own lines in it."""
    rows = {row: re.findall(r"`(.+?)`", texts) for row, texts in re.findall(
        r"^\| (.+?) \| (`.+) \|$", section_of(f"`{option}"), re.MULTILINE)}
    own = {f"<{name}>": next(texts[0] for row, texts in rows.items() if row.startswith(f"`<{name}>"))
           for name in ("start", "closing", "end")}
    found = [f"{text}    [any number]" for row, texts in rows.items() if row.startswith("found")
             for text in texts]
    lines = []
    for line in transcripts_of("Status query")[0].splitlines():
        for name, text in own.items():
            line = line.replace(name, text)
        lines += found if line == "[what the query finds]" else [line]
    return lines


def part_of(name: str) -> list[str]:
    """The transcript that a line in brackets stands for."""
    if name.startswith("status query of "):
        return status_query(name.split()[3].rstrip(","))[1:-1]
    detection, information, identity = transcripts_of("`-detect`")
    parts = {"detection": detection.partition("[detection:]\n")[2],
             "endpoint information": information, "identity": identity}
    name = re.split(" of |, ", name)[0]
    text = parts[name] if name in parts else transcripts_of(name[0].upper() + name[1:])[0]
    return text.splitlines()


def pattern_of_line(line: str) -> str:
    """Placeholders stand for any text of one line, but for those that name line ends."""
    if line == "<empty>":
        return "\n"
    words = re.split("<[^>]*>", line)
    return ".*".join(map(re.escape, words)) + ("\n\n" if "and an empty line>" in line else "\n")


def pattern_of(lines: list[str]) -> str:
    parts = [re.split(r" {4,}(?=\[)", line) for line in lines]
    unordered = [pattern_of_line(line) for line, *remark in parts if remark == [_UNORDERED]]
    orders = "|".join(map("".join, itertools.permutations(unordered)))
    pattern = ""
    for line, *remark in parts:
        if remark == [_UNORDERED]:
            pattern += f"(?:{orders})"
            orders = ""
        elif line in _BEGIN:
            pattern += "(?:"
        elif line in _END:
            pattern += f"){_END[line]}"
        elif line.endswith(":]"):
            continue
        elif line.startswith("["):
            name = line[1:-1]
            choices = [part_of(name), *_IN_PLACE.get(name.split(",")[0], [])]
            pattern += f"(?:{'|'.join(map(pattern_of, choices))})"
        else:
            pattern += f"(?:{pattern_of_line(line)})*" if remark else pattern_of_line(line)
    return pattern


def transcript_for(option: str, number: int | None) -> list[str]:
    """The option's own transcript of that number, or what the text puts together from others."""
    if number is not None:
        return transcripts_of(f"`{option}")[number].splitlines()
    if option == "-startQuickScan":
        full = "\n".join(transcript_for("-startFullScan", 0))
        return full.replace("full", "quick").replace("Full", "Quick").splitlines()
    if option == "-runSetupDownloader":
        lines = [line for line in transcript_for("-runInstaller", 1) if line not in (
            'Running ORVEX Install with "pkg installer"', "Check for pkg filename")]
        start = next(text for text in re.findall(
            r"`(.+?)`", section_of(f"`{option}")) if text.startswith("Starting"))
        after = lines.index("Running ORVEX install process") + 1
        return [start, *lines[1:after], *transcript_for(option, 0), *lines[after:]]
    return status_query(option)


class ContractTranscriptsTest(EndToEndCase):
    def test_each_option_has_a_run(self) -> None:
        options = dict.fromkeys(command.split()[0] for command, _, _ in RUNS)
        self.assertEqual(list(options), [option.name for option in option_table.options()])

    def test_are_what_is_logged(self) -> None:
        for command, scenario, number in RUNS:
            with self.subTest(command=command, scenario=scenario):
                run = self.run_tool(*command.split(), scenario=scenario)
                log = "".join(f"{message}\n" for message in run.main_log)
                lines = transcript_for(command.split()[0], number)
                if not re.fullmatch(pattern_of(lines), log):
                    self.assertEqual(log, "\n".join(lines))
