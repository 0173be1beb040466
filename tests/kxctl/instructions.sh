#!/usr/bin/env bash
# instructions.sh KXCTL: the smallest command takes at most 3 million instructions. Loading the
# libraries takes most of them, and each library that kxctl is linked with adds to every command.
set -euo pipefail
kxctl=$1
most=3000000

if ! command -v valgrind >/dev/null; then
    echo 'Skipped: valgrind is not installed, so instructions are not counted.'
    exit 77
fi
counted=$(valgrind --tool=callgrind --callgrind-out-file=/dev/null "$kxctl" version 2>&1 |
    awk '/I +refs/ {gsub(",", "", $NF); print $NF}')
echo "kxctl version: ${counted:-0} instructions; at most $most"
[[ -n $counted ]] && ((counted <= most))
