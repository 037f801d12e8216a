#!/bin/sh
# The worker's unit as systemd itself rates it: its exposure must stay at or
# below 3.5 (an unhardened unit rates 9.6), and the settings its work relies
# on must be there. Prints systemd's table when it fails.
set -eu
unit=$1
out=$(systemd-analyze security --offline=true --no-pager "$unit" 2>&1) || {
    echo "$out"
    exit 1
}
level=$(printf '%s\n' "$out" | sed -n 's/.*Overall exposure level for [^:]*: \([0-9.]*\).*/\1/p')
if [ -z "$level" ]; then
    echo "systemd-analyze gave no exposure level:"
    echo "$out"
    exit 1
fi
echo "exposure level $level"
if ! awk -v l="$level" 'BEGIN { exit !(l <= 3.5) }'; then
    echo "$out"
    exit 1
fi
for setting in 'ProtectSystem=strict' 'IPAddressDeny=any' 'IPAddressAllow=localhost' 'NoNewPrivileges=yes' \
    'CapabilityBoundingSet=CAP_SYS_RAWIO CAP_SYS_ADMIN CAP_IPC_LOCK' 'RestrictAddressFamilies=AF_UNIX AF_INET'; do
    grep -qx "$setting" "$unit" || { echo "the unit lacks $setting"; exit 1; }
done
