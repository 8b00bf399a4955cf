"""Runs the tool over and over on endpoints chosen at random, and looks for whatever stays behind.

    ./kx soak [RUNS [SEED [FIRST]]]

Every run has an endpoint of its own choosing, which the seed and the run's number determine: a run
is repeated by `./kx soak 1 SEED NUMBER`. What the tool must answer is worked out by model.py. After
each run there may be no process left, no temporary file, no shared memory, no descriptor that was
open when the tool exited, and no SDK instance.
"""

import collections
import dataclasses
import json
import pathlib
import random
import shutil
import sys
import time
from collections.abc import Callable
from typing import Any

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT))

# pylint: disable=wrong-import-position
from simulator import installation  # noqa: E402
from simulator import scenario as scenarios  # noqa: E402
from tests.end_to_end import detections as d  # noqa: E402
from tests.end_to_end.harness import BUILD  # noqa: E402
from tests.faults import model, session  # noqa: E402

Json = Any

DESCRIPTORS = f"{installation.STAND_INS}/descriptors.txt"
RECORDER = f"{installation.STAND_INS}/open_descriptors.so"
TASKS = ("3b7e91a0-5c42-4d18-9f6e-2a0c7d45e8b1", "8f05c2d6-71e9-4a3b-b2c4-6d19e0f37a5c")
SERVICES = [{"name": name} for name in ("KXCoreIssues", "KXLDaemon", "KXUpdDaemon")]


@dataclasses.dataclass
class Case:
    """One run: the tool's words, the endpoint and what must come of it.

    leaves_output: whether the attach output stays in the temporary directory.
    starts: services that go on running.
    """

    words: list[str]
    scenario: dict[str, Json]
    answer: model.Answer | None = None  # None: the model's
    leaves_output: bool = False
    starts: tuple[str, ...] = ()


# --- Choosing -------------------------------------------------------------------------------------

def _statuses(chance: random.Random, failures: tuple[int, ...], often: float) -> list[int]:
    return [chance.choice(failures) if chance.random() < often else 0
            for _ in range(chance.randint(1, 5))]


def _sdk(chance: random.Random) -> dict[str, Json]:
    """Statuses of the SDK's calls: mostly good, else anything."""
    if chance.random() < 0.6:
        return {}
    return {
        "getInstance": _statuses(chance, (5, -5, 1), 0.1),
        "register": _statuses(chance, (6, 2, -1), 0.1),
        "run": _statuses(chance, (1, 2, 7, -9), 0.4),
        "unregister": _statuses(chance, (8, 256, -3), 0.15),
    }


def _completions(chance: random.Random) -> list[Json]:
    """One that counts, and others around it that do not."""
    others = [
        {"batch": "foreign", "when": "insideRun"}, {"context": "none", "when": "insideRun"},
        {"context": "foreign", "when": "insideRun"}, {"batch": "none"},
        {"when": "afterUnregister"}, {"when": "afterUnregister", "delay": 60_000},
        {"when": "duringRegister", "batch": "foreign"}, {"when": "duringUnregister"},
        {"when": "afterUnregister", "repeat": 20, "padding": 100_000},
    ]
    own = {"padding": chance.choice((0, 0, 0, 100_000)), "repeat": chance.choice((1, 1, 1, 5)),
           "errorNumber": chance.choice((0, 0, 7, -7))}
    if chance.random() < 0.05:
        own["result"] = "none"
    return [own, *chance.sample(others, chance.choice((0, 0, 1, 3)))]


def _answer(chance: random.Random, output: Json) -> Json:
    kinds = [{"output": output}] * 12 + [
        {"output": None}, {"error": chance.choice((1, 7, 255, -17))}, {"text": ""},
        {"text": "no JSON"}, {"text": "[" * 1000}]
    return {**chance.choice(kinds), "completions": _completions(chance)}


def _some(chance: random.Random, **members: Json) -> Json:
    return {name: value for name, value in members.items() if chance.random() < 0.8}


def _location(chance: random.Random, now: int) -> Json:
    location: Json = {}
    if chance.random() < 0.9:
        location["update"] = {
            "error": chance.choice((0, 0, 0, -2003, 5, -1)),
            **_some(chance, time=now - chance.randint(0, 400_000),
                    lastSucceededTime=now - chance.choice((60, 172_000, 174_000)))}
    if chance.random() < 0.9:
        location["Version"] = f"7.{chance.randint(0, 999)}"
    return location


