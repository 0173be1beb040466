#!/usr/bin/env bash
# Measures everything and writes docs/performance.md.
#
#     bench/run-all.sh [BUILD-DIRECTORY]    as root: it creates networks, which disappear when it ends
#
# Each measurement runs on a machine of a chosen size (kx-bench-host). The cost of one warm call is
# the difference between a process with k + 1 calls and a process with k calls.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

export KXBENCH_BUILD=${KXBENCH_BUILD:-$PWD/${1:-build/release}}
source bench/counting.sh

# wall_us COMMAND...: the shortest of ten runs
wall_us() {
    local best='' i start took
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

# --- Rows ---

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

# measure TITLE CASE CALL-GOAL INSTRUCTION-GOAL CPU-GOAL [COUNTERS]: a row of the first table. With
# a number of counters, the goal limits the instructions that each counter may take above the floor.
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

# beside TITLE CASE PARTS-OF-INSTRUCTIONS PARTS-OF-WALL COMMAND...: our warm call compared with
# whole processes that give the same data. Commands are words of the shell, one argument each; 0
# parts set no goal.
beside() {
    local title=$1 case=$2 work_goal=$3 wall_goal=$4 command words
    local ours theirs=0 our_wall their_wall=0
    ours=$(instructions_of "$case" library)
    our_wall=$(cpu "$case" | awk '{ printf "%.0f", $1 }')
    for command in "${@:5}"; do
        read -r -d '' -a words <<<"$command" || true
        if [[ ${words[0]} == with_index ]]; then
            depmod 2>/dev/null
            words=("${words[@]:1}")
        fi
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

# counted_row TITLE CASE: a row of calls without a floor
counted_row() {
    row "$1" "$(thousands "$(calls_of "$2" library)")" \
        "$(thousands "$(instructions_of "$2" library)")"
}

memory() { "$programs/kx-bench-memory" "$@"; }

if [[ ${1:-} == inside ]]; then
    "${@:2}"
    exit
fi

# --- The page ---

machine() {
    local cache=$KXBENCH_BUILD/CMakeCache.txt
    printf -- '- processor: %s, %s of them\n' \
        "$(sed -n 's/^model name.*: //p' /proc/cpuinfo | head -n 1)" "$(nproc)"
    printf -- '- kernel %s, %s\n' "$(uname -r)" \
        "$(sed -n 's/^PRETTY_NAME="\(.*\)"/\1/p' /etc/os-release)"
    printf -- '- %s, build type %s (assertions off), libpci %s\n' "$(c++ --version | head -n 1)" \
        "$(sed -n 's/^CMAKE_BUILD_TYPE:[A-Z]*=//p' "$cache")" "$(pkg-config --modversion libpci)"
    printf -- '- load when the run began: %s\n' "$(cut -d' ' -f1-3 /proc/loadavg)"
}

calls_table() {
    row Call 'System calls, library / floor' ratio goal 'Instructions, library / floor' ratio goal \
        'CPU µs, library / floor' ratio goal
    row --- ---: ---: --- ---: ---: --- ---: ---: ---
    each_row measured_row
}

# measured_row GUARDED TITLE HOST-OPTIONS MEASURE-ARGUMENTS...
measured_row() {
    local options
    read -r -a options <<<"$3"
    on "${options[@]}" -- measure "$2" "${@:4}"
}

counted_table() {
    row Call 'System calls' 'Instructions (without children)'
    row --- ---: ---:
    on -- counted_row 'getAddress, 10 interfaces' getAddress
    on --interfaces 1000 -- counted_row 'getAddress, 1,000 interfaces' getAddress
    on -- counted_row 'getAddress and getPortParameters of one port' getPortParameters
    on -- counted_row 'setPortParams, MTU and four offloads' setPortParams
    on -- counted_row 'SetIwarpProps, all 30 parameters of iw_zfab4' SetIwarpProps
}

# Lines about operations begin with the family; the library prints the other lines.
flash_table() {
    row Operation 'Register accesses' must ''
    row --- ---: ---: ---
    "$programs/kx-bench-flash" --benchmark_format=csv --benchmark_min_time=0.1 2>/dev/null |
        awk -F, '/^"q[34] / { gsub(/"/, "", $1); gsub(/"/, "", $8); print $1 "," $4 "," $8 }' >"$scratch/flash"
    local name accesses must
    while IFS=, read -r name _ accesses; do
        must=$(flash_goal "$name")
        row "$name" "$(thousands "$accesses")" "${must:--}" \
            "$([[ -z $must ]] || { [[ $must == "$accesses" ]] && echo met || echo '**missed**'; })"
    done <"$scratch/flash"
    printf '\nOne MiB written and verified takes %s ms of CPU (goal 15: %s), the controller among them.\n' \
        "$(awk -F, '/MiB/ { printf "%.0f", $2 }' "$scratch/flash")" \
        "$(verdict "$(awk -F, '/MiB/ { print $2 }' "$scratch/flash")" 15)"
}

flash_goal() {
    case $1 in
        'q4 identification') echo 9 ;;
        'q4 read of 64 words') echo $((18 + 4 * 64)) ;;
        'q4 read of 1024 words') echo $((18 + 4 * 1024)) ;;
        'q4 page with verification') echo 556 ;;
        'q4 erase of 1 sector') echo $((16 + 1)) ;;
        'q4 erase of 16 sectors') echo $((16 * 16 + 1)) ;;
        'q4 configuration record written') echo 3799 ;;
        'q4 one MiB written and verified') echo $((4096 * 556)) ;;
        'q3 read of 64 words') echo $((8 + 4 * 64)) ;;
        'q3 page') echo 272 ;;
    esac
}

