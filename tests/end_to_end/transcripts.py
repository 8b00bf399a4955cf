"""Log lines that many operations share.

Each function returns the lines of one step; a whole log is their concatenation. "<uuid>", "<time>"
and "<seconds>" stand for what differs from run to run (see harness.ToolRun).
"""

from simulator import installation

GET_STATUS = "Product.GetStatus"
GET_IDENTITY = "kx.Product.Configuration.GetSkyloftIdentity"

# The outcomes of a signature check, with the lines after "Check code validity".
_VALID = [
    "Code is valid",
    "Retrieve signing information",
    "Signing information retrieved successfully",
    "Save certificate name",
]
_COMPLETE = [
    *_VALID,
    "Certificate saved successfully",
    "Save certificate team id",
    "Certificate team id saved successfully",
    "Check if it is signed by Corvane",
]
_CHECKS = {
    "signed": [*_COMPLETE, "Check complete. File is signed by Corvane"],
    "other signer": [*_COMPLETE, "Check complete. File is not signed by Corvane"],
    "invalid": ["Code is not valid"],
    "no certificate": [*_VALID, "Cannot save certificate. Error code: 2"],
    "no team": [*_VALID, "Certificate saved successfully", "Save certificate team id",
                "Failed to save certificate team id. Error code: 2"],
}


def check(path: str, outcome: str = "signed") -> list[str]:
    """A signature check that creates the static code."""
    return [f"Retrieve Sec static code for {path}", "Check code validity", *_CHECKS[outcome]]


def check_without_code(path: str, status: int) -> list[str]:
    """A signature check that cannot create the static code."""
    return [f"Retrieve Sec static code for {path}",
            f"Failed to retrieve static code. Error code: {status}"]


def find_product(method: str = GET_STATUS, layout: int = 1) -> list[str]:
    """From the beginning of a method to the check of its library's signature."""
    return [
        f"Executing AgentSDK method: {method}",
        "Retrieving ORVEX directory path",
        "GetDirectory error code = 0",
        f"Validate {installation.LAYOUTS[layout].library} binary",
    ]


def product_missing(method: str = GET_STATUS) -> list[str]:
    """A method on an endpoint without the product."""
    return [
        f"Executing AgentSDK method: {method}",
        "Retrieving ORVEX directory path",
        "GetDirectory error code = 20",
        "Failed to retrieve ORVEX directory path. Error code : 20",
    ]


def load(layout: int = 1) -> list[str]:
    """The library is accepted and opened."""
    path = installation.LAYOUTS[layout].library
    return [*check(path), "Binary is valid", f"Loading library from: {path}"]


def find_exports() -> list[str]:
    """Both exports are found."""
    return ["Set AgentSDK get instance", "AgentSDK get instance is set",
            "Set AgentSDK release instance"]


def begin(method: str = GET_STATUS) -> list[str]:
    """The request is found and the runs begin."""
    return [f"Search in actions for the declared method: {method}", "Start RunAsync",
            "Run async starts at <time>\n"]


def attempt(number: int, status: int) -> list[str]:
    """One try whose run call returns `status`."""
    return [
        "Get AgentSDK instance",
        "Instance retrieved successfully",
        "RunAsync register instance notifications",
        f"Try no = {number}",
        "Creating batch context",
        "Batch context = <uuid>",
        "Run instance",
        f"Inner apiError = {status}",
        "Inner RunAsync elapsed time = <seconds> seconds",
    ]


def end_of_runs(status: int) -> list[str]:
    """The runs have ended; there is no answer yet, since callbacks wait for the lock."""
    return ["RunAsync elapsed time = <seconds> seconds", f"RunAsync error code = {status}",
            "End RunAsync", "AgentSDK response", ""]


def started(method: str = GET_STATUS, layout: int = 1) -> list[str]:
    """A method whose first run is accepted, up to the wait for the answer."""
    return [*find_product(method, layout), *load(layout), *find_exports(), *begin(method),
            *attempt(1, 0), *end_of_runs(0)]


def on_ran(batch: str | None, text: str | None, error: int = 0, accepted: bool = True) -> list[str]:
    """A completion; one that is not accepted belongs to another batch or context."""
    lines = ["Start OnRan", f"Is null batch_context = {int(batch is None)}"]
    if batch is not None:
        lines.append(f"Batch context = {ord(batch[0])}")
    lines += [f"Error = {error}", f"Is null result = {int(text is None)}"]
    if accepted:
        lines += ["OnRun response", "nullptr" if text is None else text, "End OnRan"]
    return lines


PARSE = [
    "Parse AgentSDK response",
    'Parse "response" member',
    'Parse "data" member',
    "Find method key",
    'Parse "error" member',
    "Response error code : 0",
    'Parse "output" member',
]


def finish(status: int = 0) -> list[str]:
    """The common ending of a method that was answered."""
    return [f"Instance unregistered with exit code : {status}",
            "Finished executing AgentSDK method"]


def answered(method: str = GET_STATUS, layout: int = 1) -> list[str]:
    """A method that is answered in full."""
    return [*started(method, layout), "Set run async timeout", *PARSE, *finish()]


def wrapped(lines: list[str], code: int = 0, api_error: int = 0, sdk_error: int = 0,
            method: str = GET_STATUS) -> list[str]:
    """The lines of a method inside those of the wrapper."""
    if sdk_error != 0:
        verdict = f"Agent SDK failed with error code: {sdk_error}"
    elif api_error != 0:
        verdict = f"API failed with error code: {api_error}"
    else:
        verdict = f"AgentSDK Method returned with error code: {code}"
    return [f"Executing AgentSDK Wrapper method: {method}", *lines, f"Return error: {code}",
            f"API error = {api_error}", f"Agent SDK Error = {sdk_error}", verdict]
