#!/usr/bin/env bash
# Build with coverage counters, run all tests, print lines and branches of src/ that were run.
#
#     tools/checks/coverage.sh [CTEST-OPTION...]
#
# The page with every line is build/coverage/report/index.html.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
cd "$root"

cmake --preset coverage -DKXLINHW_BUILD_TESTS=ON >/dev/null
cmake --build --preset coverage
find build/coverage -name '*.gcda' -delete
ctest --preset coverage -j "$(nproc)" "$@"
mkdir -p build/coverage/report
# Branches that only an exception takes are the compiler's, one at each call.
gcovr --root . --filter 'src/' --exclude-throw-branches --exclude-unreachable-branches \
    --print-summary --html-details build/coverage/report/index.html build/coverage
