#!/usr/bin/env bash
# Make the calls of every exported function, of every member of the class and of every command of
# kxctl fail: the first calls one by one, later ones at growing distances. Call each function many
# times. Cut changes of a flash at every position. Print how many failures, calls and cuts there were;
# end with 1 when a test failed. Needs a release build with tests.
#
#     tests/fault_injection/faults.sh [COUNT]    COUNT: failures for each command of kxctl (40)
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
programs=$root/build/release/tests
if [[ -d /dev/shm ]]; then
    export TMPDIR=/dev/shm
fi
export KX_THOROUGH=${1:-40}
shards=$(nproc)
output=$(mktemp -d)
trap 'rm -rf "$output"' EXIT

# run PROGRAM: all its tests, a shard on each processor. What the library prints goes to standard
# output as well, whatever bytes it is.
run() {
    local shard processes=() process failed=0
    for ((shard = 0; shard < shards; ++shard)); do
        GTEST_TOTAL_SHARDS=$shards GTEST_SHARD_INDEX=$shard "$programs/$1" \
            >"$output/$shard" 2>/dev/null &
        processes+=($!)
    done
    for process in "${processes[@]}"; do
        wait "$process" || failed=1
    done
    # "12 failures, 3 commands" of each shard
    cat "$output"/* | tr -d '\0' | grep -a -o -E '[0-9]+ (failures|calls|cuts), .*' |
        awk -v name="$1" '{ sum += $1; $1 = ""; what = $0 } END { print name ": " sum what }'
    if ((failed)); then
        cat "$output"/* | tr -d '\0' | grep -a -A12 Failure >&2 ||
            printf '%s ended without saying what failed\n' "$1" >&2
    fi
    return "$failed"
}

status=0
for program in fault_injection_failing_calls fault_injection_failing_machines fault_injection_failing_commands fault_injection_released kxctl_flash_cut kxctl_change_cut kxctl_apply_cut; do
    run "$program" || status=1
done
exit "$status"