def _status(chance: random.Random, now: int) -> Json:
    names = ["Product", "ctc", "antimalware", "webfilter", "größe", "a|b", ""]
    locations = {name: _location(chance, now)
                 for name in chance.sample(names, chance.randint(0, len(names)))}
    severities = ("critical", "CRITICAL", "warning", "critical ")
    alerts = {f"alert{number}": {"severity": chance.choice(severities)}
              for number in range(chance.randint(0, 3))}
    features = [_some(chance, id=f"f{number}", isFunctioning=chance.random() < 0.5,
                      enabled=chance.random() < 0.5) for number in range(chance.randint(0, 4))]
    return _some(chance, Locations=locations, Alerts=alerts, Features=features,
                 LastUpdateTime=now - chance.randint(0, 1000))


def _library(chance: random.Random) -> Json:
    if chance.random() < 0.85:
        return {}
    return chance.choice((
        {"build": "absent"}, {"build": "notALibrary"}, {"build": "withoutGetInstance"},
        {"build": "withoutReleaseInstance"}, {"signature": "tampered"}, {"signature": "truncated"},
        {"signature": "garbled"}, {"signature": "none"}, {"signature": "adHoc"},
        {"signature": "noTeam"}, {"signature": "otherMaker"}, {"signature": "otherTeam"},
        {"signature": "unknownRoot"}, {"signature": "expired"}))


def _asking(chance: random.Random, words: list[str], now: int) -> Case:
    """A product in whatever state, whose SDK is asked something."""
    return Case(words, {
        "product": {"layout": chance.choice((1, 1, 1, 2, 3, None)), "library": _library(chance),
                    "services": []},
        "sdk": {**_sdk(chance), "answers": {
            "Product.GetStatus": _answer(chance, _status(chance, now)),
            "Update.StartUpdate": _answer(chance, {}),
            "FileScan.OnDemand.RunScanTask": _answer(chance, {})}},
    })


def _query(chance: random.Random, now: int) -> Case:
    option = chance.choice(model.QUERY_OPTIONS)
    names = ("Product", "antimalware", "nowhere", "größe", "")
    return _asking(chance, [option] + [chance.choice(names)] * (option == "-getUpdateStatus"), now)


def _watched_scan(chance: random.Random, now: int) -> Case:
    case = _asking(chance, [chance.choice(("-startFullScan", "-startQuickScan")),
                            chance.choice(("0", "5", "12", "99999999999"))], now)
    others = [{"event": "FileScan.OnDemand.ScanProgress", "repeat": chance.choice((1, 100)),
               "when": chance.choice(("duringRegister", "duringUnregister", "afterUnregister"))},
              {"event": None, "data": None},
              {"event": "FileScan.OnDemand.ScanFailed", "context": "none", "when": "duringRun"}]
    decisive = {"event": "FileScan.OnDemand." + chance.choice(("ScanStarted", "ScanFailed")),
                "repeat": chance.choice((1, 2, 50))}
    case.scenario["sdk"]["answers"]["FileScan.OnDemand.RunScanTask"] = {
        "output": {}, "completions": []}
    # The model takes the first that matters, so what is for nobody comes behind it.
    case.scenario["sdk"]["events"] = [decisive, *chance.sample(others, chance.randint(0, 3))]
    return case


def _links(chance: random.Random, _now: int) -> Case:
    pairs = [["-slUrl", "https://console.example/"], ["-apiKey", "k" * chance.randint(1, 300)],
             ["-packageName", "größe"]]
    chance.shuffle(pairs)
    library = _library(chance)
    if library.get("build", "").startswith("without"):
        library = {"build": "withoutExport"}
    return Case(["-getInstallationLink", *sum(pairs, [])] +
                ["-setupDownloaderLink"] * (chance.random() < 0.5),
                {"links": {**library, "code": chance.choice((0, 0, 7, -1)),
                           "text": chance.choice((None, None, "", "a|b"))},
                 "product": {"layout": None, "services": []}})


