#!/usr/bin/env bash
# system_calls.sh KXSIM: the simulated host costs few system calls.
#
# - Making, running and removing the largest included host, among them the starts of two processes. A
#   file takes five: to open, write, set its mode, close and unlink.
# - Reading a file on it: two find the file's place in the tree.
set -euo pipefail
kxsim=$1
most=3900
most_of_a_file=17
files=100

if ! command -v strace >/dev/null || ! strace -o /dev/null true 2>/dev/null; then
    echo 'Skipped: strace is not installed, or may not trace here.'
    exit 77
fi
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
counts=$work/counts
export TMPDIR=$work # kxsim looks at what other runs left in it
export PATH=/usr/bin:/bin

# made_by COMMAND...: the number of system calls on the host
made_by() {
    strace -f -c -o "$counts" "$kxsim" run -s lab -- "$@" >/dev/null
    awk '$NF == "total" {print $4}' "$counts"
}

made=$(made_by true)
echo "kxsim run -s lab -- true: $made system calls; at most $most"

file=/sys/bus/pci/devices/0000:04:01.0/vendor
many=()
for ((number = 0; number <= files; ++number)); do
    many+=("$file")
done
of_a_file=$((($(made_by cat "${many[@]}") - $(made_by cat "$file")) / files))
echo "cat of a file: $of_a_file system calls; at most $most_of_a_file"
((made <= most && of_a_file <= most_of_a_file))
