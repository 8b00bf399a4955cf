"""Scenarios: what is on the simulated endpoint and how the product answers.

A scenario is a JSON file in a folder of scenarios/ with what differs from the scenario `healthy`.
scenario.schema.json documents its members.
"""

import copy
import difflib
import functools
import json
import pathlib
import time
from typing import Any

DIRECTORY = pathlib.Path(__file__).with_name("scenarios")
DEFAULT = "healthy"
_SCHEMA_PATH = pathlib.Path(__file__).with_name("scenario.schema.json")
# The objects that are merged with those of healthy member by member. Other values replace them.
_MERGED = {
    (), ("product",), ("product", "library"), ("product", "configuration"), ("sdk",),
    ("sdk", "answers"), ("links",), ("installers",), ("installers", "attach"),
    ("installers", "detach"), ("installers", "install"), ("installers", "setupDownloader"),
}
_DELIVERY_DEFAULTS = {
    "when": "afterRun", "delay": 0, "try": 0, "repeat": 1, "padding": 0, "context": "own"}
_COMPLETION_DEFAULTS = {"batch": "own", "errorNumber": 0, "result": "answer"}

Json = Any


class ScenarioError(Exception):
    """A scenario that cannot be used; the text has one mistake per line."""


@functools.cache
def catalogue() -> dict[str, pathlib.Path]:
    """The files of the simulator's own scenarios, by name, sorted by folder."""
    return {path.stem: path for path in sorted(DIRECTORY.rglob("*.json"))}


def describe(name: str) -> str:
    """The description of a scenario."""
    return _read(catalogue()[name])["description"]


def listing(word: str = "") -> str:
    """The scenarios with `word` in their name, folder or description, one per line, by folder."""
    width = max(map(len, catalogue()))
    blocks: dict[str, list[str]] = {}
    for name, path in catalogue().items():
        folder = path.parent.relative_to(DIRECTORY).as_posix().removeprefix(".")
        description = describe(name)
        if word.lower() in f"{name} {folder} {description}".lower():
            blocks.setdefault(folder, []).append(f"  {name:{width}}  {description}\n")
    return "\n".join((f"{folder}:\n" if folder else "") + "".join(lines)
                     for folder, lines in blocks.items())


def load(source: str | dict[str, Json], now: float | None = None) -> dict[str, Json]:
    """A complete scenario: what the source leaves out is taken from healthy.

    `source` is the name of a scenario, the path of a file (it has a "/" or ends in ".json"), or the
    scenario itself. Relative times count from `now`.
    """
    scenario = _read(catalogue()[DEFAULT])
    if isinstance(source, dict):
        given = {"description": "given by the caller", **source}
        check(given, "the given scenario")
    elif "/" in source or source.endswith(".json"):
        given = _read(pathlib.Path(source))
        check(given, source)
    elif source in catalogue():
        given = _read(catalogue()[source])
    else:
        nearest = difflib.get_close_matches(source, catalogue(), n=1)
        question = f" (did you mean {nearest[0]}?)" if nearest else ""
        raise ScenarioError(f"there is no scenario {source}{question}; "
                            "./kx run --list-scenarios lists them")
    scenario = _merge(scenario, given)
    return _with_times(scenario, int(time.time() if now is None else now))


def stand_in_script(scenario: dict[str, Json]) -> dict[str, Json]:
    """The part of a complete scenario that the stand-ins read, in a simpler form."""
    sdk = scenario["sdk"]
    deliveries: list[Json] = []
    for method, answer in sdk["answers"].items():
        text = _answer_text(method, answer)
        for completion in answer.get("completions", [{}]):
            delivery = {**_DELIVERY_DEFAULTS, **_COMPLETION_DEFAULTS, **completion}
            delivery["result"] = text if delivery["result"] == "answer" else None
            deliveries.append({"method": method, **delivery})
    for event in sdk["events"]:
        deliveries.append({**_DELIVERY_DEFAULTS, "data": "", **event})
    calls = ("getInstance", "register", "run", "unregister")
    return {
        "statuses": {call: sdk[call] for call in calls},
        "deliveries": deliveries,
        "links": {member: scenario["links"][member] for member in ("code", "text")},
        "installers": scenario["installers"],
    }


def check(scenario: Json, where: str) -> None:
    """Raises ScenarioError with every mistake in a scenario. Messages refer to it as `where`."""
    found = [f"{error.json_path}: {error.message}" for error in _validator().iter_errors(scenario)]
    if not found:
        found = list(_unsafe_completions(scenario))
    if found:
        raise ScenarioError("\n".join(f"{where}: {mistake}" for mistake in found))


@functools.cache
def _validator():
    # This import takes longer than a run, and the simulator's scenarios do not need a check.
    import jsonschema

    return jsonschema.Draft202012Validator(json.loads(_SCHEMA_PATH.read_text(encoding="utf-8")))


def _read(path: pathlib.Path) -> Json:
    try:
        return json.loads(path.read_text(encoding="utf-8"))
    except OSError as error:
        raise ScenarioError(f"{path}: {error.strerror}") from error
    except ValueError as error:
        raise ScenarioError(f"{path}: not JSON: {error}") from error


def _unsafe_completions(scenario: dict[str, Json]):
    """Completions that would make the tool take a lock that the same thread holds."""
    for method, answer in scenario.get("sdk", {}).get("answers", {}).items():
        for index, completion in enumerate(answer.get("completions", [])):
            is_refused = completion.get("batch", "own") != "own" or completion.get(
                "context", "own") != "own"
            if completion.get("when") == "insideRun" and not is_refused:
                yield (f"sdk.answers.{method}.completions[{index}]: insideRun is only for "
                       "completions whose batch or context is not the caller's own")


def _merge(base: Json, change: Json, path: tuple[str, ...] = ()) -> Json:
    if path not in _MERGED:
        return change
    merged = dict(base)
    for name, value in change.items():
        merged[name] = _merge(merged.get(name), value, (*path, name)) if name in merged else value
    return merged


def _with_times(value: Json, now: int) -> Json:
    if isinstance(value, list):
        return [_with_times(item, now) for item in value]
    if isinstance(value, dict):
        if list(value) == ["$secondsFromNow"]:
            return now + value["$secondsFromNow"]
        return {name: _with_times(member, now) for name, member in value.items()}
    return copy.copy(value)


def _answer_text(method: str, answer: dict[str, Json]) -> str:
    if "text" in answer:
        return answer["text"]
    if "error" in answer:
        result = f'{{"error":{_compact(answer["error"])}}}'
    else:
        output = answer["outputText"] if "outputText" in answer else _compact(answer["output"])
        result = f'{{"error":0,"output":{output}}}'
    namespace = method.rpartition(".")[0]
    return f'{{"response":{{"data":{{{json.dumps(namespace)}:[{result}]}}}}}}'


def _compact(value: Json) -> str:
    return json.dumps(value, ensure_ascii=False, separators=(",", ":"))
