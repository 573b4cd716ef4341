#!/usr/bin/python3
"""Validates a JSON document against a JSON schema.

Usage: validate.py SCHEMA DOCUMENT. Exits 0 when the document is valid, 1 with its first
errors on standard error when it is not, 2 when either file cannot be read or the schema
is no schema.
"""
import json
import sys

import jsonschema


def main() -> int:
    schema_path, document_path = sys.argv[1:3]
    try:
        with open(schema_path, encoding="utf-8") as file:
            schema = json.load(file)
        with open(document_path, encoding="utf-8") as file:
            document = json.load(file)
        validator = jsonschema.validators.validator_for(schema)
        validator.check_schema(schema)
    except (OSError, ValueError, jsonschema.SchemaError) as error:
        print(f"validate.py: {error}", file=sys.stderr)
        return 2
    checker = validator(schema, format_checker=validator.FORMAT_CHECKER)
    errors = sorted(checker.iter_errors(document), key=lambda e: list(map(str, e.path)))
    for error in errors[:5]:
        print("/" + "/".join(map(str, error.path)) + ": " + error.message, file=sys.stderr)
    return 1 if errors else 0


if __name__ == "__main__":
    sys.exit(main())
