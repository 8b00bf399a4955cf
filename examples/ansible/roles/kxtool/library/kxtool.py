#!/usr/bin/python3
"""Ansible module: asks KXTool one question, or for the facts about the product."""

import subprocess
import time

from ansible.module_utils.basic import AnsibleModule

DOCUMENTATION = """
module: kxtool
short_description: install, detect, query and drive the endpoint-security product of a Mac
description:
  - Runs any option of KXTool and returns its answer, parsed.
  - Without an option, gathers the facts about the product.
  - In check mode, questions are asked, but nothing is installed or started.
options:
  tool:
    description: The tool, by its full path; words before it, such as a launcher, are allowed.
    type: list
    elements: str
    default: [/usr/local/libexec/kxtool/KXTool]
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
    description: Seconds after which the tool is ended. By default what the option may need.
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
  description: >
    C(kxtool), with the members state (not installed, healthy, not healthy), company, group, endpoint,
    version, features (name and whether it works), updateErrors (location and error), and problems
    (why a question has no answer). What is not known is null.
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
answer:
  description: The answer, parsed; null when there was none.
  returned: with an option
  type: raw
"""

NOT_INSTALLED, PRESENT = 20, 16
STATES = {"0": "not installed", "1": "healthy", "2": "not healthy"}


def record(text):
    state, company, group, endpoint = text.split("|", 3)
    return {"state": STATES[state], "company": company or None, "group": group or None,
            "endpoint": endpoint or None}


def names(text):
    return text.split("|") if text else []


def pairs(text):
    return {name: int(value) for name, _, value in (entry.rpartition("=") for entry in names(text))}


def features(text):
    return {name: value == 1 for name, value in pairs(text).items()}


def update_status(text):
    if not text:
        return None
    return dict(zip(("error", "time", "lastSucceededTime"), map(int, text.split("|"))))


def number(text):
    return int(text) if text else None


def words(text):
    return text or None


def is_one(text):
    return text == "1"


# What each option's output is, how many seconds the tool may take, and whether it changes the Mac.
OPTIONS = {
    "-runInstaller": (record, 7200, True),
    "-runSetupDownloader": (record, 7200, True),
    "-detect": (record, 700, False),
    "-getInstallationLink": (words, 120, False),
    "-checkForUpdateErrors": (pairs, 180, False),
    "-getUpdateStatus": (update_status, 180, False),
    "-hasCriticalIssues": (names, 180, False),
    "-isUpToDate": (is_one, 180, False),
    "-getUpdateLocations": (names, 180, False),
    "-startUpdate": (number, 180, True),
    "-getProductVersion": (words, 180, False),
    "-getLastUpdate": (number, 180, False),
    "-getFeatureStatus": (features, 180, False),
    "-getLastSystemScan": (pairs, 10, False),
    "-startFullScan": (number, 43500, True),
    "-startQuickScan": (number, 5700, True),
    "-getVersion": (words, 10, False),
}
INSTALLERS = ("-runInstaller", "-runSetupDownloader")
DETECTING = (*INSTALLERS, "-detect")  # for which PRESENT is no failure
SCANS = {"-startFullScan": "3b7e91a0-5c42-4d18-9f6e-2a0c7d45e8b1",
         "-startQuickScan": "8f05c2d6-71e9-4a3b-b2c4-6d19e0f37a5c"}


class NoAnswer(Exception):
    """There is no answer; the text says why. `seen` is what the tool did give, as results."""

    def __init__(self, text, **seen):
        super().__init__(text)
        self.seen = seen


class Tool:
    """The tool of this Mac; `limit` takes the place of the options' own limits."""

    def __init__(self, command, limit):
        self.command = command
        self.limit = limit

    def run(self, option, arguments=()):
        """The exit status and the output."""
        limit = self.limit or OPTIONS[option][1]
        if option in SCANS and arguments and arguments[0].isdigit() and not self.limit:
            limit = int(arguments[0]) + 200
        try:
            done = subprocess.run([*self.command, option, *arguments], stdin=subprocess.DEVNULL,
                                  stdout=subprocess.PIPE, stderr=subprocess.PIPE, timeout=limit,
                                  check=False)
        except OSError as error:
            raise NoAnswer(f"{self.command[0]} cannot be run: {error.strerror}") from error
        except subprocess.TimeoutExpired as error:
            raise NoAnswer(f"{option} took longer than {limit} seconds") from error
        if done.returncode < 0:
            raise NoAnswer(f"{option} was ended by signal {-done.returncode}")
        return done.returncode, done.stdout.decode(errors="replace")

    def ask(self, option, arguments=()):
        """The exit status, the output, and what it says."""
        code, output = self.run(option, arguments)
        seen = {"code": code, "output": output}
        if code != 0 and not (code == PRESENT and option in DETECTING):
            raise NoAnswer(f"{option} ended with code {code}", **seen)
        try:
            return code, output, OPTIONS[option][0](output)
        except (KeyError, ValueError) as error:
            raise NoAnswer(f"{option} answered {output!r}", **seen) from error

    def age(self, option):
        """Seconds since the last of what the option starts; None when nobody knows of any."""
        try:
            if option in SCANS:
                last = self.ask("-getLastSystemScan")[2].get(SCANS[option])
            else:
                last = self.ask("-getLastUpdate")[2]
        except NoAnswer:
            return None
        return None if last is None else time.time() - last


def facts(tool):
    """What is known about the product."""
    code, _, known = tool.ask("-detect")
    known.update(version=None, features=None, updateErrors=None, problems={})
    if code == PRESENT:
        for name, option in (("version", "-getProductVersion"), ("features", "-getFeatureStatus"),
                             ("updateErrors", "-checkForUpdateErrors")):
            try:
                known[name] = tool.ask(option)[2]
            except NoAnswer as problem:
                known["problems"][option] = str(problem)
    return known


def prediction(tool, option, max_age, check_mode):
    """Whether the option would change the Mac; None when only a run of it can tell."""
    if not OPTIONS[option][2]:
        return None
    if option in INSTALLERS:
        return tool.run("-getProductVersion")[0] == NOT_INSTALLED if check_mode else None
    if max_age is not None:
        age = tool.age(option)
        if age is not None and age <= max_age:
            return False
    return True if check_mode else None


def perform(tool, option, arguments):
    """Runs the option; returns the results."""
    code, output, answer = tool.ask(option, arguments)
    changes = OPTIONS[option][2]
    if changes and option not in INSTALLERS and answer != 0:
        raise NoAnswer(f"{option}: the product's error is {answer}", code=code, output=output)
    return {"changed": changes and code == 0, "code": code, "output": output, "answer": answer}


def main():
    module = AnsibleModule(supports_check_mode=True, argument_spec={
        "tool": {"type": "list", "elements": "str",
                 "default": ["/usr/local/libexec/kxtool/KXTool"]},
        "option": {"type": "str", "choices": list(OPTIONS)},
        "arguments": {"type": "list", "elements": "str", "default": []},
        "max_age": {"type": "int"},
        "limit": {"type": "int"},
    })
    given = module.params
    option = given["option"]
    tool = Tool(given["tool"], given["limit"])
    try:
        if option is None:
            module.exit_json(changed=False, ansible_facts={"kxtool": facts(tool)})
        changed = prediction(tool, option, given["max_age"], module.check_mode)
        if changed is not None:
            module.exit_json(changed=changed, answer=None)
        module.exit_json(**perform(tool, option, given["arguments"]))
    except NoAnswer as problem:
        module.fail_json(msg=str(problem), **problem.seen)


if __name__ == "__main__":
    main()
