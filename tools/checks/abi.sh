#!/usr/bin/env bash
# Compare the interface of the built library with the baseline in the tree.
#
#     tools/checks/abi.sh [--update]
#
# Ends with 0 when they are the same, and prints the difference otherwise. --update writes the
# baseline anew; agents that are already built must be able to live with what changes in it.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
library=$root/build/release/libkxlinhw.so
baseline=$root/tests/interface/libkxlinhw.abi

describe() {
    abidw --headers-dir "$root/include/kxlinhw" --no-corpus-path --no-comp-dir-path \
        --exported-interfaces-only "$library"
}

if [[ ${1:-} == --update ]]; then
    describe >"$baseline"
    exit
fi
abidiff --headers-dir2 "$root/include/kxlinhw" "$baseline" "$library"
echo 'The interface is that of the baseline.'
