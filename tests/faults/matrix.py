"""The fault matrix: what the tool answers when something around it fails.

Each row is one run of the tool that ships, on a separate simulated endpoint. The table is read by
matrix_test.py; to add a fault, add a row.
"""

import dataclasses
from typing import Any

from simulator import installation
from tests.end_to_end import detections as d

Json = Any


@dataclasses.dataclass(frozen=True)
class Row:
    """One run, the fault, and the required outcome.

    name: describes the fault.
    words: the tool's option and arguments, as in a shell.
    status, output: the exit status (the code modulo 256) and the whole standard output.
    last: the main thread's last log line; None: there is no log file at the end.
    scenario: how the endpoint differs from the healthy one, see simulator/scenario.schema.json.
    changes: what may be different afterwards besides the log: paths with all that is below them.
    before: shell commands that run before the tool, for example a limit.
    under: a program that runs the tool.
    programs: stand-ins by absolute path: None leaves one out, else its content and mode.
    volumes: small file systems, by absolute path, with their sizes in bytes.
    """

    name: str
    words: str
    status: int
    output: str
    last: str | None
    scenario: str | dict[str, Json] = "healthy"
    changes: tuple[str, ...] = ()
    before: str = ""
    under: str = ""
    programs: dict[str, tuple[bytes, int] | None] = dataclasses.field(default_factory=dict)
    volumes: dict[str, int] = dataclasses.field(default_factory=dict)
    logging: bool = True


VERSION = "7.16.42.200137"
TOOL_VERSION = "1.0.0.206"
QUERY = "-getProductVersion"
QUERY_END = "Finished to get product version with error code:"
UPDATE_END = "Finished to start update with error code:"
SCAN_FAILED = "Could not execute method. Error code: "
STATUS = "Product.GetStatus"
IDENTITY = "kx.Product.Configuration.GetSkyloftIdentity"
SCAN = "FileScan.OnDemand.RunScanTask"
HUGE = 100 * 1024 * 1024
TRIES = (1, 2, 3, 4, 5)
ABORTED = 128 + 6

LIBRARY = installation.LAYOUTS[1].library
AGENT_CONFIGURATION = installation.LAYOUTS[1].agcfng
CONFIGURATION = f"{installation.TOOL_DIRECTORY}/configfile.txt"
LOG = installation.LOG
TEMPORARY = installation.TEMPORARY
PRODUCT = "/Library/Corvane/XQP"
ELSEWHERE = f"{installation.TOOL_DIRECTORY}/elsewhere"


def answering(*completions: Json, **answer: Json) -> dict[str, Json]:
    """The status query gets `answer` (by default, the version) through these completions."""
    answer = answer or {"output": {"Locations": {"Product": {"Version": VERSION}}}}
    return {"sdk": {"answers": {STATUS: {**answer, "completions": list(completions)}}}}


def version(name: str, scenario: Json, code: int = 0, output: str | None = None, **more) -> Row:
    """A query for the product's version; `code` is what its last log line says."""
    if output is None:
        output = VERSION if code == 0 else ""
    return Row(name, QUERY, code % 256, output, f"{QUERY_END}{code}", scenario, **more)


# --- The SDK's calls, each failing at every try ---------------------------------------------------

# Each call, the status with which it fails, the resulting code of a query, and the code of the
# invocation. For a query, the status of the latest call takes precedence if that call failed.
FAILING_CALLS = (
    ("getInstance", 5, 5, 13),
    ("register", 6, 6, 45),
    ("run", 7, 45, 45),
    ("unregister", 8, 8, 45),
)


def failing(call: str, number: int, status: int) -> dict[str, Json]:
    """Runs must be tried again until `call` fails at the try with this number."""
    sdk: dict[str, Json] = {"run": [2]}
    sdk[call] = [*[2 if call == "run" else 0] * (number - 1), status]
    return {"sdk": sdk}


SDK_CALLS = [
    row
    for call, status, query_code, code in FAILING_CALLS
    for number in TRIES
    for fault in [failing(call, number, status)]
    for what in [f"{call} fails at try {number}"]
    for row in (
        version(what, fault, query_code),
        Row(what, "-startUpdate", code, "0", f"{UPDATE_END}0", fault),
        Row(what, "-startQuickScan 5", code, "", f"{SCAN_FAILED}{code}", fault),
    )
] + [
    row
    for number in TRIES[:4]
    for row in (
        version(f"the first {number} runs must be tried again",
                {"sdk": {"run": [2] * number + [0]}}),
        version(f"the first {number} runs have an internal error",
                {"sdk": {"run": [1] * number + [0]}}),
    )
] + [
    version("every run must be tried again", {"sdk": {"run": [2]}}, 45),
    version("every run has an internal error", {"sdk": {"run": [1]}}, 45),
    version("both kinds of errors in turn", {"sdk": {"run": [1, 2, 1, 2, 1]}}, 45),
    version("a negative status of a run", {"sdk": {"run": [-2147483648]}}, 45),
    version("a negative status of the instance", {"sdk": {"getInstance": [-5]}}, -5),
]

