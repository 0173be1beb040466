#!/usr/bin/env bash
# instructions.sh MOST PROGRAM ARGUMENTS...: the program takes at most so many instructions, without
# those of the kernel and of the programs that it starts. In small programs, loading the libraries
# takes most of them, and each library that a program is linked with adds to every run.
set -euo pipefail
most=$1
shift

if ! command -v valgrind >/dev/null; then
    echo 'Skipped: valgrind is not installed, so instructions are not counted.'
    exit 77
fi
TMPDIR=$(mktemp -d) # kxsim looks at what other runs left in it
export TMPDIR
trap 'rm -rf "$TMPDIR"' EXIT
counted=$(valgrind --tool=callgrind --callgrind-out-file=/dev/null "$@" 2>&1 |
    awk '/I +refs/ {gsub(",", "", $NF); print $NF}')
echo "${1##*/} ${*:2}: ${counted:-0} instructions; at most $most"
[[ -n $counted ]] && ((counted <= most))
