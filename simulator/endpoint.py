#!/usr/bin/python3
"""Runs the tool, or any command, on a simulated endpoint that is made for this one run.

usage: ./kx run [OPTION...] -TOOLOPTION [WORD...]    run the tool
       ./kx run --list-scenarios [WORD]              list the scenarios, or those about WORD
       ./kx endpoint [OPTION...]                     open a shell
       ./kx endpoint [OPTION...] -- COMMAND...       run a command, such as ./script.sh

  --scenario NAME      what the endpoint is like: the name of a scenario or the path of a JSON file
                       (default: healthy)
  --layout 1|2|3       the product's layout, instead of the scenario's
  --log                show the tool's log on standard error at the end
  --sleep-divisor N    make the tool's sleeps N times shorter
  --build DIRECTORY    where the tool and the stand-ins were built (default: build/release)

The tool is on PATH there, and its full path is /usr/local/libexec/kxtool/KXTool. Files that the
words name, such as a script or a disk image to install from, are copied to the endpoint. Some
scenarios have such files already, in /demo:

  ./kx run --scenario installer -runInstaller /demo/package-image/Setup.iso

Standard output and the exit status are those of the tool or the command. The exit status is 128 plus
the signal's number if a signal ended it, and 125 if the endpoint could not be created. On a terminal,
standard error names the exit status of the tool.
"""

import contextlib
import dataclasses
import os
import pathlib
import re
import signal
import sys
from collections.abc import Iterator

_ROOT = pathlib.Path(__file__).resolve().parent.parent
sys.path.insert(0, str(_ROOT))

# pylint: disable=wrong-import-position
from simulator import endpoints, installation, scenario  # noqa: E402
from simulator.in_place import ClaimError  # noqa: E402
from simulator.signing import SigningError  # noqa: E402

_ENDINGS = (signal.SIGHUP, signal.SIGINT, signal.SIGTERM)
_FAILURE = 125  # like other commands that run commands
_REFUSED = 22  # the tool's status for wrong arguments, among other things
_MOST_WORDS = 8  # that the tool takes


class UsageError(Exception):
    """The command line is wrong; the text is the reason."""


@dataclasses.dataclass
class Options:
    """The options of the launcher."""

    help: bool = False
    list_scenarios: bool = False
    scenario: str = scenario.DEFAULT
    layout: int | None = None
    log: bool = False
    sleep_divisor: int | None = None
    build: pathlib.Path = _ROOT / "build" / "release"


def _number(least: int, most: int):
    def read(text: str) -> int:
        if not text.isascii() or not text.isdigit() or not least <= int(text) <= most:
            raise UsageError(f"{text!r} is not a number from {least} to {most}")
        return int(text)

    return read


# The field of Options that each option sets, and the parser of its value if it has one.
_OPTIONS = {
    "-h": ("help", None),
    "--help": ("help", None),
    "--list-scenarios": ("list_scenarios", None),
    "--log": ("log", None),
    "--scenario": ("scenario", str),
    "--layout": ("layout", _number(1, 3)),
    "--sleep-divisor": ("sleep_divisor", _number(1, 1_000_000)),
    "--build": ("build", lambda text: pathlib.Path(text).resolve()),
}


def parse(words: list[str]) -> tuple[Options, list[str]]:
    """Splits off the options of the launcher; the rest begins with `--` or is for the tool."""
    options = Options()
    rest = list(words)
    while rest and rest[0] != "--" and (rest[0].startswith("--") or rest[0] in _OPTIONS):
        name, equals, value = rest.pop(0).partition("=")
        if name not in _OPTIONS:
            raise UsageError(f"there is no option {name}")
        field, read = _OPTIONS[name]
        if read is None and equals:
            raise UsageError(f"{name} takes no value")
        if read is not None and not equals:
            if not rest:
                raise UsageError(f"{name} needs a value")
            value = rest.pop(0)
        setattr(options, field, True if read is None else read(value))
    return options, rest


@contextlib.contextmanager
def _open(options: Options, words: list[str], logging: bool) -> Iterator[endpoints.Endpoint]:
    """The requested endpoint, with copies of the files that the words name."""
    chosen = scenario.load(options.scenario)
    if options.layout is not None:
        chosen["product"]["layout"] = options.layout
    with endpoints.open_endpoint(options.build, chosen, logging) as endpoint:
        for word in words:
            endpoint.copy_in(word)
        yield endpoint