# What each option answers when only unregistering fails, with status 8: queries and the update return
# it, scans ignore it.
UNREGISTER_FAILS = {"sdk": {"unregister": [8]}}
SDK_CALLS += [
    Row("the last unregister fails", words, status, output, last, UNREGISTER_FAILS)
    for words, status, output, last in (
        ("-checkForUpdateErrors", 8, "", "Finished checking for update errors successfully"),
        ("-getUpdateStatus Product", 8, "", "Finished getting update status successfully"),
        ("-hasCriticalIssues", 8, "", "Finished to get critical issues successfully"),
        ("-isUpToDate", 8, "", "Failed to execute method. Error code: 8"),
        ("-getUpdateLocations", 8, "", "Update locations retrieved successfully"),
        ("-getProductVersion", 8, "", f"{QUERY_END}8"),
        ("-getLastUpdate", 8, "", "Finished to get last update with error code:8"),
        ("-getFeatureStatus", 8, "", "Finished to get feature status with error code:8"),
        ("-startUpdate", 8, "0", f"{UPDATE_END}0"),
        ("-startFullScan", 0, "0", "Finished starting full scan with error code:0"),
        ("-startQuickScan 5", 0, "0", "Finished starting quick scan with error code:0"),
        ("-detect", 16, d.UNHEALTHY, "ORVEX Detect finished"),
    )
]

# --- Completions ----------------------------------------------------------------------------------

DEEP = 100_000
NESTED = '{"deep":' + "[" * DEEP + "]" * DEEP + ',"Locations":{"Product":{"Version":"deep"}}}'

COMPLETIONS = [
    version("no completion", answering(), 60),
    Row("no completion", "-startUpdate", 60, "0", f"{UPDATE_END}0",
        {"sdk": {"answers": {"Update.StartUpdate": {"output": {}, "completions": []}}}}),
    Row("no completion", "-isUpToDate", 60, "", "Failed to execute method. Error code: 60",
        answering()),
    version("a completion after two seconds", answering({"delay": 2000})),
    version("a completion after the limit of ten seconds",
            answering({"when": "afterUnregister"}), 60),
    version("a completion twice", answering({}, {})),
    version("a completion a thousand times on one thread", answering({"repeat": 1000})),
    version("completions on twenty threads", answering(*[{}] * 20)),
    version("a completion before the run call returns", answering({"when": "duringRun"})),
    version("a completion while unregistering", answering({}, {"when": "duringUnregister"})),
    version("a completion after unregistration", answering({}, {"when": "afterUnregister"})),
    version("a hundred completions after unregistration",
            answering({}, {"when": "afterUnregister", "repeat": 100})),
    version("completions on ten threads after unregistration",
            answering({}, *[{"when": "afterUnregister"}] * 10)),
    version("a completion at the process's exit",
            answering({}, {"when": "afterUnregister", "delay": 60_000})),
    version("no batch", answering({"batch": "none"}), 60),
    version("no batch, then the right one", answering({"batch": "none"}, {"delay": 100})),
    version("a foreign batch", answering({"batch": "foreign"}), 60),
    version("a foreign batch, then the right one", answering({"batch": "foreign"}, {"delay": 100})),
    version("a foreign batch during registration",
            answering({"batch": "foreign", "when": "duringRegister"}, {"delay": 100})),
    version("a foreign batch inside the run call",
            answering({"batch": "foreign", "when": "insideRun"}, {"delay": 100})),
    version("no context", answering({"context": "none"}), 60),
    version("no context, then the right one", answering({"context": "none"}, {"delay": 100})),
    version("no context inside the run call",
            answering({"context": "none", "when": "insideRun"}, {"delay": 100})),
    version("a foreign context", answering({"context": "foreign"}), 60),
    version("a foreign context, then the right one",
            answering({"context": "foreign"}, {"delay": 100})),
    version("a foreign context inside the run call",
            answering({"context": "foreign", "when": "insideRun"}, {"delay": 100})),
    version("neither batch nor context nor text",
            answering({"batch": "none", "context": "none", "result": "none"}, {"delay": 100})),
    version("no text", answering({"result": "none"}), 3),
    version("no text and an error", answering({"result": "none", "errorNumber": 7}), 3),
    version("an error and a string", answering({"errorNumber": -2147483648})),
    version("an empty string", answering({}, text=""), 3),
    version("100 MB of blanks after the text", answering({"padding": HUGE})),
    Row("100 MB of blanks without a log", QUERY, 0, VERSION, None, answering({"padding": HUGE}),
        logging=False),
    version("100 MB without JSON", answering({"padding": HUGE}, text="no JSON"), 3),
    version("100 MB for a foreign batch",
            answering({"padding": HUGE, "batch": "foreign"}, {"delay": 2000})),
    version("100 MB after unregistration",
            answering({}, {"padding": HUGE, "when": "afterUnregister"})),
    version("an answer nested 100,000 deep", answering({}, outputText=NESTED), 0, "deep"),
    version("an answer that is nothing but 100,000 brackets", answering({}, text="[" * DEEP), 3),
    version("a truncated answer", answering({}, text='{"response":{"data":{"Product":[{"err'), 3),
    version("an answer with control characters", answering({}, text='{"a":"\u0001\n"}'), 3),
    version("an answer of the previous batch",
            {"sdk": {"run": [2, 0], "answers": {STATUS: {
                "output": {"Locations": {"Product": {"Version": VERSION}}},
                "completions": [{"try": 2, "batch": "previous"}, {"try": 2, "delay": 100}]}}}}),
]

# --- Product events -------------------------------------------------------------------------------

STARTED = "FileScan.OnDemand.ScanStarted"
FAILED = "FileScan.OnDemand.ScanFailed"
PROGRESS = "FileScan.OnDemand.ScanProgress"
STARTED_TEXT, FAILED_TEXT = "0", "5023"


def events(*happening: Json) -> dict[str, Json]:
    """The scan never completes, and the product reports these events."""
    return {"sdk": {"answers": {SCAN: {"output": {}, "completions": []}},
                    "events": list(happening)}}


