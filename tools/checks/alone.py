#!/usr/bin/env python3
"""Compile every source and every header by itself, as builds that join sources do not.

    tools/checks/alone.py BUILD-DIRECTORY

Sources and their flags are those of compile_commands.json in the build directory, which is the
release build's: what it does not join, it compiles alone. What it joins is taken apart and compiled
here. A header compiles alone when a source that begins with it does; the other headers are compiled
as if they were sources, with the flags of a source nearby. The headers of include/kxlinhw have tests
of their own, in every language version that they promise.
"""

import concurrent.futures
import json
import os
import pathlib
import re
import shlex
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
INCLUDE = re.compile(r'^\s*#\s*include\s+"([^"]+)"', re.MULTILINE)


def flags(entry):
    """The compiler and its flags, without source, output and dependency file."""
    words = shlex.split(entry["command"])
    kept = []
    index = 0
    while index < len(words):
        if words[index] in ("-o", "-c", "-MF", "-MT", "-include"):
            index += 2
        elif words[index] in ("-MD", "-Winvalid-pch"):
            index += 1
        else:
            kept.append(words[index])
            index += 1
    return kept


def sources_and_flags(build):
    """{source: flags}, and the sources that are compiled only joined with others."""
    all_flags, joined, single = {}, set(), set()
    for entry in json.loads((build / "compile_commands.json").read_text()):
        file = pathlib.Path(entry["file"])
        if build in file.parents and file.name.startswith("unity_"):
            parts = [pathlib.Path(part) for part in INCLUDE.findall(file.read_text())]
            joined.update(parts)
        else:
            # A generated source has the flags of the folder that it is generated for.
            parts = [ROOT / file.relative_to(build) if build in file.parents else file]
            single.update(parts)
        for part in parts:
            all_flags.setdefault(part, (entry["directory"], flags(entry)))
    return all_flags, joined - single


def headers():
    listed = subprocess.run(
        ["git", "ls-files", "--cached", "--others", "--exclude-standard", "*.hpp", "*.h"],
        cwd=ROOT, check=True, capture_output=True, text=True).stdout
    paths = (ROOT / line for line in listed.splitlines())
    return [path for path in paths if path.exists() and "kxlinhw" != path.parent.name]


def first_header(source):
    """The header that the source begins with, beside it or where its folder's headers are."""
    found = INCLUDE.search(source.read_text())
    if not found:
        return None
    for directory in (source.parent, *source.parents):
        if (directory / found[1]).exists():
            return directory / found[1]
    return None


def nearest(header, all_flags):
    """The flags of the source that shares the longest path with the header; of several, the most."""
    def shared(source):
        return len(os.path.commonpath([header, source])), len(all_flags[source][1])
    return all_flags[max(sorted(all_flags), key=shared)]


def compiles(file, directory, compiler, as_header):
    with_file = ["-x", "c++", "-include", str(file), "/dev/null"] if as_header else [str(file)]
    result = subprocess.run([*compiler, "-fsyntax-only", *with_file],
                            cwd=directory, capture_output=True, text=True)
    if result.returncode != 0:
        print(f"{file.relative_to(ROOT)} does not compile alone:\n{result.stderr}", flush=True)
    return result.returncode == 0


def main():
    build = pathlib.Path(sys.argv[1]).resolve()
    all_flags, joined = sources_and_flags(build)
    proved = {first_header(source) for source in all_flags
              if ROOT in source.parents and source.exists()}
    alone = [header for header in headers() if header not in proved]
    work = [(source, *all_flags[source], False) for source in sorted(joined)]
    work += [(header, *nearest(header, all_flags), True) for header in alone]
    with concurrent.futures.ThreadPoolExecutor(len(os.sched_getaffinity(0))) as pool:
        results = list(pool.map(lambda item: compiles(*item), work))
    print(f"compiled alone: {len(joined)} joined sources, {len(alone)} headers that none begins with")
    return 0 if all(results) else 1


if __name__ == "__main__":
    sys.exit(main())