def _log_of(endpoint: endpoints.Endpoint) -> str:
    log = endpoint.path(installation.LOG)
    return log.read_text(errors="replace") if log.exists() else ""


def _run(options: Options, words: list[str]) -> int:
    if options.list_scenarios:
        return _list_scenarios(words)
    if words[:1] == ["--"]:
        words = words[1:]
    with _open(options, words[1:], logging=True) as endpoint:
        status = endpoint.run_tool(words, options.sleep_divisor)
        if os.isatty(1):
            print(f"\nexit status {status}", file=sys.stderr)
        log = _log_of(endpoint)
        if options.log:
            sys.stderr.write(log)
        if status == _REFUSED:
            sys.stderr.write(_hint(words, log))
    return status


def _hint(words: list[str], log: str) -> str:
    """A line that says why the tool refused its arguments; "" if it did not."""
    if not words:
        return "kx: the tool needs an option, such as -getProductVersion; see ./kx run --help\n"
    for word in words[1:]:
        if word.startswith("--") and word.partition("=")[0] in _OPTIONS:
            return f"kx: {word} is an option of ./kx run and belongs before {words[0]}\n"
    if len(words) > _MOST_WORDS:
        return f"kx: the tool takes at most {_MOST_WORDS} words\n"
    refused = re.search(r"(Bad|Invalid) arguments.*", log)
    if not refused:
        return ""
    return f"kx: the tool rejected these arguments: {refused[0]}; docs/contract.md lists its options\n"


def _endpoint(options: Options, words: list[str]) -> int:
    if options.list_scenarios:
        raise UsageError("./kx run --list-scenarios lists the scenarios")
    if words and (words[0] != "--" or len(words) == 1):
        raise UsageError("a command must follow --")
    command = words[1:]
    environment = {}
    if options.sleep_divisor is not None:
        environment = endpoints.faster_sleeps(options.sleep_divisor)
    with _open(options, command, options.log) as endpoint, _terminal() as terminal:
        if not command:
            command = ["/bin/bash", "--norc", "--noprofile"]
            environment["PS1"] = rf"[{pathlib.Path(options.scenario).stem}] \w\$ "
            if terminal:
                print(f"A simulated endpoint, {options.scenario}. The tool is {installation.TOOL}; "
                      "type exit to leave it.", file=sys.stderr)
        status = endpoint.run(command, environment, terminal)
        if options.log:
            sys.stderr.write(_log_of(endpoint))
    return status


@contextlib.contextmanager
def _terminal() -> Iterator[bool]:
    """Whether there is a terminal to pass on; takes it back at the end."""
    if not os.isatty(0) or os.tcgetpgrp(0) != os.getpgrp():
        yield False
        return
    try:
        yield True
    finally:
        signal.signal(signal.SIGTTOU, signal.SIG_IGN)
        os.tcsetpgrp(0, os.getpgrp())


def _list_scenarios(words: list[str]) -> int:
    if len(words) > 1:
        raise UsageError("--list-scenarios takes one word at most")
    signal.signal(signal.SIGPIPE, signal.SIG_DFL)  # the reader can close the pipe early
    listed = scenario.listing(*words)
    if not listed:
        raise UsageError(f"there is no scenario about {words[0]}")
    print(listed, end="", flush=True)
    return 0


def main(words: list[str]) -> int:
    """Runs the command line; returns the exit status."""
    commands = {"run": _run, "endpoint": _endpoint}
    try:
        if not words or words[0] not in commands:
            raise UsageError(f"the first word must be {' or '.join(commands)}")
        options, rest = parse(words[1:])
        if options.help:
            print(__doc__, end="", flush=True)
            return 0
        return commands[words[0]](options, rest)
    except UsageError as error:
        print(f"kx: {error}; see ./kx {' '.join(words[:1])} --help", file=sys.stderr)
    except (scenario.ScenarioError, installation.BuildError, endpoints.EndpointError, ClaimError,
            SigningError, OSError) as error:
        print(f"kx: {error}", file=sys.stderr)
    return _FAILURE


def _end(number: int, _) -> None:
    """Ends the process after all clean-up, which no further signal interrupts."""
    for ending in _ENDINGS:
        signal.signal(ending, signal.SIG_IGN)
    sys.exit(128 + number)


if __name__ == "__main__":
    for ending_signal in _ENDINGS:
        signal.signal(ending_signal, _end)
    sys.exit(main(sys.argv[1:]))