tools_table() {
    row 'Our warm call beside whole processes' 'Instructions' theirs part goal 'µs' theirs part goal
    row --- ---: ---: ---: --- ---: ---: ---: ---
    local port=(
        'ethtool eth0' 'ethtool -i eth0' 'ethtool -k eth0' 'ethtool -c eth0' 'ethtool -g eth0'
        'ethtool -a eth0' 'ip -j link show dev eth0' 'ip -j -4 addr show dev eth0'
        'ip -j -6 addr show dev eth0'
    )
    on -- beside 'one port by name / nine processes' getPortParameters 15 50 "${port[@]}"
    on -- beside 'GetPortInfo, 4 ports / nine processes for one' GetPortInfo 0 0 "${port[@]}"
    on -- beside 'GetCardInfo / ip -j -d link, 10 interfaces' GetCardInfo 5 0 'ip -j -d link'
    on --interfaces 100 -- beside 'GetCardInfo / ip -j -d link, 100 interfaces' \
        GetCardInfo 5 0 'ip -j -d link'
    on -- beside 'GetCardInfo / lspci' GetCardInfo 25 0 lspci
    on -- beside 'GetCardInfo / hwinfo --netcard' GetCardInfo 1500 0 'hwinfo --netcard'
    on -- beside 'GetCardInfo / lshw -C network' GetCardInfo 2500 0 'lshw -C network'
    on --modules 4000 --installed -- beside 'GetDriverDetails / modinfo of 13 names' \
        GetDriverDetails 1.67 0 "with_index modinfo zfab3 zfab4 zfab3m toecore q3_tom q4_tom bonding
        kxiscsi_base kxiscsi_q4 kxiscsi_q3 iw_zfab3 iw_zfab4 kxstor"
    on --interfaces 5000 -- beside 'GetCardInfo / ip -j -d link, 5,000 interfaces' \
        GetCardInfo 4 0 'ip -j -d link'
    on --interfaces 5000 -- beside 'GetPortInfo / ip -j -d link, 5,000 interfaces' \
        GetPortInfo 4 0 'ip -j -d link'
}

memory_table() {
    row Query 'KiB'
    row --- ---:
    row 'growth of the peak within one GetPortInfo, 5,000 interfaces, 256 ports' \
        "$(thousands "$(on --interfaces 5000 --ports 256 -- memory peak GetPortInfo)")"
    local case
    for case in GetCardInfo GetPortInfo GetPortStat; do
        row "growth over 10,000 calls of $case" "$(on -- memory growth $case 10000)"
    done
    row 'growth over 10,000 calls of GetDriverDetails, 13 modules' \
        "$(on --installed -- memory growth GetDriverDetails 10000)"
}

startup_table() {
    row Library 'CPU µs, median of 21' Relocations
    row --- ---: ---:
    local library
    for library in "$KXBENCH_BUILD/libkxlinhw.so.6" libvirt.so.0 libxerces-c-3.2.so libpci.so.3 \
        libstdc++.so.6; do
        row "\`${library##*/}\`" \
            "$(for _ in {1..21}; do "$programs/kx-bench-startup" "$library"; done |
                sort -n | sed -n 11p | { read -r us && thousands "$us"; })" \
            "$(LD_DEBUG=statistics "$programs/kx-bench-startup" "$library" 2>&1 |
                sed -n 's/.*final number of relocations: //p' | { read -r n && thousands "$n"; })"
    done
}

# The cost of one query a minute on one host, computed from the measured times.
scale_table() {
    row Call 'CPU ms a call' 'each minute: CPU s per host and day' '10,000 hosts: CPU hours a day'
    row --- ---: ---: ---:
    local case ms
    for case in GetCardInfo GetPortInfo GetPortStat GetDriverDetails; do
        ms=$(on --modules 4000 -- cpu $case | awk '{ print $1 / 1000 }')
        row "$case" "$(printf '%.2f' "$ms")" \
            "$(awk -v ms="$ms" 'BEGIN { printf "%.1f", ms * 1.440 }')" \
            "$(awk -v ms="$ms" 'BEGIN { printf "%.1f", ms * 1.440 * 10000 / 3600 }')"
    done
}

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

# The page is bench/performance.md.in with its @tables@ measured.
while IFS= read -r line; do
    if [[ $line =~ ^@([a-z_]+)@$ ]]; then
        printf '%s\n' "${BASH_REMATCH[1]}" >&2
        "${BASH_REMATCH[1]}"
    else
        printf '%s\n' "$line"
    fi
done <bench/performance.md.in >"$scratch/page"
mv "$scratch/page" docs/performance.md
echo docs/performance.md >&2
