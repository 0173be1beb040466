#!/usr/bin/env bash
# Run tests where machines differ from each other, one environment after the other.
#
#     tests/environments.sh [-a] [ENVIRONMENT...]
#
# Uses the release build with its tests. A sample runs: a few tests of each folder; with -a every
# test but those that start each command again. Without names, every environment runs but `clone`,
# which builds the programs once more. An environment that cannot be made here says why. Ends with 1
# when a test failed in one of them.
set -euo pipefail
root=/tmp/w/h0
programs=$root/build/release/tests

sample=(unit_config_file unit_small_file agent_own_services sim_card_list sim_module_info
        sim_set_entry sim_recording kxsim_paths kxsim_listing vm_vf_discovery real_inventory
        kxctl_restore kxctl_scratch_directory kxctl_simulation kxctl_working_directory
        docs_completion)
quick=(unit_config_file sim_card_list kxctl_restore docs_completion)
slow='kxctl_(exit_code|golden|schema|streams|report)|fault_injection_.*|fuzz_.*|.*_joined_.*'

usage() {
    sed -n '2,/^set/{/^#/s/^# \{0,1\}//p}' "${BASH_SOURCE[0]}"
}

can_not() { # WHY: this environment does not exist here
    printf '    left out: %s\n' "$*"
}

# Each environment: what it is, and a function that runs a command in it.

about_blanks='TMPDIR with a blank, an umlaut and parentheses'
in_blanks() {
    mkdir -p "$scratch/a (b) ü"
    TMPDIR="$scratch/a (b) ü" "$@"
}

about_german='LC_ALL=de_DE.UTF-8, where 1.5 is 1,5'
in_german() {
    if ! localedef -i de_DE -f UTF-8 "$scratch/de_DE.UTF-8" >/dev/null 2>&1; then
        can_not 'localedef has no de_DE (package locales)'
        return
    fi
    LOCPATH=$scratch LC_ALL=de_DE.UTF-8 LANGUAGE=de "$@"
}

about_chatham='a time zone 13:45 hours away'
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
    if ((EUID != 0)); then
        can_not 'only root can become nobody'
    elif ! setpriv --reuid=65534 --regid=65534 --clear-groups test -x "$programs"; then
        can_not "nobody cannot read $programs"
    else
        mkdir -p "$scratch/nobody"
        chmod 777 "$scratch/nobody"
        cd "$scratch/nobody"
        TMPDIR=$scratch/nobody HOME=/nonexistent \
            setpriv --reuid=65534 --regid=65534 --clear-groups "$@"
    fi
}

about_no_namespaces='no user namespaces'
in_no_namespaces() {
    if ! unshare --user --map-root-user true 2>/dev/null; then
        can_not 'there are no user namespaces at all, so all environments show this'
        return
    fi
    # shellcheck disable=SC2016 # "$@" is the inner shell's
    unshare --user --map-root-user bash -c 'echo 0 >/proc/sys/user/max_user_namespaces; "$@"' - "$@"
}

about_no_network='no network, not even the loopback interface'
in_no_network() {
    unshare --user --map-root-user --net "$@"
}

about_no_ipv6='IPv6 off'
in_no_ipv6() {
    # shellcheck disable=SC2016 # "$@" is the inner shell's
    unshare --user --map-root-user --net bash -c '
        ip link set lo up && echo 1 >/proc/sys/net/ipv6/conf/all/disable_ipv6 && "$@"' - "$@"
}

about_read_only='a read-only /etc'
in_read_only() {
    # shellcheck disable=SC2016 # "$@" is the inner shell's
    unshare --user --map-root-user --mount bash -c '
        mount --bind /etc /etc && mount -o remount,ro,bind /etc && "$@"' - "$@"
}

about_one_processor='one processor'
in_one_processor() {
    taskset -c 0 "$@"
}

environments=(blanks german chatham umask nobody no_namespaces no_network no_ipv6 read_only
              one_processor)

# A program that stands alone, or its test of a joined program; prints what failed only.
run_programs() {
    local program failed=0 count=0
    for program in "$@"; do
        count=$((count + 1))
        if ! (cd "$scratch/place" && "$programs/$program" </dev/null >"$scratch/said" 2>&1); then
            failed=$((failed + 1))
            printf '    %s failed:\n' "$program"
            grep -a -B1 -A12 -E 'Failure|FAILED' "$scratch/said" | head -40 || tail -20 "$scratch/said"
        fi
    done
    printf '    %d of %d test programs pass\n' "$((count - failed))" "$count"
    return $((failed > 0))
}

# The tree below a path that shells and build tools like to break, the demo before the tests.
about_clone='a clone below a path with a blank, an umlaut and parentheses, and the demo before the tests'
clone() {
    local place="$scratch/a clone (ü)"
    git clone -q --no-hardlinks "$root" "$place"
    (cd "$place" && ./run demo >"$scratch/said" 2>&1 && ./run check "${quick[@]}" >>"$scratch/said" 2>&1) || {
        tail -40 "$scratch/said"
        return 1
    }
    grep -a 'tests passed' "$scratch/said" | sed 's/^/    /'
}

all=
while getopts ah option; do
    case $option in
        a) all=yes ;;
        h) usage && exit ;;
        *) usage >&2 && exit 2 ;;
    esac
done
shift $((OPTIND - 1))
(($# > 0)) || set -- "${environments[@]}"

if [[ ! -x $programs/kxctl_restore ]]; then
    echo 'The release build has no tests; ./run test makes it.' >&2
    exit 1
fi
chosen=("${sample[@]}")
if [[ -n $all ]]; then
    mapfile -t chosen < <(cd "$programs" && find . -maxdepth 1 \( -type f -o -type l \) -executable \
        -name '*_*' -printf '%f\n' | grep -vxE "$slow|early_caller|kxctl_native" | sort)
fi

scratch=$(mktemp -d)
trap 'rm -rf -- "$scratch"' EXIT
chmod 755 "$scratch"
mkdir "$scratch/place"
chmod 1777 "$scratch/place"
: >"$scratch/said"
chmod 666 "$scratch/said"
export -f run_programs
export programs scratch

status=0
for environment in "$@"; do
    about=about_$environment
    if [[ -z ${!about:-} ]]; then
        printf 'There is no environment %s; there are: %s clone\n' "$environment" "${environments[*]}" >&2
        exit 2
    fi
    printf '%s: %s\n' "$environment" "${!about}"
    if [[ $environment == clone ]]; then
        clone || status=1
    else
        # shellcheck disable=SC2016 # "$@" is the inner shell's
        (in_"$environment" bash -c 'run_programs "$@"' - "${chosen[@]}") || status=1
    fi
done
exit "$status"
