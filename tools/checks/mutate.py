#!/usr/bin/env python3
"""Change the library in one place after the other and see whether the tests notice.

mutate.py [--count N] [--seed N] [--jobs N] [--again] [--report] [--launcher PROGRAM]

A mutant is one small change of one file of src/: a comparison, a constant, a condition, a statement,
a status. Each is built in a copy of the tree under build/mutation and given to the tests that can
see its folder, the nearest first, until one fails or takes far longer than usual. A mutant that does
not compile was noticed by the compiler and is replaced by another.

The test programs are those of build/release, which meet the changed library in the place of their
own; only the unit tests, which hold the library's objects, are built in the copy.

What was found is appended to build/mutation/results.jsonl, so that a run that was stopped goes on
where it was. --again runs those that survived again, after tests were added; --report runs
nothing. Ends with 1 when a mutant survived.
"""
import argparse
import difflib
import json
import os
import pathlib
import queue
import re
import resource
import shutil
import signal
import subprocess
import sys
import tempfile
import threading
import time

import mutants
from tests_of import FOLDERS

ROOT = pathlib.Path(__file__).resolve().parents[2]
PLACE = ROOT / "build" / "mutation"
RELEASE = ROOT / "build" / "release"
RESULTS = PLACE / "results.jsonl"

# The tests that can notice a change in a folder of src/.
SEEN_BY = {name.removeprefix("src/"): pattern for name, pattern in FOLDERS.items()
           if name.startswith("src/")}
LONGEST = 15  # seconds; a test that takes longer is none that runs for each mutant
GENEROUS = 20  # seconds, and ten times what the test took when nothing was changed

# The release build, except that warnings are allowed: each mutant builds one object of the library.
UNOPTIMISED = """
target_compile_options(kxlinhw_objects PRIVATE -O0 -g0 -U_FORTIFY_SOURCE -w)
"""


def copy_tree(to):
    """Bring what changed; what stayed keeps its time, so that little is built."""
    listed = subprocess.run(["git", "ls-files", "--cached", "--others", "--exclude-standard"],
                            cwd=ROOT, check=True, capture_output=True, text=True)
    for name in listed.stdout.splitlines():
        source, copy = ROOT / name, to / name
        if not source.is_file():
            continue
        content = source.read_bytes()
        if name == "src/CMakeLists.txt":
            content += UNOPTIMISED.encode()
        if copy.is_file() and copy.read_bytes() == content:
            continue
        copy.parent.mkdir(parents=True, exist_ok=True)
        copy.write_bytes(content)
        shutil.copymode(source, copy)


class Test:
    def __init__(self, row):
        self.name = row["name"]
        self.command = row["command"]
        listed = {entry["name"]: entry["value"] for entry in row.get("properties", [])}
        self.environment = dict(text.split("=", 1) for text in listed.get("ENVIRONMENT", []))
        self.usual = None  # seconds

    def holds_objects(self):
        """The unit tests have no library to replace and must be linked again."""
        return self.name.startswith("unit_")


def tests_of(build):
    """Of a directory in which they are built, those that can see a folder of src/."""
    shown = subprocess.run(["ctest", "--test-dir", build, "--show-only=json-v1"], check=True,
                           capture_output=True, text=True)
    wanted = re.compile("|".join(f"(?:{pattern})" for pattern in SEEN_BY.values()))
    return [Test(row) for row in json.loads(shown.stdout)["tests"]
            if "command" in row and wanted.fullmatch(row["name"])]


