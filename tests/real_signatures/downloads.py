"""Files that Apple's own tools signed, out of public npm packages."""

import pathlib
import subprocess
import tarfile

# A universal command-line program with a Developer ID signature and a time stamp.
DEVELOPER_ID = ("@sentry/cli-darwin@3.8.0", "package/bin/sentry-cli")

# A small universal library: the linker signed its arm64 slice, nobody the other one.
PARTLY_SIGNED = ("fsevents@2.3.3", "package/fsevents.node")

# A framework with a seal, signed ad hoc. The registry's packages have no symbolic links.
FRAMEWORK = ("@nativescript/macos-node-api@0.4.0",
             "package/build/RelWithDebInfo/NativeScript.apple.node/macos-arm64/"
             "NativeScript.framework")


def fetch(package, member, directory):
    """Unpacks one file or folder of a package below `directory` and returns its path."""
    directory = pathlib.Path(directory)
    packed = subprocess.run(["npm", "pack", "--silent", package], cwd=directory, check=True,
                            capture_output=True, text=True, timeout=600).stdout.split()[-1]
    path = directory / pathlib.PurePosixPath(member).name
    with tarfile.open(directory / packed) as archive:
        for entry in archive:
            if entry.isfile() and (entry.name == member or entry.name.startswith(member + "/")):
                target = path / pathlib.PurePosixPath(entry.name).relative_to(member)
                target.parent.mkdir(parents=True, exist_ok=True)
                target.write_bytes(archive.extractfile(entry).read())
    (directory / packed).unlink()
    return path
