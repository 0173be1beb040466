#!/usr/bin/env python3
"""Check that the files and folders that the pages name exist.

A path is a text in backquotes with a slash, such as `src/vm/domains.cpp`. It counts from the root of
the tree, from the folder of the page, or is the end of a longer path. Words in capitals and "*" stand
for any name. Paths outside of the tree begin with a folder of OUTSIDE or with "/".
"""
import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
OUTSIDE = ("build/", "share/")
PATH = re.compile(r"`([A-Za-z_][\w.*-]*/[\w./*-]*)`")
PLACEHOLDER = re.compile(r"\\\*|(?<![A-Za-z])[A-Z]{2,}(?![a-z])")


def tree():
    listed = subprocess.run(
        ["git", "-C", ROOT, "ls-files", "--cached", "--others", "--exclude-standard"],
        check=True, capture_output=True, text=True).stdout.split("\n")
    folders = {str(folder) for name in listed for folder in pathlib.PurePath(name).parents}
    return sorted(folders.union(listed))


def main():
    names = tree()
    missing = []
    pages = [name for name in names if name.endswith(".md") and name != "CHANGELOG.md"]
    for page in pages:
        for number, line in enumerate((ROOT / page).read_text().split("\n"), 1):
            for path in PATH.findall(line):
                pattern = PLACEHOLDER.sub("[^/]*", re.escape(path.rstrip("/")))
                wanted = re.compile(rf"(^|.*/){pattern}")
                if not path.startswith(OUTSIDE) and not any(map(wanted.fullmatch, names)):
                    missing.append(f"{page}:{number}: there is no {path}")
    print(*missing, sep="\n", end="\n" if missing else "")
    sys.exit(1 if missing else 0)


main()
