#!/usr/bin/python3
"""Validates JSON documents against a JSON Schema of any draft it names.

Usage: validate_json.py SCHEMA FILE...   Exit 0 when every file is valid; else each
problem is printed with its file and where in the document it is.
"""
import json
import sys

from jsonschema import validators


def main():
    schema = json.load(open(sys.argv[1]))
    cls = validators.validator_for(schema)  # the draft the schema names
    cls.check_schema(schema)
    validator = cls(schema)
    bad = 0
    for path in sys.argv[2:]:
        try:
            doc = json.load(open(path))
        except ValueError as e:
            print("%s: not JSON: %s" % (path, e))
            bad += 1
            continue
        for error in validator.iter_errors(doc):
            print("%s: %s at %s" % (path, error.message[:200], "/".join(str(p) for p in error.absolute_path)))
            bad += 1
    return 1 if bad else 0


if __name__ == "__main__":
    sys.exit(main())
