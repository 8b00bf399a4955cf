"""What the stand-ins for programs have in common: they record their calls and end as the scenario
says. They run on the endpoint, so they can use only the standard library.
"""

import json
import os
import sys
import time

DIRECTORY = "/Library/Corvane/XQP/simulator"
_SCENARIO = f"{DIRECTORY}/scenario.json"
_CALL_RECORD = f"{DIRECTORY}/calls.jsonl"


def record(what, arguments):
    """Records the call, with what the program has inherited."""
    call = {"what": what, "arguments": arguments, "directory": os.getcwd(),
            "descriptors": _descriptors()}
    line = (json.dumps(call) + "\n").encode()
    # Writing each line in one call keeps the lines of several programs apart.
    file = os.open(_CALL_RECORD, os.O_WRONLY | os.O_CREAT | os.O_APPEND, 0o644)
    os.write(file, line)
    os.close(file)


def _descriptors():
    """The targets of the open descriptors, by number."""
    found = {}
    for name in sorted(os.listdir("/proc/self/fd"), key=int):
        try:
            found[name] = os.readlink(f"/proc/self/fd/{name}")
        except FileNotFoundError:
            continue  # the descriptor of the listing itself
    return found


def behaviour(name):
    """The behaviour of the step `name` in the scenario."""
    with open(_SCENARIO, encoding="utf-8") as file:
        return json.load(file)["installers"][name]


def end(wanted):
    """Ends the program as `wanted` by the scenario."""
    sys.stdout.flush()
    sys.stderr.write("." * wanted["noise"])
    sys.stderr.flush()
    time.sleep(wanted["delay"] / 1000)
    if wanted["signal"] is not None:
        os.kill(os.getpid(), wanted["signal"])
    sys.exit(wanted["status"])
