#!/usr/bin/env bash
# The cost of drawing as fast as the pointer goes, on the X server in DISPLAY
# (run it under tests/support/with-x --compositor, everything pinned to one
# processor with taskset): xdotool draws 50 strokes of 200 moves (10,050
# pointer events) with fading off, three times. Prints per run and as medians
# the processor time of Quillery, the X server and the compositor, xdotool's
# wall time (and the same workload's with no Quillery running), Quillery's
# peak resident memory, frames painted and pointer event to frame latency.
# Then the start of drawing with 2,000 strokes on screen, and wake-ups in 30 s
# at rest with nothing on screen.
#
#   pointer_workload.sh QUILLERY_BINARY
set -euo pipefail
binary=$1
runs=3
config="$XDG_CONFIG_HOME/Quillery"
mkdir -p "$config"
printf '[General]\ndidShowWelcome=true\nfadeSeconds=0\n' >"$config/Quillery.conf"

ticks() { awk '{ print $14 + $15 }' "/proc/$1/stat"; }
seconds() { awk -v t="$1" -v hz="$(getconf CLK_TCK)" 'BEGIN { printf "%.2f", t / hz }'; }
median() { sort -n | awk '{ v[NR] = $1 } END { print v[int((NR + 1) / 2)] }'; }

strokes() {
    local args=()
    for ((s = 0; s < ${1:-50}; s++)); do
        local y=$((100 + (s * 17) % 800))
        args+=(mousemove 100 "$y" mousedown 1)
        for ((i = 1; i < 200; i++)); do
            args+=(mousemove $((100 + i * 7)) $((y + (i % 20) * 3)))
        done
        args+=(mouseup 1)
    done
    xdotool "${args[@]}"
}
wall() {
    local start end
    start=$(date +%s.%N)
    "$@"
    end=$(date +%s.%N)
    awk -v a="$start" -v b="$end" 'BEGIN { printf "%.2f", b - a }'
}

start_quillery() {
    log=$(mktemp)
    QUILLERY_FRAME_STATS=1 "$binary" 2>"$log" &
    pid=$!
    for _ in $(seq 200); do "$binary" --status >/dev/null 2>&1 && return 0; sleep 0.05; done
    echo "Quillery did not start" >&2
    exit 1
}
stop_quillery() {
    "$binary" --quit >/dev/null
    wait "$pid" || true
}
stats() { grep 'frame stats' "$log" | tail -n1 || true; }

declare -a own server comp xwall frames p50 p99 peak
baseline=$(wall strokes 50)
for ((r = 0; r < runs; r++)); do
    start_quillery
    "$binary" --start >/dev/null
    sleep 0.5
    q0=$(ticks "$pid") s0=$(ticks "$WITH_X_SERVER_PID") c0=$(ticks "$WITH_X_COMPOSITOR_PID")
    xwall[r]=$(wall strokes 50)
    # Until Quillery has handled every event.
    for _ in $(seq 100); do
        [ "$("$binary" --status | awk '/^items:/ { print $2 }')" -ge 50 ] && break
        sleep 0.1
    done
    own[r]=$(seconds $(($(ticks "$pid") - q0)))
    server[r]=$(seconds $(($(ticks "$WITH_X_SERVER_PID") - s0)))
    comp[r]=$(seconds $(($(ticks "$WITH_X_COMPOSITOR_PID") - c0)))
    peak[r]=$(awk '/VmHWM/ { printf "%.1f", $2 / 1024 }' "/proc/$pid/status")
    stop_quillery
    frames[r]=$(stats | sed -E 's/.*frames ([0-9]+).*/\1/')
    p50[r]=$(stats | sed -E 's/.*median ([0-9.]+) p99.*/\1/')
    p99[r]=$(stats | sed -E 's/.* p99 ([0-9.]+) max.*/\1/')
    echo "run $((r + 1)): Quillery ${own[r]} s, X server ${server[r]} s, compositor ${comp[r]} s," \
        "xdotool ${xwall[r]} s, frames ${frames[r]}, event to frame ${p50[r]} / ${p99[r]} ms," \
        "peak ${peak[r]} MB"
done
printf 'median: Quillery %s s, X server %s s, compositor %s s, xdotool %s s (alone %s s), frames %s per 10,050 events, event to frame median %s ms p99 %s ms, peak %s MB\n' \
    "$(printf '%s\n' "${own[@]}" | median)" "$(printf '%s\n' "${server[@]}" | median)" \
    "$(printf '%s\n' "${comp[@]}" | median)" "$(printf '%s\n' "${xwall[@]}" | median)" "$baseline" \
    "$(printf '%s\n' "${frames[@]}" | median)" "$(printf '%s\n' "${p50[@]}" | median)" \
    "$(printf '%s\n' "${p99[@]}" | median)" "$(printf '%s\n' "${peak[@]}" | median)"

# 2,000 strokes on screen, then drawing starts again.
start_quillery
"$binary" --start >/dev/null
for ((k = 0; k < 8; k++)); do
    args=()
    for ((s = 0; s < 250; s++)); do
        x=$((50 + (s * 37) % 1700)) y=$((80 + (s * 53 + k * 11) % 900))
        args+=(mousemove "$x" "$y" mousedown 1 mousemove $((x + 60)) $((y + 20))
            mousemove $((x + 120)) $((y - 10)) mouseup 1)
    done
    xdotool "${args[@]}"
done
for _ in $(seq 100); do
    [ "$("$binary" --status | awk '/^items:/ { print $2 }')" -ge 2000 ] && break
    sleep 0.1
done
for _ in 1 2 3 4 5; do
    "$binary" --stop >/dev/null
    sleep 0.3
    "$binary" --start >/dev/null
    sleep 0.5
done
"$binary" --clear >/dev/null
"$binary" --stop >/dev/null
sleep 1
# At rest: voluntary context switches of all the program's threads in 30 s; a
# thread that ended meanwhile woke once to end.
switches() {
    for task in /proc/"$pid"/task/*; do
        echo "${task##*/} $(awk '/^voluntary_ctxt_switches/ { print $2 }' "$task/status")"
    done
}
before=$(switches)
sleep 30
woken=$(awk 'NR == FNR { b[$1] = $2; next } { s += $2 - ($1 in b ? b[$1] : 0); delete b[$1] } END { print s + length(b) }' <(echo "$before") <(switches))
echo "Resident memory at rest: $(awk '/VmRSS/ { printf "%.1f MB", $2 / 1024 }' "/proc/$pid/status")"
stop_quillery
echo "With 2,000 strokes on screen, start to first frame: $(stats | sed -E 's/.*start to first frame ms (.*)/\1/') ms"
echo "Wake-ups at rest in 30 s (voluntary context switches, all threads): $woken"
