#!/usr/bin/env python3
"""Write the Python module of the records and constants of <kxlinhw/kxlinhw.h>.

usage: generate_records.py READELF OBJECT MODULE

OBJECT is records.c, compiled with debugging information. From it come the names, types, offsets and
sizes, so the module says what the compiler laid out, whoever changed a header last.
"""

import math
import re
import subprocess
import sys

HEADER_DIRECTORY = "/kxlinhw"

BASE_TYPES = {
    "char": "ctypes.c_char",
    "signed char": "ctypes.c_int8",
    "short": "ctypes.c_int16",  # so clang calls it
    "short int": "ctypes.c_int16",
    "int": "ctypes.c_int32",
    "long": "ctypes.c_int64",
    "long int": "ctypes.c_int64",
    "unsigned char": "ctypes.c_uint8",
    "unsigned short": "ctypes.c_uint16",
    "short unsigned int": "ctypes.c_uint16",
    "unsigned int": "ctypes.c_uint32",
    "unsigned long": "ctypes.c_uint64",
    "long unsigned int": "ctypes.c_uint64",
}
RECORDS = {"structure_type": "ctypes.Structure", "union_type": "ctypes.Union"}
TRANSPARENT = ("typedef", "const_type", "volatile_type", "enumeration_type")

MODULE_HEAD = '''"""The packed records and the constants of libkxlinhw, for ctypes.

Made from the library's C headers when it was built; not to be edited. Field and constant names are
those of the headers, which say what they mean. Pointers are plain addresses.
"""

import ctypes
'''

MODULE_TAIL = '''

def _check(record, size, fields):
    """Refuse to be imported where ctypes lays a record out otherwise than the C compiler did."""
    laid_out = [(n, getattr(record, n).offset, getattr(record, n).size) for n, _ in record._fields_]
    if ctypes.sizeof(record) != size or laid_out != fields:
        raise ImportError(f"{record.__name__} is not laid out here as in the library")

'''


class Entry:
    """One entry of the debugging information: a tag, attributes, children."""

    def __init__(self, tag):
        self.tag = tag
        self.attributes = {}
        self.children = []

    def text(self, name):
        """An attribute's text, without the notes in front on how it was stored."""
        return re.sub(r"^(\([^)]*\):? *)+", "", self.attributes.get(name, ""))

    def number(self, name):
        return int(self.text(name).split()[0], 0)

    def reference(self, name):
        """The key of the entry that an attribute such as "<0x2a>" refers to."""
        target = re.search(r"<0x([0-9a-f]+)>", self.attributes.get(name, ""))
        return int(target[1], 16) if target else None


def read_entries(dump):
    """All entries by their offsets, in the order of the object."""
    entries = {}
    parents = {}
    entry = None
    pointer_size = "8"
    for line in dump.splitlines():
        head = re.match(r"\s*<(\d+)><([0-9a-f]+)>: Abbrev Number: \d+ \(DW_TAG_(\w+)\)", line)
        attribute = re.match(r"\s*<[0-9a-f]+>\s+DW_AT_(\w+)\s*: (.*)", line)
        unit = re.match(r"\s*Pointer Size:\s*(\d+)$", line)
        if head:
            depth, offset = int(head[1]), int(head[2], 16)
            entry = Entry(head[3])
            entries[offset] = entry
            if entry.tag == "pointer_type":  # clang does not say it of each
                entry.attributes["byte_size"] = pointer_size
            parents[depth] = entry
            if depth > 0:
                parents[depth - 1].children.append(entry)
        elif attribute and entry is not None:
            entry.attributes[attribute[1]] = attribute[2].strip()
        elif unit:
            pointer_size = unit[1]
    return entries


def read_header_files(dump):
    """The numbers of the files that are the library's headers."""
    rows = {"Directory": {}, "File Name": {}}
    table = None
    for line in dump.splitlines():
        title = re.match(r"\s*The (Directory|File Name) Table", line)
        row = re.match(r"\s+(\d+)\t(?:(\d+)(?: 0x[0-9a-f]+)?\t)?(?:\([^)]*\): )?(\S+)$", line)
        if title:
            table = rows[title[1]]
        elif row and table is not None:
            table[int(row[1])] = (row[2], row[3])
    return {
        number
        for number, (directory, _) in rows["File Name"].items()
        if rows["Directory"][int(directory)][1].endswith(HEADER_DIRECTORY)
    }