class Copy:
    """A tree of its own, built, in which one mutant after the other is tried."""

    def __init__(self, number, launcher):
        self.tree = PLACE / f"tree{number}"
        self.build = self.tree / "build"
        copy_tree(self.tree)
        options = [f"-DCMAKE_{language}_COMPILER_LAUNCHER={launcher}" for language in ("C", "CXX")
                   if launcher]
        self.must("cmake", "-G", "Ninja", "-S", self.tree, "-B", self.build,
                  "-DCMAKE_BUILD_TYPE=RelWithDebInfo", "-DKXLINHW_STRICT=OFF",
                  "-DKXLINHW_BUILD_TESTS=ON", *options)
        self.must("cmake", "--build", self.build, "-j", str(os.cpu_count()),
                  "--target", "kxlinhw", "tests/unit/all")
        own = [test for test in tests_of(self.build) if test.holds_objects()]
        self.tests = own + [test for test in tests_of(RELEASE) if not test.holds_objects()]
        self.environment = {**os.environ, "LD_LIBRARY_PATH": f"{self.build}:{RELEASE}",
                            "GTEST_FAIL_FAST": "1", "GTEST_BRIEF": "1"}

    @staticmethod
    def must(*command):
        done = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
        if done.returncode != 0:
            sys.exit(f"{done.stdout[-3000:]}\nThe unchanged tree must build and pass.")

    def measure(self):
        """Every test must pass before its failing can mean anything."""
        for test in self.tests:
            started = time.monotonic()
            if not self.passes(test, 600):
                sys.exit(f"{test.name} fails in the unchanged tree.")
            test.usual = time.monotonic() - started
        self.tests = [test for test in self.tests if test.usual < LONGEST]

    def passes(self, test, limit):
        scratch = tempfile.mkdtemp(prefix="kxmutant-", dir=scratch_place())
        environment = {**self.environment, **test.environment, "TMPDIR": scratch}
        with subprocess.Popen(test.command, cwd=scratch, env=environment, start_new_session=True,
                              stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                              stderr=subprocess.DEVNULL, preexec_fn=bound_process) as process:
            try:
                return process.wait(limit) in (0, 77)
            except subprocess.TimeoutExpired:
                return False
            finally:
                end_group(process.pid)
                shutil.rmtree(scratch, ignore_errors=True)

    def nearest(self, file):
        """Tests that see a file: those of its name, then quick ones before slow ones."""
        path = pathlib.PurePath(file)
        seen = re.compile(SEEN_BY[path.parts[1]])
        # Either name may be longer than the other: q3_boot and boot_image, iwarp_table and iwarp.
        name = path.stem.removesuffix("_table").removesuffix("_steps")
        tests = [test for test in self.tests if seen.fullmatch(test.name)]
        return sorted(tests, key=lambda test: (name not in test.name, test.usual))

    def build_targets(self, *targets):
        done = subprocess.run(["cmake", "--build", self.build, "--target", *targets],
                              stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        return done.returncode == 0

    def try_mutant(self, mutant):
        """The outcome, and the test that noticed."""
        file = self.tree / mutant.file
        source = file.read_text()
        file.write_text(mutant.applied_to(source))
        try:
            tests = self.nearest(mutant.file)
            if not self.build_targets("kxlinhw"):
                return "does not compile", None
            for test in tests:
                if test.holds_objects() and not self.build_targets(test.name):
                    return "does not compile", None
                if not self.passes(test, GENEROUS + 10 * test.usual):
                    return "killed", test.name
            return "survived", None
        finally:
            file.write_text(source)


def scratch_place():
    return "/dev/shm" if os.path.isdir("/dev/shm") else None


def bound_process():
    """A mutant may loop and allocate; it must not take the machine with it."""
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
    resource.setrlimit(resource.RLIMIT_FSIZE, (1 << 30, 1 << 30))
    resource.setrlimit(resource.RLIMIT_DATA, (4 << 30, 4 << 30))


def end_group(group):
    try:
        os.killpg(group, signal.SIGKILL)
    except ProcessLookupError:
        pass


class Ledger:
    """What is known of the mutants of earlier runs, by key; a changed line makes it unknown."""

    def __init__(self):
        self.rows = {}
        self.lock = threading.Lock()
        if RESULTS.is_file():
            for line in RESULTS.read_text().splitlines():
                row = json.loads(line)
                self.rows[row["key"]] = row

    def outcome(self, mutant):
        row = self.rows.get(mutant.key)
        return row["outcome"] if row and row["line"] == mutant.line_text else None

    def add(self, mutant, outcome, test):
        row = {"key": mutant.key, "line": mutant.line_text, "outcome": outcome, "by": test}
        with self.lock:
            self.rows[mutant.key] = row
            with RESULTS.open("a") as results:
                results.write(json.dumps(row) + "\n")


class Run:
    def __init__(self, options):
        self.options = options
        self.ledger = Ledger()
        self.order = mutants.choose(ROOT, options.seed)

    def counted(self):
        """The first mutants of the order that compile, as far as they were tried."""
        tried = [mutant for mutant in self.order if self.ledger.outcome(mutant)]
        compiled = [mutant for mutant in tried
                    if self.ledger.outcome(mutant) != "does not compile"]
        return compiled[:self.options.count]

    def next_mutants(self):
        if self.options.again:
            yield from [mutant for mutant in self.counted()
                        if self.ledger.outcome(mutant) == "survived"]
        for mutant in self.order:
            if len(self.counted()) >= self.options.count:
                return
            if self.ledger.outcome(mutant) is None:
                yield mutant

    def work(self, copy, waiting):
        while True:
            mutant = waiting.get()
            if mutant is None:
                return
            outcome, test = copy.try_mutant(mutant)
            self.ledger.add(mutant, outcome, test)
            print(f"{mutant.file}:{mutant.line}: {mutant.kind}: {outcome}"
                  + (f" by {test}" if test else ""), flush=True)

    def run(self):
        copies = [Copy(number, self.options.launcher) for number in range(self.options.jobs)]
        for copy in copies:
            copy.measure()
        print("All tests pass in the unchanged tree.", flush=True)
        waiting = queue.Queue(1)
        workers = [threading.Thread(target=self.work, args=(copy, waiting)) for copy in copies]
        for worker in workers:
            worker.start()
        for mutant in self.next_mutants():
            waiting.put(mutant)
        for _ in workers:
            waiting.put(None)
        for worker in workers:
            worker.join()

    def report(self):
        counted = self.counted()
        survivors = [mutant for mutant in counted if self.ledger.outcome(mutant) == "survived"]
        for mutant in survivors:
            print("".join(difference(mutant)))
        print(f"{'folder':<12}{'mutants':>8}{'killed':>8}{'survived':>10}")
        for folder in sorted(SEEN_BY):
            print_row(folder, *(sum(of_folder(mutant) == folder for mutant in group)
                                for group in (counted, survivors)))
        print_row("all", len(counted), len(survivors))
        return 1 if survivors else 0


def of_folder(mutant):
    return pathlib.PurePath(mutant.file).parts[1]


def print_row(name, count, survived):
    share = f"{100 * (count - survived) / count:6.1f} %" if count else ""
    print(f"{name:<12}{count:>8}{count - survived:>8}{survived:>10} {share}")


def difference(mutant):
    source = (ROOT / mutant.file).read_text()
    return difflib.unified_diff(source.splitlines(True),
                                mutant.applied_to(source).splitlines(True),
                                mutant.file, mutant.file, n=1)


def main():
    parser = argparse.ArgumentParser(description="See whether the tests notice changes of the library.")
    parser.add_argument("--count", type=int, default=200, help="mutants that compile (200)")
    parser.add_argument("--seed", type=int, default=1, help="of the choice (1)")
    parser.add_argument("--jobs", type=int, default=1, help="mutants at a time (1)")
    parser.add_argument("--again", action="store_true", help="first run those that survived again")
    parser.add_argument("--report", action="store_true", help="print what is known, run nothing")
    parser.add_argument("--launcher", default=shutil.which("ccache") or "",
                        help="in front of the compiler (ccache, where there is one)")
    run = Run(parser.parse_args())
    PLACE.mkdir(parents=True, exist_ok=True)
    if not run.options.report:
        run.run()
    sys.exit(run.report())


if __name__ == "__main__":
    main()
