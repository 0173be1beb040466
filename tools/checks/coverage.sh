#!/usr/bin/env bash
# Build the library and kxctl with coverage counters, run the tests on them, print lines and branches
# of src/ and of tools/kxctl/ that were run.
#
#     tools/checks/coverage.sh [CTEST-OPTION...]
#
# The test programs of build/release load the counting library instead of their own. Only the unit
# tests, which contain the library's objects, and the tests of kxctl are built again. Tests of the
# simulated host are left out, and tests that take a minute and cover nothing new. The pages with
# every line are build/coverage/report/SRC/index.html, of `src` and of `kxctl`.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
cd "$root"

# summary NAME FOLDER: the compiler adds a branch for exceptions at each call; these are not counted.
summary() {
    printf '== %s\n' "$2"
    mkdir -p "build/coverage/report/$1"
    gcovr --root . --filter "$2/" --exclude-throw-branches --exclude-unreachable-branches \
        --print-summary --html-details "build/coverage/report/$1/index.html" build/coverage
}

cmake --preset coverage -DKXLINHW_BUILD_TESTS=ON >/dev/null
cmake --build --preset coverage --target kxlinhw kxctl tests/unit/all tests/kxctl/all
find build/coverage -name '*.gcda' -delete
status=0
ctest --preset coverage -j "$(nproc)" -L '^(unit|kxctl)$' "$@" || status=$?
LD_LIBRARY_PATH=$root/build/coverage ctest --preset release -j "$(nproc)" \
    -L '^(agent|sim|vm|fuzz)$' "$@" || status=$?
summary src src
summary kxctl tools/kxctl
exit "$status"
