#!/usr/bin/env bash
# Let the calls of every exported function, of every member of the class and of every command of
# kxctl fail, one by one near the start and ever fewer after; call each function many times. Print
# how many failures and calls there were. Needs a release build with tests.
#
#     tests/trust/faults.sh [all]    all: of a command every kind of call at some 50 positions
#                                    (hours), not 40 calls
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
programs=$root/build/release/tests
if [[ -d /dev/shm ]]; then
    export TMPDIR=/dev/shm
fi
export KX_THOROUGH=${1:-1}

# run PROGRAM SHARD: the tests of a program that fall to this shard.
run() {
    local output
    output=$(GTEST_TOTAL_SHARDS=$shards GTEST_SHARD_INDEX=$2 "$programs/$1" 2>/dev/null) || {
        printf '%s\n' "$output" | grep -a -A12 Failure
        return 1
    }
    printf '%s: %s\n' "$1" "$(printf '%s\n' "$output" | grep -a -o -E '[0-9]+ (failures|calls), .*')"
}

shards=$(nproc)
for program in trust_failing_calls trust_failing_machines trust_failing_commands trust_released; do
    shard_processes=()
    for ((shard = 0; shard < shards; ++shard)); do
        run "$program" "$shard" &
        shard_processes+=($!)
    done
    for process in "${shard_processes[@]}"; do
        wait "$process"
    done
done
