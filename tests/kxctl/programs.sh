#!/usr/bin/env bash
# programs.sh KXCTL: a list of machines starts virsh a few times, however many machines there are. The
# states of all machines are right.
set -euo pipefail
kxctl=$1
most=3

if ! command -v strace >/dev/null || ! strace -o /dev/null true 2>/dev/null; then
    echo 'Skipped: strace is not installed, or may not trace here.'
    exit 77
fi
if [[ ! -x /usr/bin/virsh ]]; then
    echo 'Skipped: virsh is not installed (libvirt-clients).'
    exit 77
fi
export ASAN_OPTIONS=detect_leaks=0 # the leak check does not work in a traced program
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
for number in {1..20}; do
    printf '[[vm]]\nname = "run%d"\nstate = "running"\n' "$number"
done >"$work/machines.toml"
for number in {1..3}; do
    printf '[[vm]]\nname = "pause %d"\nstate = "paused"\n[[vm]]\nname = "off%d"\n' "$number" "$number"
done >>"$work/machines.toml"

strace -f -e trace=execve -o "$work/started" "$kxctl" --sim "$work/machines.toml" vm list --json >"$work/list"
states() { grep -c "\"state\": \"$1\"" "$work/list" || true; }
echo "$(states running) running, $(states paused) paused, $(states 'shut off') shut off; 20, 3 and 3 are right"
started=$(grep -c 'execve("/usr/bin/virsh".* = 0$' "$work/started" || true)
quoted=3 # names with blanks are asked one by one
echo "virsh was started $started times; at most $((most + quoted))"
[[ $(states running) == 20 && $(states paused) == 3 && $(states 'shut off') == 3 ]]
((started <= most + quoted))
