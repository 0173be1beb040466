#!/usr/bin/env bash
# systemd accepts the services, and their order at start-up is right.
set -euo pipefail
units=$1
kxctl=$2

if ! command -v systemd-analyze >/dev/null; then
    echo "systemd-analyze is not installed: the services cannot be checked"
    exit 77
fi

directory=$(mktemp -d)
trap 'rm -rf "$directory"' EXIT
failed=0

# expect UNIT LINE...: the unit holds each of the lines.
expect() {
    local unit=$1 line
    shift
    for line in "$@"; do
        if ! grep -qxF -- "$line" "$units/$unit"; then
            echo "$unit lacks: $line"
            failed=1
        fi
    done
}

expect kxlinhw-restore.service Type=oneshot \
    'After=systemd-modules-load.service systemd-udev-trigger.service kxlinhw-repair.service' \
    'Documentation=man:kxctl(8) man:kxportparams.conf(5)' \
    'Before=network-pre.target network-online.target'
expect kxlinhw-repair.service Type=oneshot 'Documentation=man:kxctl(8)' \
    'Before=systemd-sysctl.service sysinit.target shutdown.target'

for unit in kxlinhw-repair.service kxlinhw-restore.service; do
    sed "s|^ExecStart=.*/kxctl |ExecStart=$kxctl |" "$units/$unit" >"$directory/$unit"
    grep -q "^ExecStart=$kxctl re" "$directory/$unit" || failed=1
done
systemd-analyze verify --man=no "$directory"/*.service || failed=1

# systemd-udev-settle.service waits for all hardware of the host; ports that appear late have a udev rule.
if grep -n 'udev-settle' "$units"/*.service; then
    failed=1
fi

# The exposure of a service by systemd's own table: 0 to 100, in tenths of what it prints.
most_exposure=40
if ! systemd-analyze security --offline=true --threshold="$most_exposure" \
    "$directory"/*.service >"$directory/exposure"; then
    grep 'Overall exposure' "$directory/exposure"
    failed=1
fi
exit $failed
