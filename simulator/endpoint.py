#!/usr/bin/python3
"""Runs the tool on a simulated endpoint.

    endpoint.py run [OPTION...] -TOOLOPTION [WORD...]   run the tool once
    endpoint.py shell [OPTION...]                       open a shell on the endpoint
    endpoint.py run --list-scenarios                    name the scenarios

Options:
    --scenario NAME       what the endpoint is like: the name of a scenario or the path of a JSON
                          file (default: healthy)
    --layout 1|2|3        the product's layout, in place of the scenario's
    --log                 switch the tool's log on and show it on standard error afterwards
    --sleep-divisor N     make the tool's sleeps N times shorter
    --build DIRECTORY     where the tool and the stand-ins were built (default: build/release)

Files that the words name, such as a disk image to install from, are copied to the endpoint. Some
scenarios have such files already, in /demo: --scenario installer -runInstaller
/demo/package-image/Setup.iso installs the product.

The tool's standard output and exit status are passed through as they are. An exit status above 128
may stand for the signal that ended the tool. On a terminal the output's line is ended, and standard
error names the exit status, and an option that the tool does not have.
"""

import dataclasses
import json
import pathlib
import signal
import sys

_ROOT = pathlib.Path(__file__).resolve().parent.parent
sys.path.insert(0, str(_ROOT))

# pylint: disable=wrong-import-position
from simulator import endpoints, installation, scenario  # noqa: E402
from simulator.in_place import ClaimError  # noqa: E402
from simulator.signing import SigningError  # noqa: E402

_FAILURE = 125  # as commands use that run other commands


class UsageError(Exception):
    """The command line is wrong; the text says how."""


@dataclasses.dataclass
class Options:
    """What the launcher itself was told."""

    list_scenarios: bool = False
    scenario: str = scenario.DEFAULT
    layout: int | None = None
    log: bool = False
    sleep_divisor: int | None = None
    build: pathlib.Path = _ROOT / "build" / "release"


def _number(text: str, least: int, most: int) -> int:
    if not text.isascii() or not text.isdigit() or not least <= int(text) <= most:
        raise UsageError(f"{text!r} is no number from {least} to {most}")
    return int(text)


def parse(words: list[str]) -> tuple[Options, list[str]]:
    """Splits off the launcher's options, which begin with two hyphens; the rest is the tool's."""
    options = Options()
    switches = {"--log": "log", "--list-scenarios": "list_scenarios"}
    readers = {
        "--scenario": ("scenario", str),
        "--layout": ("layout", lambda text: _number(text, 1, 3)),
        "--sleep-divisor": ("sleep_divisor", lambda text: _number(text, 1, 1_000_000)),
        "--build": ("build", lambda text: pathlib.Path(text).resolve()),
    }
    rest = list(words)
    while rest and rest[0].startswith("--"):
        name = rest.pop(0)
        if name == "--":
            break
        if name in switches:
            setattr(options, switches[name], True)
        elif name not in readers:
            known = [*readers, *switches]
            raise UsageError(f"unknown option {name}{scenario.did_you_mean(name, known)}; "
                             f"the options are {', '.join(known)}")
        elif not rest:
            raise UsageError(f"{name} needs a value")
        else:
            field, read = readers[name]
            setattr(options, field, read(rest.pop(0)))
    return options, rest


def _scenario(options: Options) -> dict:
    chosen = scenario.load(options.scenario)
    if options.layout is not None:
        chosen["product"]["layout"] = options.layout
    return chosen


def _run(options: Options, words: list[str]) -> int:
    if options.list_scenarios:
        return _list_scenarios()
    chosen = _scenario(options)
    with endpoints.open_endpoint(options.build, chosen, options.log) as endpoint:
        for word in words[1:]:
            endpoint.lend(word)
        status = endpoint.run_tool(words, options.sleep_divisor)
        if sys.stdout.isatty():
            print(f"\nexit status {status}{_about_option(options.build, words)}", file=sys.stderr)
        log = endpoint.path(installation.LOG)
        if options.log and log.exists():
            sys.stderr.write(log.read_text(errors="replace"))
    return status


def _about_option(build: pathlib.Path, words: list[str]) -> str:
    """A remark when the first word is none of the tool's options; "" when it is."""
    table = json.loads((build / "options.json").read_text(encoding="utf-8"))
    known = [option["name"] for option in table]
    if not words or words[0].lower() in map(str.lower, known):
        return ""
    return f": the tool has no option {words[0]}{scenario.did_you_mean(words[0], known)}"


def _shell(options: Options, words: list[str]) -> int:
    if words:
        raise UsageError(f"shell takes no {words[0]}")
    chosen = _scenario(options)
    with endpoints.open_endpoint(options.build, chosen, options.log) as endpoint:
        print(f"{chosen['description']}. The tool is {installation.TOOL}.", file=sys.stderr)
        return endpoint.run(["/bin/sh"])


def _list_scenarios() -> int:
    names = scenario.names()
    width = max(map(len, names))
    for name in names:
        print(f"{name:{width}}  {scenario.describe(name)}")
    return 0


def main(words: list[str]) -> int:
    """Runs the command line; returns the exit status."""
    commands = {"run": _run, "shell": _shell}
    try:
        if not words or words[0] not in commands:
            raise UsageError(__doc__.strip())
        return commands[words[0]](*parse(words[1:]))
    except UsageError as error:
        print(error, file=sys.stderr)
    except (scenario.ScenarioError, installation.BuildError, endpoints.EndpointError, ClaimError,
            SigningError, OSError) as error:
        print(f"endpoint: {error}", file=sys.stderr)
    return _FAILURE


def _end(number: int, _) -> None:
    """Ends the process by way of everything that cleans up."""
    sys.exit(128 + number)


if __name__ == "__main__":
    for ending in (signal.SIGHUP, signal.SIGINT, signal.SIGTERM):
        signal.signal(ending, _end)
    sys.exit(main(sys.argv[1:]))
