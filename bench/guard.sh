#!/usr/bin/env bash
# Fails when a call costs more system calls or instructions than bench/calls.tsv allows. Counts only,
# which are the same on a busy machine.
#
#     bench/guard.sh BUILD-DIRECTORY    as root, with strace and valgrind; else skipped (77)
# shellcheck disable=SC2317  # functions are called by name, on the measured machine
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

export KXBENCH_BUILD=${KXBENCH_BUILD:-$1}
source bench/counting.sh

# excess TITLE CASE CALL-GOAL INSTRUCTION-GOAL CPU-GOAL [COUNTERS]: prints both counts, and fails
excess() {
    local title=$1 case=$2 call_goal=$3 work_goal=$4 counters=${6:-}
    "$programs/kx-bench-calls" "$case" agree >/dev/null
    local calls=() work=() side
    for side in library floor; do
        calls+=("$(calls_of "$case" "$side")")
        work+=("$(instructions_of "$case" "$side")")
    done
    local call_ratio work_ratio
    call_ratio=$(ratio "${calls[@]}")
    work_ratio=$(ratio "${work[@]}")
    if [[ -n $counters ]]; then
        work_ratio=$(ratio $((work[0] - work[1])) "$counters")
    fi
    printf '%s: system calls %s (at most %s), instructions %s (at most %s)\n' \
        "$title" "$call_ratio" "$call_goal" "$work_ratio" "$work_goal"
    awk -v a="$call_ratio" -v b="$call_goal" -v c="$work_ratio" -v d="$work_goal" \
        'BEGIN { exit !(a + 0 <= b + 0.005 && c + 0 <= d + 0.005) }'
}

failed=0

# guarded_row GUARDED TITLE HOST-OPTIONS EXCESS-ARGUMENTS...
guarded_row() {
    local options
    if [[ $1 == yes ]]; then
        read -r -a options <<<"$3"
        on "${options[@]}" -- excess "$2" "${@:4}" || failed=1
    fi
}

if [[ $1 == inside ]]; then
    "${@:2}"
    exit
fi

if ((EUID != 0)) || ! command -v strace >/dev/null || ! command -v valgrind >/dev/null; then
    echo 'Skipped: this needs root (for a network of its own), strace and valgrind.'
    exit 77
fi
each_row guarded_row
exit $failed
