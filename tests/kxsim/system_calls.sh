#!/usr/bin/env bash
# system_calls.sh KXSIM: making, running and removing the largest included host takes few system
# calls, among them those of three processes that start. A file takes six: to look at its directory,
# open, write, set its mode, close and unlink.
set -euo pipefail
kxsim=$1
most=6000

if ! command -v strace >/dev/null || ! strace -o /dev/null true 2>/dev/null; then
    echo 'Skipped: strace is not installed, or may not trace here.'
    exit 77
fi
counts=$(mktemp)
trap 'rm -f "$counts"' EXIT
strace -f -c -o "$counts" "$kxsim" run -s lab -- true
made=$(awk '$NF == "total" {print $4}' "$counts")
echo "kxsim run -s lab -- true: ${made:-0} system calls; at most $most"
[[ -n $made ]] && ((made <= most))
