"""What the tool must answer on an endpoint with a given product, worked out from a scenario.

It knows nothing of how the tool works: only what it promises to print and to return.
"""

import dataclasses
import json
from collections.abc import Iterable
from typing import Any

Json = Any

_LIBRARY_CODES = {
    "absent": -67068, "notALibrary": 35, "withoutGetInstance": 14, "withoutReleaseInstance": 14,
}
_SIGNATURE_CODES = {"adHoc": 2, "noTeam": 2, "maker": 0, "expired": 0}
_NOT_THE_MAKERS = 22
_STALE = 48 * 60 * 60
_STARTED, _FAILED = "FileScan.OnDemand.ScanStarted", "FileScan.OnDemand.ScanFailed"
_SCAN_FAILED = 5023
_UNUSABLE = 3
_TRY_AGAIN = (1, 2)


@dataclasses.dataclass(frozen=True)
class Answer:
    """The code and the standard output."""

    code: int
    output: str

    @property
    def status(self) -> int:
        """The exit status."""
        return self.code % 256


class _Statuses:
    """The statuses of one of the SDK's calls, of which the last one repeats."""

    def __init__(self, values: list[int]):
        self._values = list(values)

    def next(self) -> int:
        return self._values.pop(0) if len(self._values) > 1 else self._values[0]


@dataclasses.dataclass(frozen=True)
class _Invocation:
    """How one method of the SDK went: the three numbers and, when all are 0, its output."""

    code: int
    api_error: int = 0
    sdk_error: int = 0
    output: Json = None

    @property
    def query_code(self) -> int:
        return self.sdk_error or self.api_error or self.code


class Endpoint:
    """An endpoint made from a complete scenario, on which the tool is run once."""

    def __init__(self, scenario: dict[str, Json], now: float):
        self._scenario = scenario
        self._product = scenario["product"]
        self._sdk = scenario["sdk"]
        self._now = now
        self._statuses = {call: _Statuses(self._sdk[call])
                          for call in ("getInstance", "register", "run", "unregister")}

    def answer(self, words: list[str]) -> Answer:
        """What the tool answers to an option with its arguments."""
        option = words[0]
        if option in _QUERIES:
            return self._query(option, words[1:])
        if option == "-startUpdate":
            started = self._invoke("Update.StartUpdate")
            return Answer(started.code or started.api_error, str(started.sdk_error))
        if option in ("-startFullScan", "-startQuickScan"):
            return self._scan(is_watched=len(words) > 1)
        if option == "-getInstallationLink":
            return self._links(words)
        return self._detect()

    # The SDK.

    def _invoke(self, method: str) -> _Invocation:
        if self._product["layout"] is None:
            return _Invocation(20)
        code = _code_of(self._product["library"])
        if code != 0:
            return _Invocation(code)
        for number in range(1, 6):
            for call, refusal in (("getInstance", 13), ("register", 45)):
                status = self._statuses[call].next()
                if status != 0:
                    return _Invocation(refusal, status)
            status = self._statuses["run"].next()
            if status not in _TRY_AGAIN:
                break
            if number < 5 and self._statuses["unregister"].next() != 0:
                break
        if status != 0:
            return _Invocation(45, self._statuses["unregister"].next())
        return self._completed(method)

    def _completed(self, method: str) -> _Invocation:
        if method.endswith("Scan"):
            method = "FileScan.OnDemand.RunScanTask"
        answer = self._sdk["answers"][method]
        completion = next((completion for completion in answer.get("completions", [{}])
                           if _is_for_tool(completion)), None)
        unregistered = self._statuses["unregister"].next()
        if completion is None:
            return _Invocation(60, unregistered)
        sdk_error, output = 0, None
        if completion.get("result") == "none" or "text" in answer:
            sdk_error = _UNUSABLE
        elif "error" in answer:
            sdk_error = answer["error"]
        else:
            output = answer["output"]
        return _Invocation(0, unregistered, sdk_error, output)

    # The operations.

    def _query(self, option: str, words: list[str]) -> Answer:
        asked = self._invoke("Product.GetStatus")
        if asked.query_code != 0:
            return Answer(asked.query_code, "")
        return _QUERIES[option](asked.output or {}, self._now, *words)

    def _scan(self, is_watched: bool) -> Answer:
        started = self._invoke("RunScan") if not is_watched else self._watch()
        return Answer(started.code, "" if started.code else str(started.sdk_error))

    def _watch(self) -> _Invocation:
        """A watched scan whose completion never comes; the first event that matters decides."""
        answers = self._sdk["answers"]
        completed = {"output": {}, "completions": [{}]}
        self._sdk = {**self._sdk, "answers": {**answers,
                                              "FileScan.OnDemand.RunScanTask": completed}}
        started = self._invoke("RunScan")
        outcome = next((event["event"] for event in self._sdk["events"]
                        if event["event"] in (_STARTED, _FAILED)), None)
        return dataclasses.replace(started, sdk_error=_SCAN_FAILED if outcome == _FAILED else 0)

    def _links(self, words: list[str]) -> Answer:
        links = self._scenario["links"]
        code = _code_of(links)
        if code != 0:
            return Answer(code, "")
        if links["build"] == "withoutExport":
            return Answer(2, "")
        values = dict(zip(words[1:7:2], words[2:7:2], strict=True))
        given = "|".join([values["-slUrl"], values["-apiKey"], values["-packageName"],
                          str(int(len(words) == 7))])
        return Answer(links["code"], given if links["text"] is None else links["text"])

    def _detect(self) -> Answer:
        if self._product["layout"] is None:
            return Answer(0, "0|||")
        is_running = len(self._product["services"]) == 3
        is_healthy = is_running
        if is_running:
            issues = self._query("-hasCriticalIssues", [])
            is_healthy = issues.code == 0 and issues.output == ""
        known = {"company": "", "group": "", "endpoint": ""}
        is_healthy &= self._identify(known, "agcfng", is_running)
        if "" in known.values():
            older = "agcf" if self._product["layout"] != 1 else None
            self._identify(known, older, is_running)
        return Answer(16, "|".join(["1" if is_healthy else "2", *known.values()]))

    def _identify(self, known: dict[str, str], file: str | None, ask: bool) -> bool:
        wanted = {name for name, value in known.items() if value == ""}
        if ask:
            asked = self._invoke("kx.Product.Configuration.GetSkyloftIdentity")
            if asked.query_code == 0:
                for name in wanted - {"group"}:
                    known[name] = (asked.output or {}).get(f"{name}ID", "")
        content = self._product["configuration"][file] if file else None
        if content is None:
            return False
        if "text" in content:
            return False
        identity = content["json"]["id"]
        read = {"company": identity.get("custid", ""), "endpoint": identity.get("hwid", ""),
                "group": identity.get("customdata", {}).get("ComputersFolder", "")}
        known.update((name, read[name]) for name in wanted if known[name] == "")
        return True


