"""Files that Apple's own tools signed, out of public npm packages."""

import pathlib
import subprocess
import tarfile

# A universal command-line program with a Developer ID signature and a time stamp.
DEVELOPER_ID = ("@sentry/cli-darwin@3.8.0", "package/bin/sentry-cli")

# A small universal library: the linker signed its arm64 slice, nobody the other one.
PARTLY_SIGNED = ("fsevents@2.3.3", "package/fsevents.node")


def fetch(package, member, directory):
    """Unpacks one file of a package below `directory` and returns its path."""
    directory = pathlib.Path(directory)
    packed = subprocess.run(["npm", "pack", "--silent", package], cwd=directory, check=True,
                            capture_output=True, text=True, timeout=600).stdout.split()[-1]
    with tarfile.open(directory / packed) as archive:
        data = archive.extractfile(member).read()
    (directory / packed).unlink()
    path = directory / pathlib.PurePosixPath(member).name
    path.write_bytes(data)
    return path
