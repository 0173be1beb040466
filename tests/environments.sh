#!/usr/bin/env bash
# Run the tests of the release build where machines differ from each other, one environment after the
# other.
#
#     tests/environments.sh [all] [ENVIRONMENT...]
#
# Without `all`, a sample of the tests runs in each environment; it takes about a minute of one
# processor. With `all` every test runs in each, and the environment `clone` joins them, which builds
# the tree again. Prints one line for each environment, the cases that failed there, and why an
# environment cannot be made here. What the tests said, and why some did not run, is in
# build/environments/ENVIRONMENT.log. Ends with 1 when a test failed.
# shellcheck disable=SC2034,SC2317 # the variables and functions of an environment are found by its name
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build=$root/build/release
logs=$root/build/environments

# What depends on the machine: files and their modes, texts and numbers, users, namespaces, sockets,
# times, child processes; and what costs more, where it matters.
sample='unit_(config_file|small_file|shell)|agent_own_services|kxsim_(command_line|network|paths)|sim_(card_list|module_info|port_statistics|recording|set_entry)|vm_(bridge_interfaces|domain_file)|kxctl_(permission|power_cut|scratch_directory|simulation|working_directory)|example_(c|python)|real_inventory'
sample_of_blanks='docs_completion|machine_libraries'
# In a new clone: what finds programs and files by their paths.
of_paths=(exported_names direct_calls search_paths unit_small_file kxsim_paths kxctl_simulation
          docs_completion docs_manual docs_function_pages example_c example_python install packaged)

usage() {
    sed -n '2,/^#  *shellcheck\|^set/{/^# shellcheck/d;/^#/s/^# \{0,1\}//p}' "${BASH_SOURCE[0]}"
}

# private UNSHARE-OPTION...: with root's rights on what is private
private() {
    if ((EUID == 0)); then
        unshare "$@"
    else
        unshare --map-root-user "$@"
    fi
}

# Of each environment: what it is, and the function that runs a command there.

about_blanks='TMPDIR with a blank, an umlaut and parentheses'
temporary_of_blanks='a (b) ü'
in_blanks() {
    "$@"
}

about_german='LC_ALL=de_DE.UTF-8'
in_german() {
    [[ -d $scratch/de_DE.UTF-8 ]] || localedef -i de_DE -f UTF-8 "$scratch/de_DE.UTF-8"
    LOCPATH=$scratch LC_ALL=de_DE.UTF-8 LANGUAGE=de "$@"
}

about_chatham='TZ=Pacific/Chatham'
in_chatham() {
    TZ=Pacific/Chatham "$@"
}

about_umask='umask 077'
in_umask() (
    umask 077
    "$@"
)

about_nobody='the user nobody'
in_nobody() {
    HOME=/nonexistent setpriv --reuid=65534 --regid=65534 --clear-groups "$@"
}

about_no_namespaces='no user namespaces'
in_no_namespaces() {
    # shellcheck disable=SC2016 # "$@" is that of the inner shell
    unshare --map-root-user bash -c 'echo 0 >/proc/sys/user/max_user_namespaces && "$@"' - "$@"
}

about_no_network='no network, not even the loopback interface'
in_no_network() {
    private --net "$@"
}

about_no_ipv6='no IPv6'
in_no_ipv6() {
    # shellcheck disable=SC2016
    private --net bash -c 'cd /proc/sys/net/ipv6/conf && echo 1 >all/disable_ipv6 && cd - >/dev/null &&
        ip link set lo up && "$@"' - "$@"
}

about_read_only='a read-only /etc'
in_read_only() {
    # shellcheck disable=SC2016
    private --mount bash -c 'mount --bind /etc /etc && mount -o remount,ro,bind /etc && "$@"' - "$@"
}

about_one_processor='one processor'
in_one_processor() {
    local allowed
    allowed=$(sed -n 's/^Cpus_allowed_list:[[:space:]]*//p' /proc/self/status)
    taskset -c "${allowed%%[,-]*}" "$@"
}

