# shellcheck shell=sh
# Sourced by every stand-in: logs each call in the state directory, one line with the time and the words.
# Line ends in words are replaced by blanks, so that a call is one line.
record() {
    if [ -n "$ORVAN_STATE" ] && [ -d "$ORVAN_STATE/log" ]; then
        line=$(printf '%s ' "$(date +%Y-%m-%dT%H:%M:%S.%3N)" "$(basename "$0")" "$@" | tr '\n' ' ')
        printf '%s\n' "${line% }" >>"$ORVAN_STATE/log/calls.log"
    fi
}
