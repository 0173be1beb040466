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
    'After=systemd-udev-settle.service systemd-modules-load.service kxlinhw-repair.service' \
    'Before=network-pre.target network-online.target'
expect kxlinhw-repair.service Type=oneshot \
    'Before=systemd-sysctl.service sysinit.target shutdown.target'

for unit in kxlinhw-repair.service kxlinhw-restore.service; do
    sed "s|^ExecStart=.*/kxctl |ExecStart=$kxctl |" "$units/$unit" >"$directory/$unit"
    grep -q "^ExecStart=$kxctl re" "$directory/$unit" || failed=1
done
systemd-analyze verify --man=no "$directory"/*.service || failed=1
exit $failed
