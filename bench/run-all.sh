#!/usr/bin/env bash
# Measures everything and writes docs/performance.md.
#
#     bench/run-all.sh [BUILD-DIRECTORY]    measure, write the page (as root: it makes networks)
#
# Each measurement runs on a machine of a chosen size (kx-bench-host). One warm call costs what a
# process that makes k + 1 calls has more than one that makes k.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

export KXBENCH_BUILD=${KXBENCH_BUILD:-$PWD/${1:-build/release}}
programs=$KXBENCH_BUILD/bench
here=bench/run-all.sh

# --- Counting ---

# system_calls COMMAND...: of the process and its children
system_calls() {
    local log
    log=$(mktemp)
    strace -f -qq -c -o "$log" "$@" >/dev/null 2>&1 || true
    awk '$NF == "total" { print $4 }' "$log"
    rm -f "$log"
}

# callgrind OPTION COMMAND...: instructions outside of the kernel, of the process and its children
callgrind() {
    local log
    log=$(mktemp)
    valgrind --tool=callgrind --callgrind-out-file=/dev/null --log-file="$log" "$@" >/dev/null 2>&1 || true
    sed -n 's/.*Collected *: *//p' "$log" | awk '{ sum += $1 } END { print sum + 0 }'
    rm -f "$log"
}

# Of one warm call: calls_of CASE SIDE, instructions_of CASE SIDE
calls_of() {
    local fewer more
    fewer=$(system_calls "$programs/kx-bench-calls" "$@" 2)
    more=$(system_calls "$programs/kx-bench-calls" "$@" 3)
    echo $((more - fewer))
}

instructions_of() { callgrind --instr-atstart=no "$programs/kx-bench-calls" "$@" 3; }

# wall_us COMMAND...: the shortest of ten runs
wall_us() {
    local best= i start took
    for ((i = 0; i < 10; ++i)); do
        start=${EPOCHREALTIME/./}
        "$@" >/dev/null 2>&1 || true
        took=$((${EPOCHREALTIME/./} - start))
        if [[ -z $best ]] || ((took < best)); then
            best=$took
        fi
    done
    echo "$best"
}

# --- Arithmetic and rows ---

ratio() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.2f", a / b }'; }

# verdict VALUE GOAL
verdict() { awk -v v="$1" -v g="$2" 'BEGIN { print (v <= g + 0.005 ? "met" : "**missed**") }'; }

thousands() { sed -E ':a; s/^([0-9]+)([0-9]{3})/\1,\2/; ta' <<<"$1"; }

row() {
    local cell line='|'
    for cell in "$@"; do
        line+=" $cell |"
    done
    printf '%s\n' "$line"
}

# cpu CASE: "library floor ratio", the medians in microseconds
cpu() {
    "$programs/kx-bench-pairs" "$1" --benchmark_min_time="${KXBENCH_SECONDS:-1}" \
        --benchmark_format=csv 2>/dev/null |
        awk -F, '$1 ~ /^"/ && NF > 3 { print $(NF - 1), $(NF - 2), $NF }'
}

# --- On the measured machine ---

# measure TITLE CASE CALL-GOAL INSTRUCTION-GOAL CPU-GOAL [COUNTERS]: a row of the first table. With a
# number of counters the instructions' goal is what each may take above the floor.
measure() {
    local title=$1 case=$2 goals=("${@:3:3}") counters=${6:-}
    "$programs/kx-bench-calls" "$case" agree >/dev/null
    local calls=() work=() side times
    for side in library floor; do
        calls+=("$(calls_of "$case" "$side")")
        work+=("$(instructions_of "$case" "$side")")
    done
    read -r -a times < <(cpu "$case")
    local call_ratio work_ratio work_goal=${goals[1]} work_unit=
    call_ratio=$(ratio "${calls[@]}")
    work_ratio=$(ratio "${work[@]}")
    if [[ -n $counters ]]; then
        work_ratio=$(ratio $((work[0] - work[1])) "$counters")
        work_unit=' a counter above'
    fi
    row "$title" \
        "$(thousands "${calls[0]}") / $(thousands "${calls[1]}")" \
        "$call_ratio" "${goals[0]} $(verdict "$call_ratio" "${goals[0]}")" \
        "$(thousands "${work[0]}") / $(thousands "${work[1]}")" \
        "$work_ratio$work_unit" "$work_goal $(verdict "$work_ratio" "$work_goal")" \
        "$(printf '%.0f / %.0f' "${times[0]}" "${times[1]}")" \
        "$(printf '%.2f' "${times[2]}")" "${goals[2]} $(verdict "${times[2]}" "${goals[2]}")"
}

# counted CASE: a row of calls without a floor
counted() {
    row "\`$1\`" "$(thousands "$(calls_of "$1" library)")" \
        "$(thousands "$(instructions_of "$1" library)")"
}

# beside TITLE CASE PARTS-OF-INSTRUCTIONS PARTS-OF-WALL COMMAND...: our warm call and whole processes
# that tell the same. Commands are words of the shell, one argument each; 0 parts set no goal.
beside() {
    local title=$1 case=$2 work_goal=$3 wall_goal=$4 command
    local ours theirs=0 our_wall their_wall=0 words
    ours=$(instructions_of "$case" library)
    our_wall=$(cpu "$case" | awk '{ printf "%.0f", $1 }')
    for command in "${@:5}"; do
        read -r -a words <<<"$command"
        theirs=$((theirs + $(callgrind --instr-atstart=yes "${words[@]}")))
        their_wall=$((their_wall + $(wall_us "${words[@]}")))
    done
    local work_part wall_part work_verdict=- wall_verdict=-
    work_part=$(ratio "$theirs" "$ours")
    wall_part=$(ratio "$their_wall" "$our_wall")
    if [[ $work_goal != 0 ]]; then
        work_verdict="1/$work_goal $(verdict "$work_goal" "$work_part")"
    fi
    if [[ $wall_goal != 0 ]]; then
        wall_verdict="1/$wall_goal $(verdict "$wall_goal" "$wall_part")"
    fi
    row "$title" "$(thousands "$ours")" "$(thousands "$theirs")" "1/$work_part" "$work_verdict" \
        "$our_wall" "$their_wall" "1/$wall_part" "$wall_verdict"
}

if [[ ${1:-} == inside ]]; then
    "${@:2}"
    exit
fi

# on HOST-OPTIONS -- FUNCTION ARGUMENTS...: on a machine of that size
on() {
    local options=()
    while [[ $1 != -- ]]; do
        options+=("$1")
        shift
    done
    printf '%s\n' "  $*" >&2
    "$programs/kx-bench-host" "${options[@]}" -- "$here" inside "${@:2}"
}