def watched(name: str, scenario: Json, output: str | None, number: int = 0) -> list[Row]:
    """Both scans, watched for five seconds; without `output`, they fail with `number`."""
    return [
        Row(name, f"-start{word.capitalize()}Scan 5", number, output or "",
            f"{SCAN_FAILED}{number}" if output is None else
            f"Finished starting {word} scan with error code:{output}", scenario)
        for word in ("full", "quick")
    ]


EVENTS = [
    *watched("the scan starts", events({"event": STARTED}), STARTED_TEXT),
    *watched("the scan fails", events({"event": FAILED}), FAILED_TEXT),
    *watched("the scan starts before registration returns",
             events({"event": STARTED, "when": "duringRegister"}), STARTED_TEXT),
    *watched("the scan fails before the run call returns",
             events({"event": FAILED, "when": "duringRun"}), FAILED_TEXT),
    *watched("the scan starts a thousand times",
             events({"event": STARTED, "repeat": 1000}), STARTED_TEXT),
    *watched("twenty threads report that the scan fails",
             events(*[{"event": FAILED}] * 20), FAILED_TEXT),
    *watched("the scan starts after 10,000 other events",
             events({"event": PROGRESS, "repeat": 10_000},
                    {"event": STARTED, "delay": 500}), STARTED_TEXT),
    *watched("events without a name and without data",
             events({"event": None, "data": None}, {"event": "", "data": None},
                    {"event": STARTED, "data": None, "delay": 100}), STARTED_TEXT),
    *watched("events with no context and with a foreign one",
             events({"event": FAILED, "context": "none"}, {"event": FAILED, "context": "foreign"},
                    {"event": STARTED, "delay": 100}), STARTED_TEXT),
    *watched("events after unregistration",
             events({"event": STARTED}, {"event": FAILED, "when": "afterUnregister"},
                    {"event": FAILED, "when": "duringUnregister", "repeat": 100},
                    {"event": FAILED, "when": "afterUnregister", "delay": 60_000}), STARTED_TEXT),
    *watched("an event with 100 MB of data",
             events({"event": PROGRESS, "padding": HUGE}, {"event": STARTED, "delay": 1000}),
             STARTED_TEXT),
    *watched("nothing but other events, even after the limit",
             events({"event": PROGRESS, "delay": 1000}, {"event": PROGRESS, "delay": 7000},
                    {"event": PROGRESS, "delay": 20_000}), None, 60),
    *watched("the scan starts after the limit",
             events({"event": STARTED, "delay": 7000}, {"event": PROGRESS, "delay": 20_000}),
             None, 60),
    *watched("the completion comes after the limit", "scan-completed-after-the-limit", None, 60),
    version("events that nobody waits for", {"sdk": {"events": [
        {"event": FAILED, "when": "duringRegister"}, {"event": None, "repeat": 1000},
        {"event": FAILED, "when": "afterUnregister", "context": "none"}]}}),
    Row("an unwatched scan gets failure events", "-startQuickScan", 0, "0",
        "Finished starting quick scan with error code:0",
        {"sdk": {"events": [{"event": FAILED, "repeat": 100}],
                 "answers": {SCAN: {"output": {}, "completions": [{"delay": 200}]}}}}),
]

# --- Libraries ------------------------------------------------------------------------------------

NOT_FOUND = -67068
NO_BUNDLE = -67028
NO_SEEKING = 100029


def replaced(path: str, **content: Json) -> dict[str, Json]:
    """Something else is at `path`."""
    return {"files": [{"path": path, **content}]}


def links(name: str, scenario: Json, code: int, output: str = "", **more) -> Row:
    """The installation links are asked for."""
    return Row(name, "-getInstallationLink -slUrl u -apiKey k -packageName p", code % 256, output,
               "Finished retrieving links", scenario, **more)


# The states that a library can be in, with the codes of a query and of the installation links.
LIBRARY_FAULTS = (
    ({"build": "absent"}, NOT_FOUND),
    ({"build": "notALibrary"}, 35),
    ({"signature": "truncated"}, 22),
    ({"signature": "tampered"}, 22),
    ({"signature": "garbled"}, 22),
    ({"signature": "none"}, 22),
    ({"signature": "adHoc"}, 2),
    ({"signature": "noTeam"}, 2),
    ({"signature": "otherVendor"}, 22),
    ({"signature": "otherTeam"}, 22),
    ({"signature": "unknownRoot"}, 22),
)

# With it, OpenSSL's libcrypto finds no algorithm at all.
NO_CRYPTOGRAPHY = """openssl_conf = all
[all]
alg_section = algorithms
[algorithms]
default_properties = fips=yes
"""

