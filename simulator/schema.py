"""Checks JSON values against a schema, naming the path to each mistake.

Understands the part of JSON Schema that scenario.schema.json uses. A keyword that it does not
understand is an error, so that no rule is believed to hold that nobody checks.
"""

import json
import re
from collections.abc import Iterator
from typing import Any

_TYPES = {
    "object": dict,
    "array": list,
    "string": str,
    "boolean": bool,
    "integer": int,
    "null": type(None),
}
# What is no check by itself; additionalProperties is read along with properties.
_NOTES = {"$schema", "$defs", "title", "description", "additionalProperties"}


class SchemaError(Exception):
    """The schema itself is wrong."""


def mistakes(value: Any, schema: dict[str, Any]) -> list[str]:
    """Every place where `value` breaks `schema`, each as "path: what is wrong"."""
    return list(_check(value, schema, schema, ""))


def _check(value: Any, rule: dict[str, Any], root: dict[str, Any], path: str) -> Iterator[str]:
    for keyword, wanted in rule.items():
        if keyword in _NOTES:
            continue
        if keyword not in _CHECKS:
            raise SchemaError(f"keyword {keyword} is not understood")
        concerned, check = _CHECKS[keyword]
        if isinstance(value, concerned):
            yield from check(value, wanted, rule, root, path)


def _at(path: str) -> str:
    return path or "the scenario"


def _is_of(value: Any, name: str) -> bool:
    return isinstance(value, _TYPES[name]) and (name == "boolean" or not isinstance(value, bool))


def _type(value, wanted, rule, root, path):
    names = wanted if isinstance(wanted, list) else [wanted]
    if not any(_is_of(value, name) for name in names):
        yield f"{_at(path)}: must be of type {' or '.join(names)}"


def _reference(value, wanted, rule, root, path):
    yield from _check(value, root["$defs"][wanted.removeprefix("#/$defs/")], root, path)


def _enum(value, wanted, rule, root, path):
    choices = [json.dumps(choice) for choice in wanted]
    if json.dumps(value) not in choices:
        yield f"{_at(path)}: {json.dumps(value)} is not one of {', '.join(choices)}"


def _properties(value, wanted, rule, root, path):
    for name, member in value.items():
        below = f"{path}.{name}" if path else name
        if name in wanted:
            yield from _check(member, wanted[name], root, below)
        elif rule.get("additionalProperties") is False:
            yield f"{below}: unknown member; known are {', '.join(wanted)}"
        elif isinstance(rule.get("additionalProperties"), dict):
            yield from _check(member, rule["additionalProperties"], root, below)


def _required(value, wanted, rule, root, path):
    for name in wanted:
        if name not in value:
            yield f"{_at(path)}: lacks the member {name}"


def _one_of(value, wanted, rule, root, path):
    """Alternatives that differ in the members they require: exactly one may be there."""
    names = [name for alternative in wanted for name in alternative["required"]]
    present = [name for name in names if name in value]
    if len(present) != 1:
        yield f"{_at(path)}: must have exactly one of {', '.join(names)}"


def _items(value, wanted, rule, root, path):
    for index, item in enumerate(value):
        yield from _check(item, wanted, root, f"{path}[{index}]")


def _min_items(value, wanted, rule, root, path):
    if len(value) < wanted:
        yield f"{_at(path)}: needs at least {wanted} item"


def _minimum(value, wanted, rule, root, path):
    if value < wanted:
        yield f"{_at(path)}: {value} is below {wanted}"


def _maximum(value, wanted, rule, root, path):
    if value > wanted:
        yield f"{_at(path)}: {value} is above {wanted}"


def _pattern(value, wanted, rule, root, path):
    if not re.search(wanted, value):
        yield f"{_at(path)}: {value!r} does not have the form {wanted}"


def _any_of(value, wanted, rule, root, path):
    found = [list(_check(value, alternative, root, path)) for alternative in wanted]
    if all(found):
        yield f"{_at(path)}: must be {rule['title']}"


# What each keyword says nothing about unless the value is of this kind, and how it is checked.
_CHECKS = {
    "type": (object, _type),
    "$ref": (object, _reference),
    "enum": (object, _enum),
    "anyOf": (object, _any_of),
    "properties": (dict, _properties),
    "required": (dict, _required),
    "oneOf": (dict, _one_of),
    "items": (list, _items),
    "minItems": (list, _min_items),
    "minimum": (int, _minimum),
    "maximum": (int, _maximum),
    "pattern": (str, _pattern),
}
