"""Runs the shipped tool on a simulated endpoint and collects its answers, log and calls.

    class UpdateErrors(EndToEndCase):
        def test_names_what_failed(self):
            run = self.run_tool("-checkForUpdateErrors", scenario="update-failed")
            self.assert_answer(run, 0, "antimalware=-1|webfilter=1005")

A scenario is the name of a file under simulator/scenarios, or a dictionary of the same form with
what differs from the scenario `healthy`:

            run = self.run_tool("-getProductVersion", scenario={"sdk": {"run": [2, 0]}})

Logs are compared as two sequences, since lines from the SDK's threads can appear between those of the
main thread: see EndToEndCase.assert_log(), and transcripts.py for the lines that all invocations
share. Tests that put files on the endpoint or look at them afterwards use EndToEndCase.endpoint().

The build folder with the tool is $KX_BUILD (default: build/release). Every case has its own endpoint,
so that any number of them can run at once.
"""

import contextlib
import dataclasses
import json
import os
import pathlib
import re
import sys
import tempfile
import unittest
from collections.abc import Callable, Iterator
from typing import Any

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT))

# pylint: disable=wrong-import-position
from simulator import endpoints, in_place, installation, sandbox  # noqa: E402
from simulator import scenario as scenarios  # noqa: E402

BUILD = pathlib.Path(os.environ.get("KX_BUILD", ROOT / "build" / "release")).resolve()


def _differences() -> set[str]:
    """The tests that must fail if the tool of the build folder runs under GNUstep."""
    cache = BUILD / "CMakeCache.txt"
    if not cache.is_file() or "KX_GNUSTEP:BOOL=ON" not in cache.read_text(encoding="utf-8"):
        return set()
    table = (ROOT / "tests" / "gnustep" / "differences.txt").read_text(encoding="utf-8")
    return {line.split(" | ")[0] for line in table.splitlines()}


DIFFERENCES = _differences()

# For what only a sandbox offers: users without privileges, small disks, a private /tmp.
needs_sandbox = unittest.skipIf(sandbox.refusal(), "endpoints are made in place here")

# Seconds that a run may take.
_LIMIT = 60
_LOG_LINE = re.compile(r"\d{4}-\d\d-\d\d \d\d:\d\d:\d\d (.*)", re.DOTALL)
# What differs from run to run, and what stands for it in comparisons.
_VARIABLE_PARTS = (
    (re.compile(r"^(Batch context = )[0-9a-f]{8}(-[0-9a-f]{4}){3}-[0-9a-f]{12}$"), r"\1<uuid>"),
    (re.compile(r"^(Run async starts at )\w{3} \w{3} [ \d]\d \d\d:\d\d:\d\d \d{4}\n$"),
     r"\1<time>" + "\n"),
    (re.compile(r"^((Inner )?RunAsync elapsed time = )\d+\.\d{6}( seconds)$"), r"\1<seconds>\3"),
)
_CALLBACK_LINE = re.compile(
    r"Start OnRan|Is null batch_context = [01]|Batch context = -?\d+|Error = -?\d+|"
    r"Is null result = [01]|OnRun response|nullptr|End OnRan")


@dataclasses.dataclass(frozen=True)
class ToolRun:
    """The results of one run of the tool.

    status: the exit status; 128 plus the signal's number when a signal ended the tool.
    output, errors: the bytes of standard output and standard error.
    log: the logged messages in order, without the time, with "<uuid>", "<time>" and "<seconds>" for
        what differs from run to run; None if there is no log file.
    calls: what the SDK library received and did, in order, as simulator/agent_sdk/call_record.h
        describes, and the calls of the stand-ins for programs (simulator/installers/stand_in.py).
    """

    status: int
    output: bytes
    errors: bytes
    log: list[str] | None
    calls: list[dict[str, Any]]

    def calls_of(self, what: str) -> list[dict[str, Any]]:
        """The calls of one kind."""
        return [call for call in self.calls if call["what"] == what]

    @property
    def batch(self) -> str:
        """The batch identifier of the latest run call."""
        return self.calls_of("run")[-1]["batch"]

    @property
    def callback_log(self) -> list[str]:
        """The messages that completions logged, on the SDK's threads."""
        return [message for message in self.log or [] if self._is_from_callback(message)]

    @property
    def main_log(self) -> list[str]:
        """The messages that the main thread logged."""
        return [message for message in self.log or [] if not self._is_from_callback(message)]

    def _is_from_callback(self, message: str) -> bool:
        answers = [call.get("text") for call in self.calls_of("completion")]
        return bool(message and message in answers or _CALLBACK_LINE.fullmatch(message))


