#!/usr/bin/env python3
"""List every test and every case of a test that did not run, and why.

    tools/checks/skipped.py BUILD-DIRECTORY...    reads what ctest wrote of its last run there
"""
import pathlib
import re
import sys

TEST = re.compile(r"^\d+/\d+ Test: (.+)\n(.*?)^\"\1\" end time", re.MULTILINE | re.DOTALL)
OUTPUT = re.compile(r"^Output:\n-+\n(.*?)<end of output>", re.MULTILINE | re.DOTALL)
CASE = re.compile(r"^\S+: Skipped\n(.*?)\s*^\[  SKIPPED \] (\S+) \(", re.MULTILINE | re.DOTALL)


def skipped(log):
    for test in TEST.finditer(log):
        output = OUTPUT.search(test[2])
        text = output[1] if output else ""
        cases = CASE.findall(text)
        for reason, case in cases:
            yield f"{test[1]} {case}", " ".join(reason.split())
        if not cases and re.search(r"^Test (Skipped|Not Run)", test[2], re.MULTILINE):
            yield test[1], " ".join(text.split()[-40:])


def main():
    for build in map(pathlib.Path, sys.argv[1:]):
        found = list(skipped((build / "Testing/Temporary/LastTest.log").read_text(errors="replace")))
        print(f"{build}: {len(found)} not run" + (", because:" if found else ""))
        for name, reason in found:
            print(f"  {name}: {reason}")


if __name__ == "__main__":
    main()
