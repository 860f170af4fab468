#!/bin/sh
# Sets the host name of the controller: he_set_hostname.sh NAME
. "$(dirname "$0")/lib/record.sh"
. "$(dirname "$0")/lib/refuse.sh"
record "$@"
LC_ALL=C

[ $# -eq 1 ] || refuse "one argument is wanted, the host name; there are $#"
case "$1" in
'' | *[!A-Za-z0-9.-]* | [.-]* | *[.-] | *..* | *.-* | *-.*) refuse "'$1' is no host name" ;;
esac
[ ${#1} -le 63 ] || refuse "a host name has at most 63 characters, this one ${#1}"
need_controller
hostname "$1" || refuse "the host name is not set"
