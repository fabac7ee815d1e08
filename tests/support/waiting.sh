# SPDX-License-Identifier: MIT
# Waiting in test scripts, which bring their own `fail TEXT`.

# waits_for SECONDS COMMAND...: until the command succeeds.
waits_for() {
    left=$(($1 * 20))
    shift
    until "$@"; do
        left=$((left - 1))
        [ $left -gt 0 ] || fail "waited in vain for: $*"
        sleep 0.05
    done
}
