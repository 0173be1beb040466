#!/usr/bin/env bash
# Let every call of every exported function fail, at every position, and call each function many
# times; print how many failures and calls there were. Needs a release build with tests.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
programs=$root/build/release/tests
if [[ -d /dev/shm ]]; then
    export TMPDIR=/dev/shm
fi
export KX_THOROUGH=1

for program in trust_failing_calls trust_released; do
    printf '%s: ' "$program"
    output=$("$programs/$program" 2>/dev/null) || {
        printf '%s\n' "$output" | grep -a -A8 Failure
        exit 1
    }
    printf '%s\n' "$output" | grep -a -E '^[0-9]+ (failures|calls), '
done
