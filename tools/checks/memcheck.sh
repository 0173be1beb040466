#!/usr/bin/env bash
# Run commands of kxctl on the simulated lab host under valgrind, which tests more than the
# sanitizers: the optimised library that is shipped, and reads of uninitialised memory. Needs a
# release build and valgrind. Prints how many commands were clean.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/../.."
build=$PWD/build/release
suppressions=$PWD/tools/checks/memcheck.supp

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
cd "$scratch"

commands=(
    'card list' 'card stats 03:00.4' 'port list 03:00.4' 'port show 03:00.4 1'
    'port stats 03:00.4 1' 'port set 03:00.4 1 mtu=9000 tso=on' 'offload show 03:00.4'
    'offload set 03:00.4 activated=on mss=1460' 'iwarp show iw_zfab4' 'module list' 'adapter list'
    'adapter show 04:00.4' 'vpd show 04:00.4' 'flash info 03:00.4' 'flash config-show 03:00.4'
    'flash config-default 03:00.4 --yes --no-backup' 'vm list' 'vf list' 'bridge list web1'
    'restore' 'repair' 'metrics' 'version'
)
for command in "${commands[@]}"; do
    read -r -a words <<<"$command"
    if ! "$build/kxsim" run -- valgrind --quiet --error-exitcode=99 --leak-check=full \
        --errors-for-leak-kinds=definite --suppressions="$suppressions" \
        "$build/kxctl" "${words[@]}" >/dev/null 2>report; then
        printf 'kxctl %s:\n' "$command"
        cat report
        exit 1
    fi
done
printf '%d commands, no finding\n' "${#commands[@]}"
