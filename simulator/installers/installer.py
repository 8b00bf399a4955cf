#!/usr/bin/python3 -BESs
"""Stand-in for the package installer.

    installer -pkg PACKAGE -target /

A package is a tar archive: `package.json` says what the product consists of, and `payload/` holds its
files. The file installer.xml beside the package says to whom the endpoint belongs.
"""

import json
import os
import sys
import tarfile
import time
from xml.etree import ElementTree

sys.path.insert(0, "/Library/Corvane/XQP/simulator/installers")

import stand_in  # pylint: disable=wrong-import-position

CONFIGURATION_NAME = "installer.xml"
_PAYLOAD = "payload/"


class Failure(Exception):
    """The product cannot be installed; the text is the reason."""


def install(package, configuration):
    """Unpacks the product, gives it the installer's configuration and starts its services."""
    try:
        owner = ElementTree.parse(configuration).getroot()
        with tarfile.open(package) as archive:
            description = json.load(archive.extractfile("package.json"))
            for member in archive.getmembers():
                if member.name.startswith(_PAYLOAD):
                    member.name = member.name.removeprefix(_PAYLOAD)
                    # The owner can be unknown here, and then tarfile does not set the mode.
                    member.uid, member.uname = os.geteuid(), ""
                    member.gid, member.gname = os.getegid(), ""
                    archive.extract(member, "/")
    except (OSError, KeyError, ValueError, tarfile.TarError, ElementTree.ParseError) as error:
        raise Failure(f"The install failed ({error})") from error
    if description["configuration"] is not None:
        _configure(description["configuration"], owner)
    _start(description["services"])


def _configure(path, owner):
    with open(path, encoding="utf-8") as file:
        content = json.load(file)
    identity = content["id"]
    identity["custid"] = owner.findtext("company", identity["custid"])
    custom = identity["customdata"]
    custom["ComputersFolder"] = owner.findtext("group", custom["ComputersFolder"])
    with open(path, "w", encoding="utf-8") as file:
        json.dump(content, file)


def _start(services):
    """Starts the services; on return, they are in the process table under their names.

    They outlive the installer, so they are started by a process that ends at once. The kernel notifies
    a service when its parent dies, so the service must already have its new parent when it starts.
    """
    reading, writing = os.pipe()  # closed in a child when its program starts
    starter = os.fork()
    if starter == 0:
        number = os.getpid()
        for path in services:
            if os.fork() == 0:
                _become(path, number, writing)
        os._exit(0)
    os.waitpid(starter, 0)
    os.close(writing)
    with os.fdopen(reading) as failures:
        text = failures.read()
    if text:
        raise Failure(f"The install failed ({text})")


def _become(path, starter, failures):
    try:
        os.setsid()
        os.chdir("/")
        null = os.open(os.devnull, os.O_RDWR)
        for number in range(3):
            os.dup2(null, number)
        while os.getppid() == starter:
            time.sleep(0.001)
        os.execv(path, [path])
    except OSError as error:
        os.write(failures, f"{path}: {error.strerror}".encode())
    finally:
        os._exit(127)


def _package(words):
    if len(words) != 4 or words[0] != "-pkg" or words[2:] != ["-target", "/"]:
        raise Failure(f"Usage:\n{__doc__.split(chr(10) * 2)[1]}")
    return words[1]


def main(words):
    """Runs the command and ends the program."""
    stand_in.record("installer", words)
    try:
        package = _package(words)
        wanted = stand_in.behaviour("install")
        if wanted["acts"]:
            print(f"installer: Package name is {os.path.basename(package)}")
            install(package, os.path.join(os.path.dirname(package), CONFIGURATION_NAME))
            print("installer: The install was successful.")
        stand_in.end(wanted)
    except Failure as failure:
        sys.exit(f"installer: {failure}")


if __name__ == "__main__":
    main(sys.argv[1:])
