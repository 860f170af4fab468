#!/bin/sh
. "$(dirname "$0")/lib/record.sh"
record "$@"
