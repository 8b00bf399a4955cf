#!/usr/bin/python3 -BESs
"""The executable of the stand-in for the product's setup downloader.

    Setup Downloader --silent

It finds the package, which the real one fetches, in its own bundle, and the installer's
configuration beside the bundle.
"""

import os
import sys

sys.path.insert(0, "/Library/Corvane/XQP/simulator/installers")

import installer  # pylint: disable=wrong-import-position
import stand_in  # pylint: disable=wrong-import-position


def main(words):
    """Runs the command and ends the program."""
    stand_in.record("setupDownloader", words)
    if words != ["--silent"]:
        sys.exit("this program has no user interface")
    wanted = stand_in.behaviour("setupDownloader")
    contents = os.path.dirname(os.path.dirname(os.path.abspath(sys.argv[0])))
    beside = os.path.dirname(os.path.dirname(contents))
    try:
        if wanted["acts"]:
            installer.install(f"{contents}/Resources/Setup.pkg",
                              f"{beside}/{installer.CONFIGURATION_NAME}")
    except installer.Failure as failure:
        sys.exit(str(failure))
    stand_in.end(wanted)


if __name__ == "__main__":
    main(sys.argv[1:])
