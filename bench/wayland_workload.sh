#!/usr/bin/env bash
# The cost of drawing on the Wayland host (run it under
# tests/support/wayland/with-sway): wl-input draws 50 strokes of 200 moves
# (10,050 pointer events) with fading off. Prints Quillery's processor time,
# the compositor's, the wall time, Quillery's frame counters, and its
# wake-ups in 30 s at rest with nothing on screen.
#
#   wayland_workload.sh QUILLERY_BINARY WL_INPUT
set -euo pipefail
binary=$1
wl_input=$2
config="$XDG_CONFIG_HOME/Quillery"
mkdir -p "$config"
printf '[General]\ndidShowWelcome=true\nfadeSeconds=0\n' >"$config/Quillery.conf"
ticks() { awk '{ print $14 + $15 }' "/proc/$1/stat"; }
seconds() { awk -v t="$1" -v hz="$(getconf CLK_TCK)" 'BEGIN { printf "%.2f", t / hz }'; }

log=$(mktemp)
QUILLERY_FRAME_STATS=1 "$binary" 2>"$log" &
pid=$!
for _ in $(seq 200); do "$binary" --status >/dev/null 2>&1 && break; sleep 0.05; done
"$binary" --start >/dev/null
until "$binary" --status | grep -q 'drawing: on'; do sleep 0.05; done
sleep 1 # the overlay maps within a frame or two; there is nothing to poll for it

moves=$(mktemp)
for ((s = 0; s < 50; s++)); do
    y=$((100 + (s * 17) % 800))
    echo "move 100 $y"
    echo down
    for ((i = 1; i < 200; i++)); do echo "move $((100 + i * 7)) $((y + (i % 20) * 3))"; done
    echo up
done >"$moves"

compositor=$(pgrep -u "$(id -u)" -x sway | head -1)
q0=$(ticks "$pid")
c0=$(ticks "$compositor")
start=$(date +%s.%N)
"$wl_input" <"$moves" >/dev/null
end=$(date +%s.%N)
q1=$(ticks "$pid")
c1=$(ticks "$compositor")
"$binary" --status | grep items
# Per thread, so that a thread ending in the meantime counts as its own wake-ups
# only, and as one: it woke to end.
switches() {
    for task in /proc/"$pid"/task/*; do
        echo "${task##*/} $(awk '/^voluntary_ctxt_switches/ { print $2 }' "$task/status")"
    done
}
"$binary" --stop >/dev/null
"$binary" --clear >/dev/null
sleep 1 # the last frame and the surfaces going away
switches >"$log.before"
sleep 30
switches >"$log.after"
wakeups=$(awk 'NR == FNR { before[$1] = $2; next } { n += $2 - ($1 in before ? before[$1] : 0); delete before[$1] } END { print n + length(before) }' "$log.before" "$log.after")
"$binary" --quit >/dev/null
wait "$pid" || true
echo "quillery cpu $(seconds $((q1 - q0))) s, compositor cpu $(seconds $((c1 - c0))) s, wall $(awk -v a="$start" -v b="$end" 'BEGIN { printf "%.2f", b - a }') s"
grep 'frame stats' "$log"
echo "wake-ups at rest in 30 s (voluntary context switches, all threads): $wakeups"
rm -f "$log" "$log.before" "$log.after" "$moves"
