"""The records and log lines of detections; like transcripts.py, one function for each step."""

from tests.end_to_end import transcripts as t

COMPANY = "62f0c1a8b7d3e45f90a1b2c3"
GROUP = "5e8d7c6b5a4f3e2d1c0b9a88"
ENDPOINT = "4C4C4544-0051-3610-8052-C2C04F4D3532"
HEALTHY = f"1|{COMPANY}|{GROUP}|{ENDPOINT}"
UNHEALTHY = f"2|{COMPANY}|{GROUP}|{ENDPOINT}"
ABSENT = "0|||"

_BEGIN = ['Starting ORVEX Detect. Assign "0" to the result', "Get product directory"]
_PRESENT = [*_BEGIN, "Found ORVEX directory", 'Assign "2" to the result',
            "Check for running services"]
_WAIT = "Services are not running. Waiting 5 seconds"

# A detection on an endpoint without the product.
NOTHING = [*_BEGIN, "ORVEX directory not found"]
# What reading a configuration file logs.
NOTHING_WANTED = ["Empty values are entered"]
ALL_READ = ["Configuration file closed", "Finished reading from Agcf configuration file"]
CLEARED = ["Clearing non nullable values"]
NO_FILE = ["Cannot access agcfJso file path"]


def status_query(lines: list[str], found: list[str]) -> list[str]:
    """A query for critical issues that finds `found`; `lines` are those of its method."""
    return ["Get ORVEX Critical issues", "Execute Product.GetStatus method", *t.wrapped(lines),
            *(f"Critical issue found: {name}" for name in found),
            "Finished to get critical issues with error: 0"]


def running(waits: int = 0, layout: int = 1, issues: tuple[str, ...] = ()) -> list[str]:
    """Up to the identity; the services are found running."""
    lines = [*_PRESENT, *[_WAIT] * waits, "Services are running",
             *status_query(t.answered(layout=layout), list(issues))]
    if issues:
        lines.append(f"Critical issues found: {'|'.join(issues)}")
    return lines


def not_running() -> list[str]:
    """Up to the identity; the services are never found running."""
    return [*_PRESENT, *[_WAIT] * 4]


def ask_identity(layout: int = 1, endpoint: str | None = ENDPOINT,
                 company: str | None = COMPANY) -> list[str]:
    """The SDK is asked for the identifiers; None stands for one that it does not return."""
    lines = ["Get SL Identity", "Getting SL Identity using the wrapper method",
             *t.wrapped(t.answered(t.GET_IDENTITY, layout), method=t.GET_IDENTITY),
             "SL Identity retrieved successfully",
             "Search for endpointId in the received response"]
    if endpoint is not None:
        lines.append(f"HwId found: {endpoint}")
    lines.append("Search for companyID in the received response")
    if company is not None:
        lines.append(f"custId found: {company}")
    return [*lines, "Finished retrieving SL Identity with error code: 0"]


def taken(group: str | None = None, endpoint: str | None = None,
          company: str | None = None) -> list[str]:
    """The values that a configuration file supplies."""
    values = (("Group id is: ", group), ("Hardware id is: ", endpoint),
              ("Company id is: ", company))
    return [text + value for text, value in values if value is not None]


def end(newer: list[str], older: list[str], failed: bool = False) -> list[str]:
    """The rest of the log, from the identity on: the lines of the newer file and of the older one. `failed`
    says that the newer file could not be read."""
    failure = ["Cannot retrieve endpoint information"] if failed else []
    return ["Retrieving endpoint information", *newer, *failure, *older, "ORVEX Already exists",
            "ORVEX Detect finished"]


def healthy(waits: int = 0, group: str = GROUP) -> list[str]:
    """A whole detection of the healthy product in its current layout."""
    newer = [*CLEARED, *ask_identity(), *taken(group), *ALL_READ]
    return [*running(waits), *end(newer, NOTHING_WANTED)]


def without_services(company: str = COMPANY, group: str = GROUP) -> list[str]:
    """A whole detection of the product in its current layout when no service is found running."""
    newer = [*CLEARED, *taken(group, ENDPOINT, company), *ALL_READ]
    return [*not_running(), *end(newer, NOTHING_WANTED)]


def callbacks(run) -> list[str]:
    """The lines of the completions of a run in which each method was answered once."""
    lines = []
    for call, completion in zip(run.calls_of("run"), run.calls_of("completion"), strict=True):
        lines += t.on_ran(call["batch"], completion["text"])
    return lines
