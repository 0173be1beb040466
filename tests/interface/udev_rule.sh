#!/usr/bin/env bash
# udev_rule.sh PACKAGING KXSIM: the rule for ports that appear matches the kernel's description of a
# port, and names a service that can be restarted.
set -euo pipefail
packaging=$1 kxsim=$2
rule=$(grep -v '^#' "$packaging/udev/70-kxlinhw.rules")
failed=0

vendor=$("$kxsim" run --scenario lab -- cat /sys/class/net/eth2/device/vendor)
if [[ $rule != *"ATTRS{vendor}==\"$vendor\""* ]]; then
    echo "a port's vendor is $vendor; the rule is: $rule"
    failed=1
fi

service=$(sed -n 's/.*try-restart \([^"]*\)".*/\1/p' <<<"$rule")
# try-restart needs a service that stays active.
if ! grep -qx 'RemainAfterExit=yes' "$packaging/systemd/$service"; then
    echo "$service does not stay active"
    failed=1
fi
if grep -q '^Condition' "$packaging/systemd/$service"; then
    echo "$service is inactive where its condition does not hold, and would not run again"
    failed=1
fi
exit $failed
