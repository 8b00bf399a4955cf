"""Scenarios: what lies on the simulated endpoint and how the product answers.

A scenario is a JSON file in a folder of scenarios/; scenario.schema.json documents its members. It
says only what differs from the scenario `healthy`.
"""

import copy
import difflib
import json
import pathlib
import time
from typing import Any

from simulator import schema

DIRECTORY = pathlib.Path(__file__).with_name("scenarios")
DEFAULT = "healthy"
_SCHEMA_PATH = pathlib.Path(__file__).with_name("scenario.schema.json")
# What is merged with healthy's member by member. Everything else replaces it as a whole.
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
    """A scenario that cannot be used; the text says where and why, one mistake a line."""


def names() -> list[str]:
    """The scenarios that come with the simulator, in alphabetical order."""
    return sorted(path.stem for path in DIRECTORY.glob("*/*.json"))


def did_you_mean(word: str, known: list[str]) -> str:
    """A question with the known word that is most like this one; "" if none is."""
    nearest = difflib.get_close_matches(word, known, n=1)
    return f" (did you mean {nearest[0]}?)" if nearest else ""


def describe(name: str) -> str:
    """The one line that a scenario says about itself."""
    return _read(_path_of(name))["description"]


def load(source: str | dict[str, Json], now: float | None = None) -> dict[str, Json]:
    """A complete scenario: everything that the source leaves out is filled in from healthy.

    `source` is the name of a scenario, the path of a file (it has a "/" or ends in ".json"), or the
    scenario itself. `now` is the time that relative times count from.
    """
    scenario = _read(_path_of(DEFAULT))
    if isinstance(source, dict):
        given = {"description": "given by the caller", **source}
        _check(given, "the given scenario")
        scenario = _merge(scenario, given)
    elif source != DEFAULT:
        scenario = _merge(scenario, _read(_path_of(source)))
    return _with_times(scenario, int(time.time() if now is None else now))


def stand_in_script(scenario: dict[str, Json]) -> dict[str, Json]:
    """The part of a complete scenario that the stand-ins read, in their own simple form."""
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


def _path_of(name: str) -> pathlib.Path:
    if "/" in name or name.endswith(".json"):
        return pathlib.Path(name)
    for path in DIRECTORY.glob("*/*.json"):
        if path.stem == name:
            return path
    raise ScenarioError(f"there is no scenario {name}{did_you_mean(name, names())}; "
                        "--list-scenarios names them all")


def _read(path: pathlib.Path) -> dict[str, Json]:
    try:
        scenario = json.loads(path.read_text(encoding="utf-8"))
    except OSError as error:
        raise ScenarioError(f"{path}: {error.strerror}") from error
    except ValueError as error:
        raise ScenarioError(f"{path}: not JSON: {error}") from error
    _check(scenario, str(path))
    return scenario


def _check(scenario: Json, where: str) -> None:
    found = schema.mistakes(scenario, json.loads(_SCHEMA_PATH.read_text(encoding="utf-8")))
    if not found:
        found = list(_unsafe_completions(scenario))
    if found:
        raise ScenarioError("\n".join(f"{where}: {mistake}" for mistake in found))


def _unsafe_completions(scenario: dict[str, Json]):
    """Completions that would make the tool take a lock that its own thread holds."""
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
