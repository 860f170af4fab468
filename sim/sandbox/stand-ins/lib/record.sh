# shellcheck shell=sh
# Sourced by every stand-in: one line for each call, the time and the words, in the state directory's log.
# Words with blanks or line ends are written as they are with line ends turned into blanks: a call is one line.
record() {
    if [ -n "$ORVAN_STATE" ] && [ -d "$ORVAN_STATE/log" ]; then
        line=$(printf '%s ' "$(date +%Y-%m-%dT%H:%M:%S.%3N)" "$(basename "$0")" "$@" | tr '\n' ' ')
        printf '%s\n' "${line% }" >>"$ORVAN_STATE/log/calls.log"
    fi
}
