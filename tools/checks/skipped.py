#!/usr/bin/env python3
"""List every test and every case of a test that did not run, and why.

    tools/checks/skipped.py BUILD-DIRECTORY...    reads the log of the last run of ctest there
"""
import pathlib
import re
import sys

TEST = re.compile(r"\d+/\d+ Test: (.+)")
CASE = re.compile(r"\S+: Skipped")
END_OF_CASE = re.compile(r"\[  SKIPPED \] (\S+) \(")
NOT_RUN = re.compile(r"Test (Skipped|Not Run)")
LAST_WORDS = 40


def skipped(lines):
    """The name and the reason of each, in the order of the log."""
    test, words, reason, cases = "", [], None, 0
    for line in lines:
        if begin := TEST.fullmatch(line):
            test, words, reason, cases = begin[1], [], None, 0
        elif CASE.fullmatch(line):
            reason = []
        elif reason is not None and (end := END_OF_CASE.match(line)):
            yield f"{test} {end[1]}", " ".join(reason)
            reason, cases = None, cases + 1
        elif NOT_RUN.match(line) and cases == 0:
            yield test, " ".join(words[-LAST_WORDS:])
        elif line == "<end of output>":
            reason = None
        else:
            (words if reason is None else reason).extend(line.split())


def main():
    for build in map(pathlib.Path, sys.argv[1:]):
        log = (build / "Testing/Temporary/LastTest.log").read_text(errors="replace")
        found = list(skipped(log.splitlines()))
        print(f"{build}: {len(found)} not run" + (", because:" if found else ""))
        for name, reason in found:
            print(f"  {name}: {reason}")


if __name__ == "__main__":
    main()
