#!/usr/bin/env python3
"""Checks the JSON records of units against a schema.

  check_record.py SCHEMA RECORD...

Knows the words of JSON Schema that docs/report.schema.json uses and refuses any other. Prints a line
for each fault; the status is the verdict.
"""
import json
import sys

TYPES = {"object": dict, "array": list, "string": str, "boolean": bool}
KNOWN = {"$schema", "$defs", "$ref", "title", "description", "type", "properties", "required",
         "additionalProperties", "items", "enum", "minimum", "exclusiveMinimum"}


def is_of(kind, value):
    """True when the value is of a schema's type."""
    if kind in ("integer", "number"):
        return not isinstance(value, bool) and isinstance(
            value, int if kind == "integer" else (int, float))
    return isinstance(value, TYPES[kind])


def faults(schema, value, root, place):
    """What is wrong with a value, a line each."""
    unknown = set(schema) - KNOWN
    if unknown:
        sys.exit(f"the schema uses {', '.join(sorted(unknown))}")
    if "$ref" in schema:
        return faults(root["$defs"][schema["$ref"].removeprefix("#/$defs/")], value, root, place)
    found = []
    if "type" in schema and not is_of(schema["type"], value):
        return [f"{place}: no {schema['type']}"]
    if "enum" in schema and value not in schema["enum"]:
        found.append(f"{place}: {value!r} is none of {schema['enum']}")
    if "minimum" in schema and value < schema["minimum"]:
        found.append(f"{place}: {value} is too small")
    if "exclusiveMinimum" in schema and value <= schema["exclusiveMinimum"]:
        found.append(f"{place}: {value} is too small")
    if isinstance(value, dict):
        members = schema.get("properties", {})
        found += [f"{place}: no {name}" for name in schema.get("required", []) if name not in value]
        for name, member in value.items():
            if name in members:
                found += faults(members[name], member, root, f"{place}.{name}")
            elif schema.get("additionalProperties") is False:
                found.append(f"{place}: {name} is unknown")
    if isinstance(value, list) and "items" in schema:
        for k, item in enumerate(value):
            found += faults(schema["items"], item, root, f"{place}[{k}]")
    return found


def no_constant(word):
    """Ends the run: strict JSON has no such numbers."""
    sys.exit(f"{word} is no JSON")


def main():
    with open(sys.argv[1], encoding="utf-8") as file:
        schema = json.load(file)
    found = []
    for path in sys.argv[2:]:
        with open(path, encoding="utf-8") as file:
            record = json.load(file, parse_constant=no_constant)
        found += faults(schema, record, schema, path)
    print("\n".join(found), end="\n" if found else "")
    sys.exit(1 if found else 0)


if __name__ == "__main__":
    main()