class Generator:
    def __init__(self, entries, header_files):
        self.entries = entries
        self.header_files = header_files
        # The names from typedefs, and later the names of the fields for records without a name.
        self.names = {
            entry.reference("type"): entry.text("name")
            for entry in entries.values()
            if entry.tag == "typedef" and "type" in entry.attributes
        }
        self.emitted = set()

    def module(self):
        yield MODULE_HEAD
        yield from self.constants()
        yield MODULE_TAIL.rstrip("\n")
        for offset, entry in self.entries.items():
            # A structure that is only declared has no size.
            if (
                entry.tag in RECORDS
                and self.is_ours(entry)
                and "byte_size" in entry.attributes
                and self.name(offset)
            ):
                yield from self.record(offset)

    def is_ours(self, entry):
        return "decl_file" in entry.attributes and entry.number("decl_file") in self.header_files

    def name(self, offset):
        return self.entries[offset].text("name") or self.names.get(offset)

    def constants(self):
        for entry in self.entries.values():
            if entry.tag == "enumeration_type" and self.is_ours(entry):
                for enumerator in entry.children:
                    yield f"{enumerator.text('name')} = {enumerator.number('const_value')}"

    def record(self, offset):
        """The record's class, behind those of the records that it holds."""
        if offset in self.emitted:
            return
        self.emitted.add(offset)
        entry = self.entries[offset]
        name = self.name(offset)
        members = [child for child in entry.children if child.tag == "member"]
        for member in members:
            held = self.held_record(member.reference("type"))
            if held is not None:
                if not self.name(held):
                    self.names[held] = f"{name}_{member.text('name')}"
                yield from self.record(held)
        yield f"\n\nclass {name}({RECORDS[entry.tag]}):"
        yield "    _pack_ = 1"
        yield "    _fields_ = ["
        for member in members:
            yield f'        ("{member.text("name")}", {self.expression(member.reference("type"))}),'
        yield "    ]"
        yield f"\n\n_check(\n    {name},\n    {entry.number('byte_size')},\n    ["
        for member in members:
            start = 0  # in a union
            if "data_member_location" in member.attributes:
                start = member.number("data_member_location")
            size = self.size(member.reference("type"))
            yield f'        ("{member.text("name")}", {start}, {size}),'
        yield "    ],\n)"

    def held_record(self, offset):
        """The record that a field of that type holds, once or as an array; None for others."""
        entry = self.entries[offset]
        if entry.tag in RECORDS:
            return offset
        if entry.tag in TRANSPARENT or entry.tag == "array_type":
            return self.held_record(entry.reference("type"))
        return None

    def expression(self, offset):
        """A type in Python."""
        entry = self.entries[offset]
        if entry.tag == "base_type":
            return BASE_TYPES[entry.text("name")]
        if entry.tag == "pointer_type":
            return "ctypes.c_void_p"
        if entry.tag == "array_type":
            element = self.expression(entry.reference("type"))
            return " * ".join([element, *(str(length) for length in reversed(lengths_of(entry)))])
        if entry.tag in RECORDS:
            return self.name(offset)
        if entry.tag in TRANSPARENT:
            return self.expression(entry.reference("type"))
        raise NotImplementedError(f"a field of DWARF type {entry.tag}")

    def size(self, offset):
        """The bytes of a type, by the compiler's word."""
        entry = self.entries[offset]
        if "byte_size" in entry.attributes:
            return entry.number("byte_size")
        return self.size(entry.reference("type")) * math.prod(lengths_of(entry))


def lengths_of(entry):
    """An array's lengths, in the order of its dimensions; none for other types."""
    return [
        child.number("count") if "count" in child.attributes else child.number("upper_bound") + 1
        for child in entry.children
        if child.tag == "subrange_type"
    ]


def dump(readelf, what, path):
    return subprocess.run(
        [readelf, f"--debug-dump={what}", path],
        check=True,
        stdout=subprocess.PIPE,
        text=True,
    ).stdout


def main():
    if len(sys.argv) != 4:
        sys.exit(__doc__)
    readelf, path, module = sys.argv[1:]
    entries = read_entries(dump(readelf, "info", path))
    header_files = read_header_files(dump(readelf, "rawline", path))
    lines = list(Generator(entries, header_files).module())
    if not any(line.startswith("\n\nclass ") for line in lines):
        sys.exit(f"{path} holds no record: was it compiled with debugging information?")
    with open(module, "w", encoding="utf-8") as file:
        file.write("\n".join(lines) + "\n")


if __name__ == "__main__":
    main()