LIBRARIES = [
    row
    for fault, code in LIBRARY_FAULTS
    for what in [", ".join(f"{name} {value}" for name, value in fault.items())]
    for row in (version(f"SDK library: {what}", {"product": {"library": fault}}, code),
                links(f"links library: {what}", {"links": fault}, code))
] + [
    version(f"SDK library, cut to {size} octets before it was signed",
            {"product": {"library": {"size": size}}}, 35)
    for size in (0, 63)
] + [
    version("the SDK library has no AgentSDK_GetInstance",
            {"product": {"library": {"build": "withoutGetInstance"}}}, 14),
    version("the SDK library has no AgentSDK_ReleaseInstance",
            {"product": {"library": {"build": "withoutReleaseInstance"}}}, 14),
    version("the SDK library is a directory", replaced(LIBRARY, directory=True), NO_BUNDLE),
    version("the SDK library is a FIFO", replaced(LIBRARY, fifo=True), NO_SEEKING),
    version("the SDK library is an empty file", replaced(LIBRARY, text=""), 22),
    version("the SDK library is a dangling link", replaced(LIBRARY, link="nowhere"),
            NOT_FOUND),
    version("the SDK library is a link to itself", replaced(LIBRARY, link="agentsdk.dylib"),
            100062),
    version("the SDK library is unreadable", replaced(LIBRARY, text="", mode="000"), 100013),
    version("the signature is a FIFO", replaced(f"{LIBRARY}.codesignature", fifo=True), 22),
    version("the signature is a directory", replaced(f"{LIBRARY}.codesignature", directory=True),
            22),
    version("the signature is unreadable",
            replaced(f"{LIBRARY}.codesignature", text="", mode="000"), 22),
    version("the signature is 1 TB of NULs",
            replaced(f"{LIBRARY}.codesignature", text="", size=1 << 40), 22),
    version("the list of accepted roots is missing", {"product": {"trust": "absent"}}, 22),
    version("the list of accepted roots is a FIFO", replaced(installation.ANCHORS, fifo=True), 22),
    version("the list of accepted roots is a directory",
            replaced(installation.ANCHORS, directory=True), 22),
    version("the list of accepted roots is unreadable",
            replaced(installation.ANCHORS, text="", mode="000"), 22),
    version("the environment names a configuration without cryptography",
            replaced(ELSEWHERE, text=NO_CRYPTOGRAPHY),
            before=f"export OPENSSL_CONF={ELSEWHERE};"),
    version("the product's directory is a FIFO", {
        "product": {"layout": None}, "files": [
            {"path": installation.LAYOUTS[1].directory, "fifo": True}]}, 20),
    version("the product's directory is a dangling link", {
        "product": {"layout": None}, "files": [
            {"path": installation.LAYOUTS[1].directory, "link": "nowhere"}]}, 20),
    version("the product's directory cannot be entered", {
        "product": {"layout": None}, "files": [
            {"path": installation.LAYOUTS[1].directory, "directory": True, "mode": "000"}]},
        100013),
    links("the links library has no export", {"links": {"build": "withoutExport"}}, 2),
    links("the links library's function fails", {"links": {"code": 7, "text": "partly"}}, 7,
          "partly"),
    links("the links library's function returns nothing", {"links": {"text": ""}}, 0),
    links("the links library is a FIFO",
          replaced(f"{installation.WORKING_DIRECTORY}/libsl.dylib", fifo=True), NO_SEEKING),
]

# --- The tool's configuration and log -------------------------------------------------------------

TOOL_VERSION_END = "Finished retrieving RMM Tool version with error code:0"


def tool_version(name: str, is_logged: bool, scenario: Json = "healthy", **more) -> Row:
    """The tool's version is asked for, which always succeeds."""
    return Row(name, "-getVersion", 0, TOOL_VERSION, TOOL_VERSION_END if is_logged else None,
               scenario, **more)


LINE = "Logging=true\n"
SMALL = f"{installation.TOOL_DIRECTORY}/small"

CONFIGURATION_AND_LOG = [
    tool_version("the configuration is missing", False, logging=False),
    tool_version("the configuration is unreadable", False,
                 replaced(CONFIGURATION, text=LINE, mode="000")),
    tool_version("the configuration is a directory", False,
                 replaced(CONFIGURATION, directory=True)),
    tool_version("the configuration is a FIFO", False, replaced(CONFIGURATION, fifo=True)),
    tool_version("the configuration is a FIFO with a silent writer", False,
                 replaced(CONFIGURATION, fifo=True),
                 before=f"exec <>{CONFIGURATION};"),
    tool_version("the configuration is a FIFO with a writer", True,
                 replaced(CONFIGURATION, fifo=True),
                 before=f"exec <>{CONFIGURATION}; echo Logging=true >&0;"),
    tool_version("the configuration is empty", False, replaced(CONFIGURATION, text="")),
    tool_version("the configuration is 100 MB of NULs", False,
                 replaced(CONFIGURATION, text="", size=HUGE)),
    tool_version("100 MB of NULs follow the configuration's line", True,
                 replaced(CONFIGURATION, text=LINE, size=HUGE)),
    tool_version("a NUL ends the configuration's line", False,
                 replaced(CONFIGURATION, text="Logging=true\0\n")),
    tool_version("a NUL begins the configuration's line", False,
                 replaced(CONFIGURATION, text="\0Logging=true\n")),
    tool_version("a line of NULs before the configuration's line", True,
                 replaced(CONFIGURATION, text=f"\0\0\n{LINE}")),
    tool_version("a line of 100 MB before the configuration's line", True,
                 replaced(CONFIGURATION, text="x" * HUGE + "\n" + LINE)),
    tool_version("the configuration is a link", True, {"files": [
        {"path": ELSEWHERE, "text": LINE}, {"path": CONFIGURATION, "link": "elsewhere"}]}),
    tool_version("the configuration is a dangling link", False,
                 replaced(CONFIGURATION, link="nowhere")),
    tool_version("the configuration is a link to itself", False,
                 replaced(CONFIGURATION, link="configfile.txt")),
    tool_version("the log is a directory", False, replaced(LOG, directory=True)),
    tool_version("the log is not writable", False, replaced(LOG, text="", mode="444")),
    tool_version("the tool's directory is not writable", False,
                 before=f"chmod 555 {installation.TOOL_DIRECTORY};",
                 changes=(installation.TOOL_DIRECTORY,)),
    tool_version("the log is a link", True, {"files": [
        {"path": ELSEWHERE, "text": ""}, {"path": LOG, "link": "elsewhere"}]},
        changes=(ELSEWHERE,)),
    tool_version("the log is a link to a file that does not exist yet", True,
                 replaced(LOG, link="elsewhere"), changes=(ELSEWHERE,)),
    tool_version("the log is a link to itself", False, replaced(LOG, link="log.txt")),
    tool_version("the log is a link into a missing directory", False,
                 replaced(LOG, link="nowhere/log.txt")),
    tool_version("the log is on a full disk", False, replaced(LOG, link="small/log.txt"),
                 volumes={SMALL: 4096}, changes=(SMALL,),
                 before=f"head -c 4096 /dev/zero >{SMALL}/filler;"),
    Row("the disk fills up while the log is written", QUERY, 0, VERSION, None,
        replaced(LOG, link="small/log.txt"), volumes={SMALL: 4096}, changes=(SMALL,)),
    tool_version("the log is a FIFO that nobody reads", False, replaced(LOG, fifo=True)),
    tool_version("the log is a FIFO that somebody reads", False, replaced(LOG, fifo=True),
                 before=f"cat {LOG} >/dev/null & until grep -q State:.S /proc/$!/status; do :; done;"),
]

