#!/usr/bin/env bash
# Fuzz every target for a while, each from its checked-in corpus and dictionary.
#
#     tests/fuzz/run.sh [-t SECONDS] [-r RUNS | -c] [-s SEED] [-j JOBS] [-k] [TARGET...]
#
# -t: seconds for each target (default 20); -r: end a target after so many executions;
# -c: end each target after its executions of executions.txt, however long they take;
# -s: of the random numbers (default another each time); -j: targets at a time (default one for
# each processor); -k: keep the inputs that reach something new, as few as possible, under
# build/fuzz/kept/TARGET. Those that every test run should replay are committed to the corpus.
# Prints executions and rate of each target and the sum; ends with 1 when there is a finding, which
# stays under build/fuzz/findings/TARGET.
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
root=$(cd "$here/../.." && pwd)
programs=$root/build/fuzz/tests
findings=$root/build/fuzz/findings
kept=$root/build/fuzz/kept

seconds=20 runs=-1 counted='' seed=0 jobs=$(nproc) keep=''
while getopts t:r:cs:j:k option; do
    case $option in
        t) seconds=$OPTARG ;;
        r) runs=$OPTARG ;;
        c) counted=yes seconds=0 ;;
        s) seed=$OPTARG ;;
        j) jobs=$OPTARG ;;
        k) keep=yes ;;
        *) exit 2 ;;
    esac
done
shift $((OPTIND - 1))

if (($# == 0)); then
    for source in "$here"/*_fuzz.cpp; do
        set -- "$@" "$(basename "$source" _fuzz.cpp)"
    done
fi

scratch=$(mktemp -d -p "$([[ -d /dev/shm ]] && echo /dev/shm || echo /tmp)")
trap 'rm -rf "$scratch"' EXIT

# What is not released by contract would be taken for a leak; crashes are the findings here.
export ASAN_OPTIONS=detect_leaks=0:quarantine_size_mb=16:allocator_may_return_null=1
export UBSAN_OPTIONS=print_stacktrace=1

# What a target reads beside its own corpus; CMakeLists.txt has the same list.
declare -A more_inputs=([scenario]=$root/sim/scenarios)

# in_place TARGET ARGUMENT...: a target leaves files where it runs.
in_place() {
    local target=$1
    mkdir -p "$scratch/$target.place"
    (cd "$scratch/$target.place" && TMPDIR=$PWD "$programs/fuzz_$target" -close_fd_mask=3 "${@:2}")
}

# runs_of TARGET
runs_of() {
    if [[ -z $counted ]]; then
        echo "$runs"
    elif ! sed -n "s/^$1 //p" "$here/executions.txt" | grep .; then
        echo "executions.txt has no line for $1" >&2
        return 1
    fi
}

# fuzz TARGET: leaves libFuzzer's statistics in $scratch/TARGET.log, and TARGET.found when it ended
# with a finding.
fuzz() {
    local target=$1 dictionary options=() executions
    executions=$(runs_of "$target") || {
        touch "$scratch/$target.log" "$scratch/$target.found"
        return
    }
    for dictionary in "$here/dictionaries/"{"$1","${1%%_*}"}.dict; do
        [[ -f $dictionary ]] && options=("-dict=$dictionary")
    done
    mkdir -p "$scratch/$target" "$findings/$target" "$here/corpus/$target"
    in_place "$target" -print_final_stats=1 -timeout=10 -rss_limit_mb=4096 -max_len=4096 \
        -max_total_time="$seconds" -runs="$executions" -seed="$seed" \
        -artifact_prefix="$findings/$target/" "${options[@]}" \
        "$scratch/$target" "$here/corpus/$target" ${more_inputs[$target]:+"${more_inputs[$target]}"} \
        >"$scratch/$target.log" 2>&1 ||
        touch "$scratch/$target.found"
}

# As few of the new inputs as reach what the checked-in ones do not. A merge adds to its first corpus
# what the others reach beyond it, so this is a copy of the checked-in one.
keep_new() {
    local target=$1 all=$scratch/$1.all
    rm -rf "${kept:?}/$target"
    mkdir -p "$all" "$kept/$target"
    cp "$here/corpus/$target/"* ${more_inputs[$target]:+"${more_inputs[$target]}"/*} "$all"
    ls "$all" >"$all.names"
    in_place "$target" -merge=1 -max_len=1024 "$all" "$scratch/$target" >/dev/null 2>&1
    (cd "$all" && printf '%s\n' * | grep -vxFf "$all.names" | xargs -r cp -t "$kept/$target")
}

statistic() { # TARGET NAME
    sed -n "s/^stat::$2: *//p" "$scratch/$1.log"
}

running=0
for target in "$@"; do
    if ((running++ >= jobs)); then
        wait -n
    fi
    fuzz "$target" &
done
wait

status=0 total=0
for target in "$@"; do
    if [[ -e $scratch/$target.found ]]; then
        status=1
        printf '%-16s FINDING, see %s\n' "$target" "$findings/$target"
        tail -n 40 "$scratch/$target.log" >&2
        continue
    fi
    executions=$(statistic "$target" number_of_executed_units)
    total=$((total + executions))
    printf '%-16s %10d executions, %7d a second, no finding\n' "$target" "$executions" \
        "$(statistic "$target" average_exec_per_sec)"
    if [[ -n $keep ]]; then
        keep_new "$target"
    fi
done
printf '%-16s %10d executions\n' all "$total"
exit "$status"