def _scan_report(chance: random.Random, now: int) -> Case:
    logs, values, code = [], [], 0
    for name, task in zip(("Full Scan.xml", "Quick Scan.xml"), TASKS, strict=True):
        count = chance.randint(0, 3)
        for number in range(count):
            start, duration = chance.randint(-1000, 2_000_000_000), chance.randint(0, 9_000_000)
            logs.append({"name": f"{number}_{name}", "modified": now - 1000 + number,
                         "summary": {"startTime": start, "duration": duration}})
        if count and code == 0:
            if chance.random() < 0.1:
                logs[-1] = {"name": logs[-1]["name"], "text": "<a/>", "modified": now}
                code = 2
            else:
                value = start * 1000 + duration
                values.append(f"{task}={abs(value) // 1000 * (1 if value >= 0 else -1)}")
    logs.append({"name": "other.log", "text": "no XML"})
    chance.shuffle(logs)
    return Case(["-getLastSystemScan"],
                {"scanLogs": logs, "product": {"layout": None, "services": []}},
                model.Answer(code, "" if code else "|".join(values)))


def _arguments(chance: random.Random, _now: int) -> Case:
    words, answer = chance.choice((
        (["-getVersion"], model.Answer(0, "1.0.0.206")),
        (["-GETVERSION"], model.Answer(0, "1.0.0.206")),
        (["-getVersion", "more"], model.Answer(22, "")),
        (["-unknown"], model.Answer(22, "")),
        ([], model.Answer(22, "")),
        (["-getUpdateStatus"], model.Answer(22, "")),
        (["-startQuickScan", "1a"], model.Answer(22, "")),
        (["-getInstallationLink", "-slUrl", "u"], model.Answer(22, "")),
        (["-detect"] * 9, model.Answer(22, "")),
    ))
    return Case(words, {"product": {"layout": None, "services": []}}, answer)


def _configuration(chance: random.Random) -> Json:
    whole = {"hwid": d.ENDPOINT, "custid": d.COMPANY, "customdata": {"ComputersFolder": d.GROUP}}
    return chance.choice((None, {"text": ""}, {"text": "{"}, *[{"json": {"id": _some(
        chance, **whole)}}] * 4))


def _detection(chance: random.Random, now: int, services: Json) -> Case:
    case = _asking(chance, ["-detect"], now)
    case.scenario["product"].update(services=services, configuration={
        "agcfng": _configuration(chance), "agcf": _configuration(chance)})
    answers = case.scenario["sdk"]["answers"]
    answers["kx.Product.Configuration.GetSkyloftIdentity"] = _answer(
        chance, _some(chance, companyID="c|", endpointID="e"))
    # Several methods are run one after the other, and a completion that comes late, before the next
    # one has a batch of its own, may be taken for the next one's.
    for answer in answers.values():
        answer["completions"] = [{**completion, "repeat": 1} for completion in answer["completions"]
                                 if not completion.get("when", "").endswith("Unregister")]
    return case


def _package(chance: random.Random, _now: int) -> Case:
    end, status = chance.choice((({}, 0), ({"status": 7}, 7), ({"signal": 9}, 9),
                                 ({"noise": 65536, "signal": 11}, 11)))
    acts = chance.random() < 0.5
    return Case(["-runInstaller", "/demo/package/Setup.pkg"],
                {"product": {"layout": None, "services": []}, "media": ["package"],
                 "installers": {"install": {"acts": acts, **end}}},
                model.Answer(status, d.HEALTHY if acts else d.ABSENT),
                starts=tuple(service["name"] for service in SERVICES) * acts)


def _image(chance: random.Random, _now: int) -> Case:
    end, status = chance.choice((({}, 0), ({"status": 7}, 7), ({"signal": 9}, 9)))
    acts = chance.random() < 0.5
    return Case(["-runInstaller", "/demo/package-image/Setup.iso"],
                {"product": {"layout": None, "services": []}, "media": ["package-image"],
                 "installers": {"attach": {"acts": acts, **end}}},
                model.Answer(status or (0 if acts else 2),
                             d.HEALTHY if acts and status == 0 else d.ABSENT),
                leaves_output=status != 0,
                starts=tuple(service["name"] for service in SERVICES) * (acts and status == 0))


