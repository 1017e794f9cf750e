# Sourced by with-x, with-sway and with-mutter: a fresh scratch folder that is
# also the session's runtime and config home, the processes started for the
# session (stopped newest first when the script ends, and removed with the
# folder), and waiting for them without a fixed sleep.
#   session_begin NAME    NAME names the messages and the main log, $scratch/NAME.log
session_begin() {
    session=$1
    scratch=$(mktemp -d "/tmp/quillery-$session.XXXXXX")
    pids=()
    deadline=$((SECONDS + 20))
    trap session_end EXIT
    trap 'exit 130' INT TERM
}
session_end() {
    for ((i = ${#pids[@]} - 1; i >= 0; i--)); do kill "${pids[i]}" 2>/dev/null; done
    wait 2>/dev/null
    rm -rf "$scratch"
}
fail() {
    echo "with-$session: $1" >&2
    cat "$scratch/$session.log" >&2 2>/dev/null
    exit 1
}
# kill -0 with several ids succeeds when any one of them is alive.
alive() {
    for pid in "${pids[@]}"; do kill -0 "$pid" 2>/dev/null || return 1; done
}
wait_for() {
    until "$@"; do
        [ "$SECONDS" -lt "$deadline" ] && alive || return 1
        sleep 0.05
    done
}
# A private session bus at $scratch/bus; $1... runs it (as another user).
start_bus() {
    export DBUS_SESSION_BUS_ADDRESS="unix:path=$scratch/bus"
    "$@" dbus-daemon --session --nofork --address="$DBUS_SESSION_BUS_ADDRESS" >"$scratch/dbus.log" 2>&1 &
    pids+=($!)
    wait_for test -S "$scratch/bus" || fail "the session bus did not start"
}
# Runs the command; its status, or 1 when it passed while the session died
# under it (then it has not shown anything).
run_in_session() {
    "$@"
    local status=$?
    if ! alive; then
        echo "with-$session: the session ended during the command" >&2
        cat "$scratch/$session.log" >&2
        [ "$status" -ne 0 ] || status=1
    fi
    exit "$status"
}
