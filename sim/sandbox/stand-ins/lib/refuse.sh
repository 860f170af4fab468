# shellcheck shell=sh
# Sourced by the stand-ins that change something.

# Ends the script with a text on standard error.
refuse() {
    echo "$(basename "$0"): $*" >&2
    exit 1
}

# The stand-ins are also in the PATH of the test suites and of an instrument without a sandbox, where they
# would change the real machine.
need_controller() {
    if [ -z "$ORVAN_SANDBOX" ] || [ "$(stat -Lc %i /proc/self/ns/net)" != "$ORVAN_SANDBOX" ]; then
        refuse "not on the controller of a sandbox, nothing is changed"
    fi
}
