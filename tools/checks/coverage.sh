#!/usr/bin/env bash
# Build the library with coverage counters, run the tests on it, print lines and branches of src/
# that were run.
#
#     tools/checks/coverage.sh [CTEST-OPTION...]
#
# The test programs of build/release load the counting library instead of their own. Only the unit
# tests, which contain the library's objects, are built again. Tests of the simulated host and of
# kxctl are left out, and tests that take a minute and cover nothing new. The page with every line
# is build/coverage/report/index.html.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
cd "$root"

cmake --preset coverage -DKXLINHW_BUILD_TESTS=ON >/dev/null
cmake --build --preset coverage --target kxlinhw tests/unit/all
find build/coverage -name '*.gcda' -delete
ctest --preset coverage -j "$(nproc)" -L '^unit$' "$@"
LD_LIBRARY_PATH=$root/build/coverage ctest --preset release -j "$(nproc)" \
    -L '^(agent|sim|vm|fuzz)$' "$@"
mkdir -p build/coverage/report
# The compiler adds a branch for exceptions at each call; these are not counted.
gcovr --root . --filter 'src/' --exclude-throw-branches --exclude-unreachable-branches \
    --print-summary --html-details build/coverage/report/index.html build/coverage