# --- Agent configuration files --------------------------------------------------------------------

DETECTED = "ORVEX Detect finished"
KNOWN = {"hwid": d.ENDPOINT, "custid": d.COMPANY, "customdata": {"ComputersFolder": d.GROUP}}


def agent(content: Json) -> dict[str, Json]:
    """The newer agent configuration file has this content; the older layouts' are missing."""
    return {"product": {"configuration": {"agcfng": content}}}


def detect(name: str, scenario: Json, output: str, **more) -> Row:
    """The product is detected; all its services are running."""
    return Row(name, "-detect", 16, output, DETECTED, scenario, **more)


FROM_SDK = f"{d.COMPANY}||{d.ENDPOINT}"

AGENT_FILES = [
    detect("the agent configuration is missing", agent(None), f"2|{FROM_SDK}"),
    detect("the agent configuration is unreadable", agent({"json": {"id": KNOWN}, "mode": "000"}),
           f"2|{FROM_SDK}"),
    detect("the agent configuration is a directory", agent({"directory": True}), f"2|{FROM_SDK}"),
    detect("the agent configuration is a FIFO", agent({"fifo": True}), f"2|{FROM_SDK}"),
    detect("the agent configuration is empty", agent({"text": ""}), f"2|{FROM_SDK}"),
    detect("the agent configuration is truncated", agent({"text": '{"id":{"hwid":"'}),
           f"2|{FROM_SDK}"),
    detect("the agent configuration begins with a NUL", agent({"text": "\0{}"}), f"2|{FROM_SDK}"),
    detect("the agent configuration is 1 TB of NULs", agent({"text": "", "size": 1 << 40}),
           f"2|{FROM_SDK}"),
    detect("the agent configuration has 100 MB before the identifiers",
           agent({"json": {"filler": "x" * HUGE, "id": KNOWN}}), d.HEALTHY),
    detect("the agent configuration is nested 100,000 deep",
           agent({"text": f'{{"deep":{"[" * DEEP}{"]" * DEEP},"id":'
                          f'{{"customdata":{{"ComputersFolder":"{d.GROUP}"}}}}}}'}), d.HEALTHY),
    detect("the agent configuration is nothing but 100,000 brackets",
           agent({"text": "[" * DEEP}), f"2|{FROM_SDK}"),
    detect("the agent configuration is not an object", agent({"json": []}), f"1|{FROM_SDK}"),
    detect("the agent configuration has a NUL in a name",
           agent({"json": {"id": {"customdata": {"ComputersFolder": "a\0b"}}}}),
           f"1|{d.COMPANY}|a\0b|{d.ENDPOINT}"),
    detect("the agent configuration is a dangling link",
           replaced(AGENT_CONFIGURATION, link="nowhere"), f"2|{FROM_SDK}"),
    detect("the agent configuration is a link to itself",
           replaced(AGENT_CONFIGURATION, link="agcfng.jso"), f"2|{FROM_SDK}"),
    detect("the agent configuration's directory cannot be entered", {
        "files": [{"path": f"{PRODUCT}/settings/agcfng", "directory": True, "mode": "000"}]},
        f"2|{FROM_SDK}"),
    detect("both agent configurations are FIFOs", {"product": {"layout": 2, "configuration": {
        "agcfng": {"fifo": True}, "agcf": {"fifo": True}}}}, f"2|{FROM_SDK}"),
    detect("the newer agent configuration is a FIFO", {"product": {
        "layout": 3, "configuration": {"agcfng": {"fifo": True}}}},
        f"2|{d.COMPANY}|{d.GROUP}|{d.ENDPOINT}"),
    detect("the SDK does not know the identity", {"sdk": {"answers": {IDENTITY: {"error": 4}}}},
           d.HEALTHY),
    detect("the SDK never answers with the identity", {"sdk": {"answers": {
        IDENTITY: {"output": {}, "completions": []}}}}, d.HEALTHY),
    detect("the SDK answers the identity query with 100 MB of blanks", {"sdk": {"answers": {IDENTITY: {
        "output": {"companyID": "c"}, "completions": [{"padding": HUGE}]}}}},
        f"1|c|{d.GROUP}|{d.ENDPOINT}"),
]

# --- Scan summaries -------------------------------------------------------------------------------

FULL_TASK = "3b7e91a0-5c42-4d18-9f6e-2a0c7d45e8b1"
QUICK_TASK = "8f05c2d6-71e9-4a3b-b2c4-6d19e0f37a5c"
FULL_NAME, QUICK_NAME = "1_Full Scan.xml", "1_Quick Scan.xml"
FULL_PATH = f"{installation.SCAN_LOGS}/{FULL_NAME}"
LISTED = "Finished get last system scan with error code:0"
SUMMARY = '<s><ScanSummary startTime="100" duration="5000"/></s>'
QUICK = {"name": QUICK_NAME, "summary": {"startTime": 200, "duration": 0}}
ENTERED = "Retrieve Quick and Full scan XMLs"