# What is chosen, and how often.
KINDS = (
    ("query", 500, _query),
    ("update", 70, lambda chance, now: _asking(chance, ["-startUpdate"], now)),
    ("unwatched scan", 70, lambda chance, now: _asking(
        chance, [chance.choice(("-startFullScan", "-startQuickScan"))], now)),
    ("watched scan", 100, _watched_scan),
    ("scan report", 80, _scan_report),
    ("links", 60, _links),
    ("arguments", 60, _arguments),
    ("detection", 40, lambda chance, now: _detection(chance, now, SERVICES)),
    ("detection without services", 3, lambda chance, now: _detection(chance, now, [])),
    ("package", 12, _package),
    ("image", 5, _image),
)


def choose(seed: str, number: int, now: int) -> tuple[str, Case]:
    """The case with this number, and its kind."""
    chance = random.Random(f"{seed} {number}")
    name, _, make = chance.choices(KINDS, [often for _, often, _ in KINDS])[0]
    return name, make(chance, now)


# --- Running --------------------------------------------------------------------------------------

def _unbalanced(record: pathlib.Path) -> list[Json]:
    """The SDK's instances that were obtained and not released."""
    text = record.read_text(encoding="utf-8") if record.exists() else ""
    calls = [json.loads(line) for line in text.splitlines()]
    held = [call["instance"] for call in calls
            if call["what"] == "getInstance" and call["status"] == 0]
    for call in calls:
        if call["what"] == "release":
            held.remove(call["instance"])
    return held


def _run(endpoint: session.Session, case: Case, is_logging: bool,
         now: int) -> tuple[session.Ended, dict[str, Json]]:
    """Makes the run; gives what is not as it must be, by name: what there is and should be."""
    complete = scenarios.load(case.scenario, now)
    answer = case.answer or model.Endpoint(complete, now).answer(case.words)
    services = endpoint.lay_out(complete, is_logging)
    shutil.copy(BUILD / "simulator" / "open_descriptors.so", endpoint.path(RECORDER))
    preloaded = f"{installation.FAST_SLEEP}:{RECORDER}"
    ended = endpoint.run(
        [installation.TOOL, *case.words],
        {"LD_PRELOAD": preloaded, "KX_DESCRIPTOR_RECORD": DESCRIPTORS}, services)
    descriptors = endpoint.path(DESCRIPTORS)
    compared = {
        "status": (ended.status, answer.status),
        "output": (ended.output, answer.output),
        "errors": (ended.errors, ""),
        "open descriptors": (descriptors.read_text() if descriptors.exists() else None, ""),
        "instances": (_unbalanced(endpoint.path(installation.CALL_RECORD)), []),
    }
    return ended, {
        **{name: pair for name, pair in compared.items() if pair[0] != pair[1]},
        **endpoint.unexpected(ended, case.starts, case.leaves_output)}


def _work(share: list[tuple[str, int]], put: Callable[[Any], None]) -> None:
    """Makes these runs on one endpoint, and puts the number, kind and differences of each."""
    held = None
    with session.open_session() as endpoint:
        for seed, number in share:
            now = int(time.time())
            kind, case = choose(seed, number, now)
            ended, differences = _run(endpoint, case, number % 2 == 0, now)
            held = held or ended.descriptors
            if ended.descriptors != held:
                differences["descriptors of the caller"] = (ended.descriptors, held)
            put((number, kind, case.words, differences))


def main(words: list[str]) -> int:
    """Prints how often each kind was run and what was wrong; gives the exit status."""
    session.require_sandbox()
    runs = int(words[0]) if words else 20_000
    seed = words[1] if len(words) > 1 else str(random.SystemRandom().randrange(10**9))
    first = int(words[2]) if len(words) > 2 else 0
    print(f"soak: {runs} runs from {first}, seed {seed}", flush=True)
    start = time.monotonic()
    made: collections.Counter[str] = collections.Counter()
    failures = 0
    share = [(seed, number) for number in range(first, first + runs)]
    for number, kind, tool_words, differences in session.spread(_work, share):
        made[kind] += 1
        if differences:
            failures += 1
            print(f"run {number} ({kind}): {tool_words}", flush=True)
        for name, (found, wanted) in differences.items():
            print(f"    {name}: {found!r} instead of {wanted!r}", flush=True)
    for kind, count in made.most_common():
        print(f"  {count:6} {kind}")
    print(f"soak: {sum(made.values())} runs, {failures} not as they must be, "
          f"{time.monotonic() - start:.0f} s, seed {seed}")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
