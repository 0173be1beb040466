#!/usr/bin/env bash
# run_example.sh KXSIM SCENARIO EXIT-STATUS EXPECTED COMMAND...: the command, run on the simulated host,
# ends with that status and prints the texts of EXPECTED.out and EXPECTED.err.
set -euo pipefail
kxsim=$1 scenario=$2 status=$3 expected=$4
shift 4

directory=$(mktemp -d)
trap 'rm -rf "$directory"' EXIT
failed=0

got=0
"$kxsim" run --scenario "$scenario" -- "$@" >"$directory/out" 2>"$directory/err" || got=$?
if [[ $got -ne $status ]]; then
    echo "exit status $got instead of $status"
    failed=1
fi
for stream in out err; do
    diff -u --label expected --label printed "$expected.$stream" "$directory/$stream" || failed=1
done
exit $failed
