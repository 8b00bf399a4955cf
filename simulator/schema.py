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
        found = list(_CHECKS[keyword](value, wanted, rule, root, path))
        yield from found
        if found and keyword == "type":
            return  # whatever else is said about it supposes the right type


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
    if isinstance(value, int) and value < wanted:
        yield f"{_at(path)}: {value} is below {wanted}"


def _maximum(value, wanted, rule, root, path):
    if isinstance(value, int) and value > wanted:
        yield f"{_at(path)}: {value} is above {wanted}"


def _pattern(value, wanted, rule, root, path):
    if not re.search(wanted, value):
        yield f"{_at(path)}: {value!r} does not have the form {wanted}"


def _any_of(value, wanted, rule, root, path):
    found = [list(_check(value, alternative, root, path)) for alternative in wanted]
    if all(found):
        yield f"{_at(path)}: must be {rule['title']}"


_CHECKS = {
    "type": _type,
    "$ref": _reference,
    "enum": _enum,
    "properties": _properties,
    "required": _required,
    "oneOf": _one_of,
    "anyOf": _any_of,
    "items": _items,
    "minItems": _min_items,
    "minimum": _minimum,
    "maximum": _maximum,
    "pattern": _pattern,
}