def scans(name: str, full: Json, code: int, last: str, output: str = "") -> Row:
    """The full scan's summary is `full`, the quick scan's is a good one."""
    return Row(name, "-getLastSystemScan", code, output, last,
               {"scanLogs": [{"name": FULL_NAME, **full}, QUICK]})


NO_ROOT = f"Invalid XML file for{FULL_PATH}"
BOTH = f"{FULL_TASK}=105|{QUICK_TASK}=200"

SCAN_LOGS = [
    scans("a good summary", {"text": SUMMARY}, 0, LISTED, BOTH),
    scans("the summary is a directory", {"directory": True}, 2, NO_ROOT),
    scans("the summary is a FIFO", {"fifo": True}, 2, NO_ROOT),
    scans("the summary is unreadable", {"text": SUMMARY, "mode": "000"}, 2, NO_ROOT),
    scans("the summary is empty", {"text": ""}, 2, NO_ROOT),
    scans("the summary begins with a NUL", {"text": f"\0{SUMMARY}"}, 2, NO_ROOT),
    scans("a NUL follows the summary", {"text": f"{SUMMARY}\0<broken"}, 0, LISTED, BOTH),
    scans("100 MB of NULs follow the summary", {"text": SUMMARY, "size": HUGE}, 0, LISTED, BOTH),
    scans("100 MB of blanks in the summary",
          {"text": SUMMARY.replace("><", ">" + " " * HUGE + "<", 1)}, 0, LISTED, BOTH),
    scans("no element for the summary", {"text": "<s/>"}, 2,
          'Invalid XML file. Could not find "ScanSummary" node'),
    scans("no start", {"text": '<s><ScanSummary duration="1"/></s>'}, 2,
          'Invalid XML file. Could not find "startTime" node'),
    scans("no duration", {"text": '<s><ScanSummary startTime="1"/></s>'}, 2,
          'Invalid XML. Could not find "duration" node'),
    scans("the summary is not XML", {"text": "no XML"}, ABORTED, ENTERED),
    scans("the summary is truncated", {"text": SUMMARY[:-8]}, ABORTED, ENTERED),
    scans("the summary is a dangling link", {"link": "nowhere"}, 2, ENTERED),
    scans("the summary is a link to itself", {"link": FULL_NAME}, 40, ENTERED),
    scans("the summary is a link to a summary", {"link": QUICK_NAME}, 0, LISTED,
          f"{FULL_TASK}=200|{QUICK_TASK}=200"),
] + [
    Row(f"the scan-log directory {name}", "-getLastSystemScan", code, "", "Get last system scan",
        {"scanLogs": None, **({"files": [{"path": installation.SCAN_LOGS, **content}]}
                              if content else {})})
    for name, content, code in (
        ("is missing", None, 2),
        ("is a file", {"text": ""}, 20),
        ("is a FIFO", {"fifo": True}, 20),
        ("is a dangling link", {"link": "nowhere"}, 2),
        ("is a link to itself", {"link": "Logs"}, 40),
        ("is not readable", {"directory": True, "mode": "000"}, 13),
    )
] + [
    Row("the scan-log directory cannot be read to its end", "-getLastSystemScan", 5, "", ENTERED,
        under="strace -o /dev/null -e inject=getdents64:error=EIO:when=2"),
]

# --- Child processes ------------------------------------------------------------------------------

HDIUTIL, INSTALLER = "/usr/bin/hdiutil", "/usr/sbin/installer"
PACKAGE, IMAGE = "/demo/package/Setup.pkg", "/demo/package-image/Setup.iso"
APPLICATION_IMAGE = "/demo/downloader-image/Setup.iso"
INSTALLED_END = "Finished ORVEX detect"
IMAGE_END = "Finished ORVEX install with status: "
NO_MOUNT = "Failed to mount installer. Exit code: "
PIPE = 65536
ABSENT = {"product": {"layout": None, "services": []}}
# What an installation leaves: the product, without the package that it came from.
INSTALLS = (PRODUCT, "/demo/package")
# The image stays attached, since the device is not where the tool looks for it.
ATTACHES = (PRODUCT, "/Volumes", "/demo")
# How a program can end, with the number that the tool then gets.
ENDS = (
    ({"status": 1}, 1),
    ({"status": 255}, 255),
    ({"signal": 6}, 6),
    ({"signal": 9}, 9),
    ({"signal": 11}, 11),
    ({"signal": 15}, 15),
)
# What can be in a program's place, with the error number of the attempt to start it.
NO_PROGRAMS = (
    ("is missing", None, 2),
    ("is not executable", (b"#!/bin/sh\n", 0o644), 13),
    ("is not a program", (b"\0\0\0\0", 0o755), 8),
    ("needs an interpreter that is missing", (b"#!/nowhere\n", 0o755), 2),
)


def installing(medium: str, **behaviour: Json) -> dict[str, Json]:
    """The product is not installed, the medium is there, the programs behave as given."""
    return {**ABSENT, "media": [medium], "installers": behaviour}


def text_of(end: dict[str, int]) -> str:
    """Describes how a program ended."""
    return ", ".join(f"{name} {value}" for name, value in end.items())