def _code_of(library: dict[str, Json]) -> int:
    """The code of a library that is refused, or that lacks something; 0: it is good."""
    build = library["build"]
    if build == "absent":
        return _LIBRARY_CODES[build]
    code = _SIGNATURE_CODES.get(library["signature"], _NOT_THE_MAKERS)
    return code or _LIBRARY_CODES.get(build, 0)


def _is_for_tool(completion: Json) -> bool:
    return (completion.get("batch", "own"), completion.get("context", "own"),
            completion.get("when", "afterRun")) == ("own", "own", "afterRun")


def _joined(entries: Iterable[str]) -> str:
    """A list whose separator stands before an entry unless the text is empty so far."""
    text = ""
    for entry in entries:
        text += ("|" if text else "") + entry
    return text


# The queries, each from the output of the product's status.

def _update_errors(output: Json, _now: float) -> Answer:
    failed = [(name, location["update"]["error"])
              for name, location in output.get("Locations", {}).items() if "update" in location]
    return Answer(0, _joined(f"{name}={error}" for name, error in failed if error != 0))


def _update_status(output: Json, _now: float, name: str) -> Answer:
    if "Locations" not in output:
        return Answer(0, "")
    if name not in output["Locations"]:
        return Answer(22, "")
    update = output["Locations"][name].get("update")
    if update is None:
        return Answer(0, "")
    numbers = [update.get(field) for field in ("error", "time", "lastSucceededTime")]
    text = "|".join(str(number) for number in numbers if number is not None)
    return Answer(_UNUSABLE if None in numbers else 0, text)


def _is_up_to_date(output: Json, now: float) -> Answer:
    for name, location in output.get("Locations", {}).items():
        update = location.get("update")
        if name in ("Product", "ctc") or update is None or "lastSucceededTime" not in update:
            continue
        if update["error"] not in (0, -2003) or now - update["lastSucceededTime"] > _STALE:
            return Answer(0, "0")
    return Answer(0, "1")


def _critical_issues(output: Json, _now: float) -> Answer:
    return Answer(0, _joined(name for name, alert in output.get("Alerts", {}).items()
                             if alert["severity"].lower() == "critical"))


def _feature_status(output: Json, _now: float) -> Answer:
    verdicts = [(feature["id"], feature.get("isFunctioning", feature.get("enabled", False)))
                for feature in output.get("Features", []) if "id" in feature]
    return Answer(0, _joined(f"{name}={int(verdict)}" for name, verdict in verdicts))


def _product_version(output: Json, _now: float) -> Answer:
    return Answer(0, output.get("Locations", {}).get("Product", {}).get("Version", ""))


def _last_update(output: Json, _now: float) -> Answer:
    return Answer(0, json.dumps(output["LastUpdateTime"]) if "LastUpdateTime" in output else "")


_QUERIES = {
    "-checkForUpdateErrors": _update_errors,
    "-getUpdateStatus": _update_status,
    "-isUpToDate": _is_up_to_date,
    "-hasCriticalIssues": _critical_issues,
    "-getUpdateLocations": lambda output, _: Answer(0, _joined(output.get("Locations", {}))),
    "-getProductVersion": _product_version,
    "-getLastUpdate": _last_update,
    "-getFeatureStatus": _feature_status,
}
QUERY_OPTIONS = tuple(_QUERIES)
