#!/usr/bin/python3
"""Ansible module: runs one option of KXTool, or gathers what kxtool-report knows as facts."""

import json
import subprocess
import time

from ansible.module_utils.basic import AnsibleModule

DOCUMENTATION = """
module: kxtool
short_description: install, detect, query and drive the endpoint-security product of a Mac
description:
  - Runs any option of KXTool and returns its exit status and its output.
  - Without an option, gathers the facts about the product by means of kxtool-report.
  - In check mode, questions are asked, but nothing is installed or started.
options:
  tool:
    description: The tool, by its full path; words before it, such as a launcher, are allowed.
    type: list
    elements: str
    default: [/usr/local/libexec/kxtool/KXTool]
  report:
    description: The script kxtool-report, in the same way.
    type: list
    elements: str
    default: [/usr/local/libexec/kxtool/kxtool-report]
  option:
    description: One of the tool's options; none gathers the facts.
    type: str
    choices:
      - -runInstaller
      - -runSetupDownloader
      - -detect
      - -getInstallationLink
      - -checkForUpdateErrors
      - -getUpdateStatus
      - -hasCriticalIssues
      - -isUpToDate
      - -getUpdateLocations
      - -startUpdate
      - -getProductVersion
      - -getLastUpdate
      - -getFeatureStatus
      - -getLastSystemScan
      - -startFullScan
      - -startQuickScan
      - -getVersion
  arguments:
    description: The option's arguments.
    type: list
    elements: str
    default: []
  max_age:
    description:
      - For C(-startUpdate), C(-startFullScan) and C(-startQuickScan), in seconds. Nothing is started
        when the last update, or the end of the last such scan, is at most so old.
    type: int
  limit:
    description: Seconds after which the tool is ended. By default the time that the option may need.
    type: int
"""

EXAMPLES = """
- name: Gather the facts
  kxtool:

- name: Install the product where it is not
  kxtool:
    option: -runInstaller
    arguments: [/tmp/Setup/Setup.pkg]

- name: Have every Mac scanned once a week, without waiting for the end
  kxtool:
    option: -startQuickScan
    arguments: ["60"]
    max_age: 604800
"""

RETURN = """
ansible_facts:
  description: C(kxtool), the report, whose members docs/report.schema.json describes.
  returned: without an option
  type: dict
code:
  description: The tool's exit status.
  returned: with an option that was run
  type: int
output:
  description: The tool's answer as it was.
  returned: with an option that was run
  type: str
"""

NOT_INSTALLED, PRESENT = 20, 16

# How many seconds the tool may take for each option, and whether the option changes the Mac.
OPTIONS = {
    "-runInstaller": (7200, True),
    "-runSetupDownloader": (7200, True),
    "-detect": (700, False),
    "-getInstallationLink": (120, False),
    "-checkForUpdateErrors": (180, False),
    "-getUpdateStatus": (180, False),
    "-hasCriticalIssues": (180, False),
    "-isUpToDate": (180, False),
    "-getUpdateLocations": (180, False),
    "-startUpdate": (180, True),
    "-getProductVersion": (180, False),
    "-getLastUpdate": (180, False),
    "-getFeatureStatus": (180, False),
    "-getLastSystemScan": (10, False),
    "-startFullScan": (43500, True),
    "-startQuickScan": (5700, True),
    "-getVersion": (10, False),
}
INSTALLERS = ("-runInstaller", "-runSetupDownloader")
DETECTING = (*INSTALLERS, "-detect")  # for which PRESENT is no failure
SCANS = ("-startFullScan", "-startQuickScan")
# The group of the report, and the member, that tells when it was last done.
LAST = {"-startUpdate": ("updates", "lastUpdate"), "-startFullScan": ("scans", "lastFullScan"),
        "-startQuickScan": ("scans", "lastQuickScan")}


class NoAnswer(Exception):
    """There is no answer; the text says why. `seen` is what the tool did give, as results."""

    def __init__(self, text, **seen):
        super().__init__(text)
        self.seen = seen


def run(command, limit):
    """The exit status and the output of a command; `limit`, in seconds, can be None."""
    try:
        done = subprocess.run(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE, timeout=limit, check=False)
    except OSError as error:
        raise NoAnswer(f"{command[0]} cannot be run: {error.strerror}") from error
    except subprocess.TimeoutExpired as error:
        raise NoAnswer(f"no answer within {limit} seconds") from error
    if done.returncode < 0:
        raise NoAnswer(f"ended by signal {-done.returncode}")
    return done.returncode, done.stdout.decode(errors="replace")


class Endpoint:
    """The tool and the report script of this Mac; `limit` takes the place of the options' own limits."""

    def __init__(self, tool, report, limit):
        self.tool = tool
        self.report_script = report
        self.limit = limit

    def run_option(self, option, arguments=()):
        """The exit status and the output."""
        limit = self.limit or OPTIONS[option][0]
        if option in SCANS and arguments and arguments[0].isdigit() and not self.limit:
            limit = int(arguments[0]) + 200
        return run([*self.tool, option, *arguments], limit)

    def report(self, *words):
        """The report, also one in which questions have no answer."""
        code, output = run([*self.report_script, *words], None)
        if code not in (0, 1):
            raise NoAnswer(f"kxtool-report ended with code {code}", code=code, output=output)
        return json.loads(output)

    def age(self, option):
        """Seconds since the last of what the option starts; None if it is not known."""
        group, member = LAST[option]
        last = self.report("--only", group)[member]
        return None if last is None else time.time() - last


def prediction(endpoint, option, max_age, check_mode):
    """Whether the option would change the Mac; None when only a run of it can tell."""
    if not OPTIONS[option][1]:
        return None
    if option in INSTALLERS:
        return endpoint.run_option("-getProductVersion")[0] == NOT_INSTALLED if check_mode else None
    if max_age is not None:
        age = endpoint.age(option)
        if age is not None and age <= max_age:
            return False
    return True if check_mode else None


def perform(endpoint, option, arguments):
    """Runs the option; returns the results."""
    code, output = endpoint.run_option(option, arguments)
    seen = {"code": code, "output": output}
    if code != 0 and not (code == PRESENT and option in DETECTING):
        raise NoAnswer(f"{option} ended with code {code}", **seen)
    changes = OPTIONS[option][1]
    if changes and option not in INSTALLERS and output != "0":
        raise NoAnswer(f"{option}: the product's error is {output}", **seen)
    return {"changed": changes and code == 0, **seen}


def main():
    module = AnsibleModule(supports_check_mode=True, argument_spec={
        "tool": {"type": "list", "elements": "str",
                 "default": ["/usr/local/libexec/kxtool/KXTool"]},
        "report": {"type": "list", "elements": "str",
                   "default": ["/usr/local/libexec/kxtool/kxtool-report"]},
        "option": {"type": "str", "choices": list(OPTIONS)},
        "arguments": {"type": "list", "elements": "str", "default": []},
        "max_age": {"type": "int"},
        "limit": {"type": "int"},
    })
    given = module.params
    option = given["option"]
    endpoint = Endpoint(given["tool"], given["report"], given["limit"])
    try:
        if option is None:
            module.exit_json(changed=False, ansible_facts={"kxtool": endpoint.report()})
        changed = prediction(endpoint, option, given["max_age"], module.check_mode)
        if changed is not None:
            module.exit_json(changed=changed)
        module.exit_json(**perform(endpoint, option, given["arguments"]))
    except NoAnswer as problem:
        module.fail_json(msg=str(problem), **problem.seen)


if __name__ == "__main__":
    main()
