#!/bin/sh
# Prints mode, interface, address, mask, gateway and MAC address of the LAN interface, always six words.
. "$(dirname "$0")/lib/record.sh"
record "$@"
PATH=$PATH:/usr/sbin:/sbin
nic=eth0

link=$(ip -o link show dev "$nic" 2>/dev/null)
address=$(ip -o -4 address show dev "$nic" 2>/dev/null | head -n 1)
gateway=$(ip -4 route show default dev "$nic" 2>/dev/null | sed -n 's/.*via \([0-9.]*\).*/\1/p' | head -n 1)
mac=$(echo "$link" | sed -n 's/.*link\/ether \([0-9a-f:]*\).*/\1/p')
cidr=$(echo "$address" | sed -n 's/.* inet \([0-9./]*\).*/\1/p')

case "$link" in
*LOWER_UP*)
    # The kernel marks an address with a limited life, as a DHCP client sets it.
    case "$address" in
    *" dynamic "*) mode=Dynamic ;;
    *) mode=Static ;;
    esac
    ;;
*) mode=NoLink ;;
esac

mask=
if [ -n "$cidr" ]; then
    rest=${cidr#*/}
    for _ in 1 2 3 4; do
        if [ "$rest" -ge 8 ]; then part=255; else part=$((256 - (1 << (8 - rest)))); fi
        mask=$mask${mask:+.}$part
        rest=$((rest >= 8 ? rest - 8 : 0))
    done
fi

ip=${cidr%/*}
echo "$mode $nic ${ip:-0.0.0.0} ${mask:-0.0.0.0} ${gateway:-0.0.0.0} ${mac:-00:00:00:00:00:00}"