CHILDREN = [
    Row("the package is installed", f"-runInstaller {PACKAGE}", 0, d.HEALTHY, INSTALLED_END,
        installing("package"), INSTALLS),
] + [
    Row(f"installer ends: {text_of(end)}, without effect", f"-runInstaller {PACKAGE}", number,
        d.ABSENT, INSTALLED_END, installing("package", install={"acts": False, **end}),
        INSTALLS[1:])
    for end, number in ENDS
] + [
    Row("installer receives a SIGHUP that the tool ignores", f"-runInstaller {PACKAGE}", 7,
        d.ABSENT, INSTALLED_END, installing("package"), INSTALLS[1:], before="trap '' HUP;",
        programs={INSTALLER: (b"#!/bin/sh\nkill -HUP $$\nexit 7\n", 0o755)}),
    Row("installer is killed after it has finished its work", f"-runInstaller {PACKAGE}", 9, d.HEALTHY,
        INSTALLED_END, installing("package", install={"signal": 9}), INSTALLS),
    Row("installer fills a pipe", f"-runInstaller {PACKAGE}", 0, d.HEALTHY, INSTALLED_END,
        installing("package", install={"noise": PIPE}), INSTALLS),
    Row("installer fills a pipe and is killed", f"-runInstaller {PACKAGE}", 15, d.ABSENT,
        INSTALLED_END, installing("package", install={"acts": False, "noise": PIPE, "signal": 15}),
        INSTALLS[1:]),
] + [
    Row(f"installer {what}", f"-runInstaller {PACKAGE}", number, d.ABSENT, INSTALLED_END,
        installing("package"), INSTALLS[1:], programs={INSTALLER: program})
    for what, program, number in NO_PROGRAMS
] + [
    Row(f"hdiutil ends: {text_of(end)}, without effect", f"-runInstaller {IMAGE}", number,
        d.ABSENT, f"{NO_MOUNT}{number}", installing("package-image", attach={"acts": False, **end}),
        (TEMPORARY,))
    for end, number in ENDS
] + [
    Row(f"hdiutil {what}", f"-runInstaller {IMAGE}", number, d.ABSENT, f"{NO_MOUNT}{number}",
        installing("package-image"), (TEMPORARY,), programs={HDIUTIL: program})
    for what, program, number in NO_PROGRAMS
] + [
    Row("hdiutil fills a pipe", f"-runInstaller {IMAGE}", 0, d.HEALTHY, f"{IMAGE_END}0",
        installing("package-image", attach={"noise": PIPE}, detach={"noise": PIPE}), ATTACHES),
    Row("hdiutil is killed while detaching", f"-runInstaller {IMAGE}", 0, d.HEALTHY,
        f"{IMAGE_END}0", installing("package-image", detach={"signal": 9}), ATTACHES),
    Row("hdiutil writes nothing", f"-runInstaller {IMAGE}", 2, d.ABSENT, "Cannot find mount point",
        installing("package-image", attach={"output": {"text": ""}}), ("/Volumes", TEMPORARY)),
    Row("hdiutil writes no property list", f"-runInstaller {IMAGE}", 2, d.ABSENT,
        "Cannot find mount point",
        installing("package-image", attach={"output": {"text": "mounted\0"}}),
        ("/Volumes", TEMPORARY)),
    Row("hdiutil writes 16 MB", f"-runInstaller {IMAGE}", 2, d.ABSENT, "Cannot find mount point",
        installing("package-image", attach={"output": {"text": "x" * (1 << 24)}}),
        ("/Volumes", TEMPORARY)),
    Row("installer is killed while it installs the image's package", f"-runInstaller {IMAGE}", 11,
        d.ABSENT, f"{IMAGE_END}11",
        installing("package-image", install={"acts": False, "signal": 11}), ("/Volumes", "/demo")),
    Row("there is no installer program for the image's package", f"-runInstaller {IMAGE}", 2, d.ABSENT,
        f"{IMAGE_END}2", installing("package-image"), ("/Volumes", "/demo"),
        programs={INSTALLER: None}),
] + [
    Row(f"the setup downloader ends: {text_of(end)}, without effect",
        f"-runSetupDownloader {APPLICATION_IMAGE}", number, d.ABSENT, f"{IMAGE_END}{number}",
        installing("downloader-image", setupDownloader={"acts": False, **end}),
        ("/Volumes", "/demo"))
    for end, number in ENDS
] + [
    Row("the setup downloader fills a pipe", f"-runSetupDownloader {APPLICATION_IMAGE}", 0,
        d.HEALTHY, f"{IMAGE_END}0", installing("downloader-image", setupDownloader={"noise": PIPE}),
        ATTACHES),
    Row("the setup downloader has no executable",
        "-runSetupDownloader /demo/no-executable-image/Setup.iso", 22, d.ABSENT,
        'Invalid signature for "app"', installing("no-executable-image"), ("/Volumes",)),
    Row("the setup downloader is another vendor's",
        "-runSetupDownloader /demo/other-vendor-image/Setup.iso", 22, d.ABSENT,
        'Invalid signature for "app"', installing("other-vendor-image"), ("/Volumes",)),
    Row("the setup downloader was tampered with",
        "-runSetupDownloader /demo/tampered-image/Setup.iso", 22, d.ABSENT,
        'Invalid signature for "app"', installing("tampered-image"), ("/Volumes",)),
    Row("there is no installer", "-runInstaller /demo/nothing.iso", 2, d.ABSENT,
        "Invalid file attributes or Installer is a directory", ABSENT),
    Row("there is no configuration beside the package", "-runInstaller /demo/alone/Setup.pkg", 2,
        d.ABSENT, "Installer xml does not exist", ABSENT, ("/demo/alone",),
        before="mkdir /demo/alone; touch /demo/alone/Setup.pkg;"),
    Row("the disk is too full for the attach output", f"-runInstaller {IMAGE}", 1, d.ABSENT,
        f"{NO_MOUNT}1",
        installing("package-image", attach={"output": {"text": "x" * 100_000}}), ("/Volumes",),
        volumes={TEMPORARY: 4096}),
    Row("there is no room for the package", "-runInstaller /demo/small/Setup.iso", 2, d.ABSENT,
        f"{IMAGE_END}2", installing("package-image"), ("/Volumes", "/demo/small"),
        before=f"ln -s {IMAGE} /demo/small;", volumes={"/demo/small": 8192}),
    Row("the image's directory is not writable", f"-runInstaller {IMAGE}", 2, d.ABSENT,
        f"{IMAGE_END}2", installing("package-image"), ("/Volumes", "/demo"),
        before="chmod 555 /demo/package-image;"),
    Row("the temporary directory is not writable", f"-runInstaller {IMAGE}", 13, d.ABSENT,
        f"{NO_MOUNT}13", installing("package-image"), (TEMPORARY,),
        before=f"chmod 555 {TEMPORARY};"),
    Row("the product is already there", f"-runInstaller {PACKAGE}", 16, d.HEALTHY,
        "ORVEX Already exists", {"media": ["package"]}),
]

