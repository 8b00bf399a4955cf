#!/usr/bin/python3 -BESs
"""Stand-in for defaults(1), which keeps the preferences of all domains in one file.

    defaults read DOMAIN [KEY]
    defaults write DOMAIN KEY -string TEXT
    defaults write DOMAIN KEY -int NUMBER
"""

import json
import pathlib
import re
import sys

_PREFERENCES = pathlib.Path("/Library/Corvane/XQP/simulator/preferences.json")
_TYPES = {"-string": str, "-int": int}


def _shown(value):
    """Formats a value as in the list of all keys."""
    text = str(value)
    return text if re.fullmatch("[0-9A-Za-z]+", text) else json.dumps(text)


def main(words):
    """Runs the command and ends the program."""
    domains = json.loads(_PREFERENCES.read_text()) if _PREFERENCES.exists() else {}
    match words:
        case ["write", domain, key, kind, value] if kind in _TYPES:
            domains.setdefault(domain, {})[key] = _TYPES[kind](value)
            _PREFERENCES.write_text(json.dumps(domains))
        case ["read", domain] if domain in domains:
            lines = [f"    {_shown(key)} = {_shown(value)};\n"
                     for key, value in sorted(domains[domain].items())]
            print("{\n" + "".join(lines) + "}")
        case ["read", domain, key] if key in domains.get(domain, {}):
            print(domains[domain][key])
        case ["read", domain, *_]:
            sys.exit(f"Domain {domain} or its key does not exist")
        case _:
            sys.exit(__doc__)


if __name__ == "__main__":
    main(sys.argv[1:])
