#!/usr/bin/python3 -BESs
"""Stand-in for hdiutil: attaches ISO 9660 images with Rock Ridge.

    hdiutil attach IMAGE [-plist] [-private] [-nobrowse]
    hdiutil detach DEVICE [-quiet]

Nothing can be mounted in a sandbox, so an image is unpacked at its mount point and removed when it
is detached. Links map devices to mount points.
"""

import itertools
import os
import plistlib
import shutil
import stat
import sys

sys.path.insert(0, "/Library/Corvane/XQP/simulator/installers")

import stand_in  # pylint: disable=wrong-import-position

_ATTACHED = f"{stand_in.DIRECTORY}/attached"
_VOLUMES = "/Volumes"
_ATTACH_OPTIONS = {"-plist", "-private", "-nobrowse"}
_DETACH_OPTIONS = {"-quiet"}
_FIRST_DISK = 2
# The primary volume descriptor of ISO 9660.
_DESCRIPTOR_POSITION = 16 * 2048
_DESCRIPTOR_START = b"\x01CD001\x01"
_VOLUME_NAME = slice(40, 72)


class Failure(Exception):
    """The command fails; the text is the reason."""


def _operand(words, options):
    """The only word that is not an option."""
    operands = [word for word in words if not word.startswith("-")]
    unknown = [word for word in words if word.startswith("-") and word not in options]
    if len(operands) != 1 or unknown:
        raise Failure(f"Usage:\n{__doc__.split(chr(10) * 2)[1]}")
    return operands[0]


def _volume_name(image):
    try:
        with open(image, "rb") as file:
            file.seek(_DESCRIPTOR_POSITION)
            descriptor = file.read(2048)
    except OSError as error:
        raise Failure(f"hdiutil: attach failed - {error.strerror}") from error
    if not descriptor.startswith(_DESCRIPTOR_START):
        raise Failure("hdiutil: attach failed - image not recognized")
    return descriptor[_VOLUME_NAME].decode("ascii", "replace").strip() or "Untitled"


def _unpack(image, directory):
    words = ["xorriso", "-no_rc", "-abort_on", "FAILURE", "-osirrox", "on", "-indev",
             f"stdio:{image}", "-extract", "/", directory]
    quiet = [(os.POSIX_SPAWN_OPEN, number, "/dev/null", os.O_RDWR, 0) for number in range(3)]
    child = os.posix_spawn("/usr/bin/xorriso", words, os.environ, file_actions=quiet)
    if os.waitpid(child, 0)[1] != 0:
        _remove(directory)
        raise Failure("hdiutil: attach failed - image data corrupted")


def _remove(directory):
    """Removes a tree, including read-only directories."""
    for folder, _, _ in os.walk(directory):
        os.chmod(folder, stat.S_IRWXU)
    shutil.rmtree(directory)


def _make_mount_point(name):
    for number in itertools.count():
        path = f"{_VOLUMES}/{name} {number}" if number else f"{_VOLUMES}/{name}"
        try:
            os.mkdir(path)
            return path
        except FileExistsError:
            continue


def _make_device(mount_point):
    os.makedirs(_ATTACHED, exist_ok=True)
    for number in itertools.count(_FIRST_DISK):
        try:
            os.symlink(mount_point, f"{_ATTACHED}/disk{number}")
            return f"/dev/disk{number}"
        except FileExistsError:
            continue


def _attach(words):
    image = _operand(words, _ATTACH_OPTIONS)
    wanted = stand_in.behaviour("attach")
    device, mount_point = "/dev/disk0", f"{_VOLUMES}/Nothing"
    if wanted["acts"]:
        mount_point = _make_mount_point(_volume_name(image))
        _unpack(image, mount_point)
        device = _make_device(mount_point)
    try:
        sys.stdout.buffer.write(_output(wanted["output"], device, mount_point))
        sys.stdout.flush()
    except OSError as error:
        os.dup2(os.open(os.devnull, os.O_WRONLY), sys.stdout.fileno())  # drops the rest
        raise Failure(f"hdiutil: {error.strerror}") from error
    stand_in.end(wanted)


def _output(wanted, device, mount_point):
    if "text" in wanted:
        return wanted["text"].encode()
    value = _filled(wanted["propertyList"], {"$device": device, "$mountPoint": mount_point})
    kinds = {"xml": plistlib.FMT_XML, "binary": plistlib.FMT_BINARY}
    encoded = plistlib.dumps(value, fmt=kinds[wanted.get("format", "xml")])
    return encoded[:wanted.get("length")]


def _filled(value, texts):
    """`value` with the names in its strings replaced by the texts."""
    if isinstance(value, dict):
        return {key: _filled(member, texts) for key, member in value.items()}
    if isinstance(value, list):
        return [_filled(element, texts) for element in value]
    if isinstance(value, str):
        for name, text in texts.items():
            value = value.replace(name, text)
    return value


def _detach(words):
    device = _operand(words, _DETACH_OPTIONS)
    wanted = stand_in.behaviour("detach")
    link = f"{_ATTACHED}/{_whole_disk(os.path.basename(device))}"
    if wanted["acts"]:
        try:
            mount_point = os.readlink(link)
        except OSError as error:
            raise Failure(f"hdiutil: detach failed - {error.strerror}") from error
        _remove(mount_point)
        os.unlink(link)
    stand_in.end(wanted)


def _whole_disk(device):
    """The disk of a partition: disk2 for disk2s1."""
    disk, _, number = device.rpartition("s")
    return disk if number.isdigit() and disk[-1:].isdigit() else device


def main(words):
    """Runs the command and ends the program."""
    stand_in.record("hdiutil", words)
    commands = {"attach": _attach, "detach": _detach}
    try:
        if not words or words[0] not in commands:
            raise Failure(f"hdiutil: verb expected: {', '.join(commands)}")
        commands[words[0]](words[1:])
    except Failure as failure:
        sys.exit(str(failure))


if __name__ == "__main__":
    main(sys.argv[1:])
