# shellcheck shell=sh
# Sourced by the stand-ins that change something.

# Ends the script with a text on standard error.
refuse() {
    echo "$(basename "$0"): $*" >&2
    exit 1
}

# The test suites and the instrument without a sandbox have the stand-ins in their PATH too; what these change
# there would be the real machine's.
need_controller() {
    if [ -z "$ORVAN_SANDBOX" ] || [ "$(stat -Lc %i /proc/self/ns/net)" != "$ORVAN_SANDBOX" ]; then
        refuse "not on the controller of a sandbox, nothing is changed"
    fi
}
