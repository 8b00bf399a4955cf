#!/usr/bin/python3
"""Ansible module: runs one option of KXTool, or gathers the report of kxtool-report as facts."""

import json
import subprocess
import time

from ansible.module_utils.basic import AnsibleModule

DOCUMENTATION = """
module: kxtool
short_description: install, detect, query and drive the endpoint-security product of a Mac
description:
  - Runs any option of KXTool and returns its exit status and its output.
  - Without an option, runs kxtool-report and returns the report as a fact.
  - In check mode, asks questions, but installs and starts nothing.
options:
  tool:
    description: The full path of the tool; words before it, such as a launcher, are allowed.
    type: list
    elements: str
    default: [/usr/local/libexec/kxtool/KXTool]
  report:
    description: The full path of kxtool-report; words before it are allowed.
    type: list
    elements: str
    default: [/usr/local/libexec/kxtool/kxtool-report]
  option:
    description: One of the tool's options, such as C(-startUpdate).
    type: str
  arguments:
    description: The arguments of the option.
    type: list
    elements: str
    default: []
  max_age:
    description:
      - For C(-startUpdate), C(-startFullScan) and C(-startQuickScan), in seconds. Nothing is started if the
        last update, or the end of the last such scan, is not older than this.
    type: int
  limit:
    description:
      - Seconds after which the module ends the tool. By default, 200 seconds after the time limit of a scan,
        and otherwise 43500 seconds, the longest time that a full scan can take.
    type: int
"""

EXAMPLES = """
- name: Gather the facts
  kxtool:

- name: Install the product if it is missing
  kxtool:
    option: -runInstaller
    arguments: [/tmp/Setup/Setup.pkg]

- name: Start a scan on each Mac once a week, without waiting for its end
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
  description: The exit status of the tool.
  returned: when the option was run
  type: int
output:
  description: The output of the tool, unchanged.
  returned: when the option was run
  type: str
"""

NOT_INSTALLED = 20
PRESENT = 16
DETECTION = "-detect"
INSTALLERS = ("-runInstaller", "-runSetupDownloader")
SCANS = ("-startFullScan", "-startQuickScan")
# For each option that starts something, the group and the member of the report with the time of the last one.
LAST = {"-startUpdate": ("updates", "lastUpdate"), "-startFullScan": ("scans", "lastFullScan"),
        "-startQuickScan": ("scans", "lastQuickScan")}


def spelled(option):
    """Returns the option as this module spells it. The tool ignores the case of letters."""
    known = {name.lower(): name for name in (DETECTION, *INSTALLERS, *LAST)}
    return option and known.get(option.lower(), option)


class NoAnswer(Exception):
    """The tool gave no answer; the text says why. `seen` holds the results so far."""

    def __init__(self, text, **seen):
        super().__init__(text)
        self.seen = seen


def run(command, limit):
    """Returns the exit status and the output of a command. A limit of None means no limit."""
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
    """The tool and the report script on this Mac."""

    def __init__(self, tool, report, limit):
        self.tool = tool
        self.report_script = report
        self.limit = limit

    def run_option(self, option, arguments=()):
        """Returns the exit status and the output."""
        limit = self.limit or 43500
        if option in SCANS and arguments and arguments[0].isdigit() and not self.limit:
            limit = int(arguments[0]) + 200
        return run([*self.tool, option, *arguments], limit)

    def report(self, *words):
        """Returns the report, even if some questions have no answer."""
        code, output = run([*self.report_script, *words], None)
        if code not in (0, 1):
            raise NoAnswer(f"kxtool-report ended with code {code}", code=code, output=output)
        return json.loads(output)

    def age(self, option):
        """Returns the seconds since the last update or scan of this kind, or None if unknown."""
        group, member = LAST[option]
        last = self.report("--only", group)[member]
        return None if last is None else time.time() - last


def prediction(endpoint, option, max_age, check_mode):
    """Returns whether the option would change the Mac, or None if the option must be run."""
    if option in INSTALLERS:
        return endpoint.run_option("-getProductVersion")[0] == NOT_INSTALLED if check_mode else None
    if option not in LAST:
        return None
    if max_age is not None:
        age = endpoint.age(option)
        if age is not None and age <= max_age:
            return False
    if not check_mode:
        return None
    perform(endpoint, "-getProductVersion", [])  # fails without the product, as the option would
    return True


def perform(endpoint, option, arguments):
    """Runs the option and returns the results."""
    code, output = endpoint.run_option(option, arguments)
    seen = {"code": code, "output": output}
    if code != 0 and not (code == PRESENT and option in (DETECTION, *INSTALLERS)):
        raise NoAnswer(f"{option} ended with code {code}", **seen)
    if option in LAST and output != "0":
        raise NoAnswer(f"{option}: the product's error is {output}", **seen)
    return {"changed": code == 0 and option in (*INSTALLERS, *LAST), **seen}


def main():
    module = AnsibleModule(supports_check_mode=True, argument_spec={
        "tool": {"type": "list", "elements": "str", "default": ["/usr/local/libexec/kxtool/KXTool"]},
        "report": {"type": "list", "elements": "str", "default": ["/usr/local/libexec/kxtool/kxtool-report"]},
        "option": {"type": "str"},
        "arguments": {"type": "list", "elements": "str", "default": []},
        "max_age": {"type": "int"},
        "limit": {"type": "int"},
    })
    given = module.params
    option = spelled(given["option"])
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