# The copied lists of tests work, and ctest writes, in a directory that everybody may use; the file
# system in memory for the simulated hosts is that of the environment.
copy_tests() { # FOLDER TMPDIR
    mkdir -p "$1" "$2"
    (cd "$build" && find . -name CTestTestfile.cmake -exec cp --parents -t "$1" {} +)
    find "$1" -name CTestTestfile.cmake -exec sed -i "s|TMPDIR=/dev/shm|TMPDIR=$2|" {} +
    chmod -R a+rwX "$1"
    chmod 1777 "$2"
}

# report ENVIRONMENT STATUS: the counts and what failed
report() {
    local log=$logs/$1.log skipped
    "$root/tools/checks/skipped.py" "$scratch/$1" >>"$log" 2>&1 || :
    skipped=$(sed -n 's/.*: \([0-9]* not run\).*/\1/p' "$log")
    printf '%s; %s\n' "$(grep -a 'tests passed' "$log" || echo 'ctest ended early')" "$skipped"
    (($2 == 0)) && return
    sed -n '/^The following tests FAILED/,$p' "$log" | grep -aE '^\s+[0-9]+ - ' || tail -5 "$log"
    grep -aE '^\[  FAILED  \] [^ ]+ \(' "$log" | sort -u || :
}

run_in() { # ENVIRONMENT
    local about=about_$1 more=sample_of_$1 temporary=temporary_of_$1 chosen=. status=0
    temporary=$scratch/${!temporary:-temporary}
    [[ -n $all ]] || chosen="^($sample${!more:+|${!more}})\$"
    printf '%s (%s): ' "$1" "${!about}"
    if ! (in_"$1" ls "$build/kxctl") >"$logs/$1.log" 2>&1; then
        printf 'left out: %s\n' "$(tail -1 "$logs/$1.log")"
        return
    fi
    copy_tests "$scratch/$1" "$temporary"
    # shellcheck disable=SC2030 # only there
    (export TMPDIR="$temporary" && cd "$scratch/$1" &&
        in_"$1" ctest -j "$(in_"$1" nproc)" --output-on-failure -R "$chosen") \
        </dev/null >"$logs/$1.log" 2>&1 || status=1
    report "$1" "$status"
    return "$status"
}

about_clone='a clone in a folder with a blank, an umlaut and parentheses; the demo before the tests'
run_clone() {
    local place="$scratch/a clone (ü)" log=$logs/clone.log status=0
    printf 'clone (%s): ' "$about_clone"
    git clone -q --no-hardlinks "$root" "$place"
    (cd "$place" && ./run demo && ./run check "${of_paths[@]}") </dev/null >"$log" 2>&1 || status=1
    mkdir -p "$scratch/clone"
    cp -r "$place/build/release/Testing" "$scratch/clone" 2>/dev/null || :
    report clone "$status"
    return "$status"
}

environments=(blanks german chatham umask nobody no_namespaces no_network no_ipv6 read_only
              one_processor)
all=
if [[ ${1:-} == all ]]; then
    shift
    all=yes
    environments+=(clone)
fi
for environment in "$@"; do
    if [[ " ${environments[*]} clone " != *" $environment "* ]]; then
        usage >&2
        printf '\nThere is no environment %s; there are: %s clone\n' "$environment" "${environments[*]}" >&2
        exit 2
    fi
done
if [[ ! -f $build/tests/CTestTestfile.cmake ]]; then
    echo 'The release build has no tests; ./run test builds them.' >&2
    exit 1
fi

# Simulated hosts are directories, which a file system in memory makes fast.
# shellcheck disable=SC2031
scratch=$(mktemp -d -p "$([[ -d /dev/shm ]] && echo /dev/shm || echo "${TMPDIR:-/tmp}")")
trap 'rm -rf -- "$scratch"' EXIT
chmod 755 "$scratch"
mkdir -p "$logs"

status=0
for environment in "${@:-${environments[@]}}"; do
    if [[ $environment == clone ]]; then
        run_clone || status=1
    else
        run_in "$environment" || status=1
    fi
done
exit "$status"
