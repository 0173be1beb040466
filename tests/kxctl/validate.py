#!/usr/bin/python3
"""Validate answers of kxctl against the schemas that ship with it.

validate.py SCHEMAS < lines; each line is {"file": "card", "definition": "list", "title": "...",
"document": ...}. Prints a line for each document that is not valid, and fails when there was one.

The schemas are open: agents must bear keys that a later version adds. Here they are closed, so that
a key which is answered but not described is found.
"""
import json
import pathlib
import sys
import warnings

warnings.simplefilter("ignore", DeprecationWarning)
from jsonschema import Draft202012Validator, RefResolver  # noqa: E402


def close(schema):
    if isinstance(schema, list):
        for part in schema:
            close(part)
    elif isinstance(schema, dict):
        if isinstance(schema.get("properties"), dict):
            schema.setdefault("additionalProperties", False)
        for part in schema.values():
            close(part)


def load(directory):
    schemas = {}
    for path in sorted(pathlib.Path(directory).glob("*.json")):
        schema = json.loads(path.read_text())
        Draft202012Validator.check_schema(schema)
        close(schema)
        schemas[path.resolve().as_uri()] = schema
    return schemas


def problems(schemas, directory, row):
    uri = (pathlib.Path(directory).resolve() / (row["file"] + ".json")).as_uri()
    if row["definition"] not in schemas.get(uri, {}).get("$defs", {}):
        yield "there is no definition %s in %s.json" % (row["definition"], row["file"])
        return
    resolver = RefResolver(uri, schemas[uri], store=schemas)
    reference = {"$ref": "%s#/$defs/%s" % (uri, row["definition"])}
    for error in Draft202012Validator(reference, resolver=resolver).iter_errors(row["document"]):
        yield "%s: %s" % ("/".join(map(str, error.absolute_path)), error.message)


def main():
    directory = sys.argv[1]
    schemas = load(directory)
    failed = False
    for line in sys.stdin:
        row = json.loads(line)
        for problem in problems(schemas, directory, row):
            print("%s: %s" % (row["title"], problem))
            failed = True
    return 1 if failed else 0


sys.exit(main())