# --- Limits ---------------------------------------------------------------------------------------

SCAN_TIMES = f"{FULL_TASK}=1784188195|{QUICK_TASK}=1784272861"
# The fourth descriptor is the configuration file's or, once that is closed, any other single file's.
FOUR = "ulimit -n 4;"
# With the log open, there is one more.
FIVE = "ulimit -n 5;"
# Like `ulimit -u`, which does not restrict root.
NO_PROCESS = "strace -o /dev/null -e inject=clone,clone3,vfork:error=EAGAIN"
LITTLE_MEMORY = "ulimit -v 131072;"

LIMITS = [
    tool_version("no descriptor for the log", False, before=FOUR),
    tool_version("one descriptor besides the log", True, before=FIVE),
    Row("one descriptor besides the log", "-getLastSystemScan", 0, SCAN_TIMES, LISTED, before=FIVE),
    Row("one descriptor", "-getLastSystemScan", 0, SCAN_TIMES, None, before=FOUR, logging=False),
    version("no descriptor for the signature", "healthy", 22, before=FIVE),
    links("no descriptor for the signature", "healthy", 22, before=FIVE),
    Row("no descriptor for the signature", "-startUpdate", 22, "0", f"{UPDATE_END}0", before=FIVE),
    Row("no descriptor for the signature", "-startFullScan 5", 22, "", f"{SCAN_FAILED}22",
        before=FIVE),
    detect("no descriptor for the signature", "healthy", d.UNHEALTHY, before=FIVE),
    Row("no descriptors for the package's pipes", f"-runInstaller {PACKAGE}", 24, d.ABSENT,
        INSTALLED_END, installing("package"), INSTALLS[1:], before="ulimit -n 8;"),
    Row("no descriptors for the pipes of hdiutil", f"-runInstaller {IMAGE}", 24, d.ABSENT,
        f"{NO_MOUNT}24", installing("package-image"), (TEMPORARY,), before="ulimit -n 8;"),
    Row("no process for the package", f"-runInstaller {PACKAGE}", 11, d.ABSENT, INSTALLED_END,
        installing("package"), INSTALLS[1:], under=NO_PROCESS),
    Row("no process for hdiutil", f"-runInstaller {IMAGE}", 11, d.ABSENT, f"{NO_MOUNT}11",
        installing("package-image"), (TEMPORARY,), under=NO_PROCESS),
    Row("no thread for the events", "-startFullScan 5", 11, "",
        "Failed to create thread. Error code:11", under=NO_PROCESS),
    Row("no thread for the events", "-startQuickScan 5", 11, "",
        "Failed to create thread. Error code:11", under=NO_PROCESS),
    tool_version("little memory", True, before=LITTLE_MEMORY),
    version("little memory", "healthy", before=LITTLE_MEMORY),
    detect("little memory", "healthy", d.HEALTHY, before=LITTLE_MEMORY),
    tool_version("little memory and a configuration of 200 MB", True,
                 replaced(CONFIGURATION, text=LINE, size=2 * HUGE), before=LITTLE_MEMORY),
    detect("little memory and an agent configuration of 1 GB of NULs",
           agent({"text": "{}", "size": 1 << 30}), f"1|{FROM_SDK}", before=LITTLE_MEMORY),
    Row("little memory and an answer with four million numbers", QUERY, ABORTED, "",
        "Parse AgentSDK response",
        answering({}, outputText='{"numbers":[' + "1," * (1 << 22) + "1]}"),
        before="ulimit -v 204800;"),
    detect("little memory and an agent configuration with a string of 100 MB",
           agent({"json": {"filler": "x" * HUGE, "id": KNOWN}}), f"2|{FROM_SDK}",
           before=LITTLE_MEMORY),
    Row("no memory for the scan summary", "-getLastSystemScan", ABORTED, "", ENTERED,
        {"scanLogs": [{"name": FULL_NAME, "text": SUMMARY, "size": 1 << 30}]},
        before=LITTLE_MEMORY),
]

FAMILIES = {
    "SDK calls": SDK_CALLS,
    "completions": COMPLETIONS,
    "events": EVENTS,
    "libraries": LIBRARIES,
    "configuration and log": CONFIGURATION_AND_LOG,
    "agent files": AGENT_FILES,
    "scan logs": SCAN_LOGS,
    "children": CHILDREN,
    "limits": LIMITS,
}
