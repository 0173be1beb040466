#!/usr/bin/env bash
# Compare the interface of the built library with the baseline in the tree.
#
#     tools/checks/abi.sh [--update] [LIBRARY]
#
# Ends with 0 when they are the same, and prints the difference otherwise. --update writes a new
# baseline; its changes must be compatible with agents that are already built.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
update=
if [[ ${1:-} == --update ]]; then
    update=yes
    shift
fi
library=${1:-$root/build/release/libkxlinhw.so}
baseline=$root/tests/interface/libkxlinhw.abi

describe() {
    abidw --headers-dir "$root/include/kxlinhw" --no-corpus-path --no-comp-dir-path \
        --exported-interfaces-only "$library"
}

if ! command -v abidiff >/dev/null; then
    echo 'Skipped: abidiff (abigail-tools) is not installed.'
    exit 77
fi
if [[ -n $update ]]; then
    describe >"$baseline"
    exit
fi
abidiff --headers-dir2 "$root/include/kxlinhw" "$baseline" "$library"
echo 'The interface is that of the baseline.'
