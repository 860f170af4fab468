#!/bin/sh
# Sets the address, mask and gateway of the controller's LAN interface:
#   he_orvan_network_config.sh static -a ADDRESS -n MASK -g GATEWAY    (gateway 0.0.0.0: none)
#   he_orvan_network_config.sh dynamic
# "dynamic" is answered as by a DHCP server on the LAN, 10.0.0.1, with the pool 10.0.0.100 to 10.0.0.199: a
# hardware address always gets the same lease, for a year, as it is never renewed.
. "$(dirname "$0")/lib/record.sh"
. "$(dirname "$0")/lib/refuse.sh"
record "$@"
PATH=$PATH:/usr/sbin:/sbin
LC_ALL=C
nic=eth0

# Leading zeros are refused: some programs take them for octal numbers.
is_ipv4() {
    case "$1" in
    *[!0-9.]* | .* | *. | *..* | *.*.*.*.*) return 1 ;;
    *.*.*.*) ;;
    *) return 1 ;;
    esac
    for byte in $(echo "$1" | tr . ' '); do
        case "$byte" in
        0?* | ????*) return 1 ;;
        esac
        [ "$byte" -le 255 ] || return 1
    done
}

is_host() {
    is_ipv4 "$1" && [ "${1%%.*}" -ge 1 ] && [ "${1%%.*}" -le 223 ] && [ "${1%%.*}" -ne 127 ]
}

# Length of the prefix; fails for a non-contiguous or empty mask.
prefix_of() {
    is_ipv4 "$1" || return 1
    zeros=0
    for byte in $(echo "$1" | tr . ' '); do
        zeros=$((zeros << 8 | (255 - byte)))
    done
    [ $((zeros & (zeros + 1))) -eq 0 ] && [ "$zeros" -lt 4294967295 ] || return 1
    length=32
    while [ "$zeros" -gt 0 ]; do
        length=$((length - 1))
        zeros=$((zeros >> 1))
    done
    echo "$length"
}

# apply ADDRESS/LENGTH GATEWAY [LIFETIME]. The gateway may lie outside the subnet, as the factory's does.
apply() {
    {
        echo "address flush dev $nic"
        echo "address add $1 broadcast + dev $nic $3"
        echo "link set $nic up"
        [ "$2" = 0.0.0.0 ] || echo "route replace default via $2 dev $nic onlink"
    } | ip -4 -batch - || refuse "$nic is not set up"
}

mode=$1
[ $# -gt 0 ] && shift
case "$mode" in
static)
    while [ $# -gt 0 ]; do
        case "$1" in
        -a | -n | -g) [ $# -gt 1 ] || refuse "$1 needs a value" ;;
        *) refuse "unknown argument '$1'" ;;
        esac
        case "$1" in
        -a) address=$2 ;;
        -n) mask=$2 ;;
        -g) gateway=$2 ;;
        esac
        shift 2
    done
    is_host "$address" || refuse "'$address' is no address of a host (-a)"
    length=$(prefix_of "$mask") || refuse "'$mask' is no net mask (-n)"
    [ "$gateway" = 0.0.0.0 ] || is_host "$gateway" || refuse "'$gateway' is no address of a gateway (-g)"
    need_controller
    apply "$address/$length" "$gateway"
    ;;
dynamic)
    [ $# -eq 0 ] || refuse "unknown argument '$1'"
    need_controller
    link=$(ip -o link show dev "$nic")
    case "$link" in
    *LOWER_UP*) ;;
    *) refuse "no DHCP server answers, $nic has no link" ;;
    esac
    mac=$(echo "$link" | sed -n 's/.*link\/ether \([0-9a-f:]*\).*/\1/p')
    apply "10.0.0.$((100 + 0x${mac##*:} % 100))/24" 10.0.0.1 "valid_lft 31536000 preferred_lft 31536000"
    ;;
*) refuse "'$mode' is neither static nor dynamic" ;;
esac