class EndToEndCase(unittest.TestCase):
    """Base of all end-to-end tests."""

    maxDiff = None
    longMessage = True
    _has_endpoint = False

    def __init__(self, methodName: str = "runTest") -> None:
        super().__init__(methodName)
        name = self.id().removeprefix("tests.")
        self.__unittest_expecting_failure__ = name in DIFFERENCES  # what expectedFailure() sets

    @contextlib.contextmanager
    def endpoint(self, scenario: str | dict[str, Any] = scenarios.DEFAULT,
                 layout: int | None = None, logging: bool = True,
                 programs: dict[str, pathlib.Path | None] | None = None,
                 volumes: dict[str, int] | None = None) -> Iterator[endpoints.Endpoint]:
        """An endpoint on which run_tool_on() can run the tool several times.

        Its path() maps a path of the endpoint to this machine. The arguments are those of
        endpoints.open_endpoint(); `layout` overrides the scenario's. A test has one endpoint at a
        time, since only one can be made in place.
        """
        self.assertFalse(self._has_endpoint, "the test has an endpoint already")
        complete = scenarios.load(scenario)
        if layout is not None:
            complete["product"]["layout"] = layout
        self._has_endpoint = True
        try:
            with endpoints.open_endpoint(BUILD, complete, logging, programs, volumes) as endpoint:
                yield endpoint
        finally:
            self._has_endpoint = False

    def run_tool(self, *words: str, sleep_divisor: int | None = 1000, timeout: float = _LIMIT,
                 **options: Any) -> ToolRun:
        """Runs the tool once on a new endpoint; `options` are those of endpoint()."""
        with self.endpoint(**options) as endpoint:
            return self.run_tool_on(endpoint, *words, sleep_divisor=sleep_divisor, timeout=timeout)

    def run_tool_on(self, endpoint: endpoints.Endpoint, *words: str,
                    sleep_divisor: int | None = 1000, timeout: float = _LIMIT) -> ToolRun:
        """Runs the tool with sleeps that are `sleep_divisor` times shorter, unless that is None.

        Waits with a deadline always take their real time. The log and the calls include those of
        earlier runs on the endpoint.
        """
        return _gathered(endpoint, lambda **streams: endpoint.run_tool(
            list(words), sleep_divisor, timeout=timeout, **streams))

    def run_script_on(self, endpoint: endpoints.Endpoint, script: str,
                      timeout: float = _LIMIT) -> ToolRun:
        """Runs a shell script in which $TOOL is the tool and $FAST makes its sleeps fast."""
        fast = [f"{name}={value}" for name, value in endpoints.faster_sleeps(1000).items()]
        environment = {"TOOL": installation.TOOL, "FAST": " ".join(["env", *fast])}
        return _gathered(endpoint, lambda **streams: endpoint.run(
            ["/bin/sh", "-c", script], environment, timeout=timeout, **streams))

    def assert_answer(self, run: ToolRun, status: int, output: str | bytes) -> None:
        """The exit status and the exact standard output; nothing on standard error."""
        expected = output.encode() if isinstance(output, str) else output
        self.assertEqual((run.status, run.output, run.errors), (status, expected, b""))

    def assert_log(self, run: ToolRun, main: list[str], callbacks: list[str] | None = None) -> None:
        """The whole log: the main thread's lines, and those of completions (transcripts.on_ran()).

        Their relative order is checked as far as the lock guarantees it: what a completion
        stores is logged while the main thread waits.
        """
        self.assertEqual(run.main_log, main)
        self.assertEqual(run.callback_log, callbacks or [])
        self.assert_stored_while_waiting(run)

    def assert_stored_while_waiting(self, run: ToolRun) -> None:
        """The first answer was stored while the main thread waited, and no answer before."""
        log = run.log or []
        stored = [index for index, message in enumerate(log) if message == "OnRun response"]
        waits = [index for index, message in enumerate(log) if message == "Set run async timeout"]
        if not stored or not waits:
            return
        self.assertLess(waits[0], stored[0])
        after = [index for index, message in enumerate(log) if message in (
            "Parse AgentSDK response", "Failed to receive AgentSDK response. JSON is empty",
            "Failed to run instance due to timeout")]
        self.assertLess(stored[0] + 1, after[0])

    def assert_balanced(self, run: ToolRun) -> None:
        """Every instance was released once, and every registration was ended."""
        given = [call["instance"] for call in run.calls_of("getInstance") if call["status"] == 0]
        self.assertEqual([call["instance"] for call in run.calls_of("release")], given)
        registered = [call["instance"] for call in run.calls_of("register") if call["status"] == 0]
        ended = [call["instance"] for call in run.calls_of("unregister")]
        self.assertEqual(sorted(set(ended)), registered)


@contextlib.contextmanager
def without_product() -> Iterator[None]:
    """Prevents endpoints from being made in place, so that this machine has no product."""
    if sandbox.refusal() is None:
        yield
        return
    with in_place.claim([]):
        yield


def _gathered(endpoint: endpoints.Endpoint, run: Callable[..., int]) -> ToolRun:
    with tempfile.TemporaryFile() as output, tempfile.TemporaryFile() as errors:
        status = run(stdout=output, stderr=errors)
        output.seek(0)
        errors.seek(0)
        return ToolRun(status, output.read(), errors.read(),
                       read_log(endpoint.path(installation.LOG)),
                       _read_calls(endpoint.path(installation.CALL_RECORD)))


def read_log(path: pathlib.Path) -> list[str] | None:
    """The messages in a log file, as ToolRun has them."""
    if not path.is_file():
        return None
    messages: list[str] = []
    for line in path.read_text(encoding="utf-8", errors="surrogateescape").split("\n")[:-1]:
        found = _LOG_LINE.fullmatch(line)
        if found:
            messages.append(found[1])
        elif messages:  # the continuation of a message
            messages[-1] += "\n" + line
        else:
            raise AssertionError(f"the log does not begin with a time: {line!r}")
    return [_without_variable_parts(message) for message in messages]


def _without_variable_parts(message: str) -> str:
    for pattern, replacement in _VARIABLE_PARTS:
        message = pattern.sub(replacement, message)
    return message


def _read_calls(path: pathlib.Path) -> list[dict[str, Any]]:
    if not path.exists():
        return []
    return [json.loads(line) for line in path.read_text(encoding="utf-8").split("\n")[:-1]]
