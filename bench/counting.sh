# Counting functions that the scripts here source. KXBENCH_BUILD is the build directory.
# shellcheck shell=bash
programs=${KXBENCH_BUILD:?}/bench

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

ratio() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.2f", a / b }'; }

# on HOST-OPTIONS -- COMMAND ARGUMENTS...: the sourcing script's function, on a machine of that size
on() {
    local options=()
    while [[ $1 != -- ]]; do
        options+=("$1")
        shift
    done
    printf '  %s\n' "${options[*]} $*" >&2
    "$programs/kx-bench-host" "${options[@]}" -- "${BASH_SOURCE[1]}" inside "${@:2}"
}

# each_row FUNCTION: called with the columns of bench/calls.tsv, row by row
each_row() {
    local columns
    while IFS=$'\t' read -r -a columns; do
        "$1" "${columns[@]}" </dev/null
    done < <(grep -v '^#' bench/calls.tsv)
}
