#!/usr/bin/env bash
# Figures of the whole program on the X server given in DISPLAY (run it under
# tests/support/with-x): how long the global shortcut takes to bring up a
# painted overlay on every screen, and the program's resident memory at idle,
# while drawing, and after many strokes drawn and faded.
#
#   program_figures.sh QUILLERY_BINARY SCREENS [STROKES]
# SCREENS 2 splits the X screen into a left and a right monitor of equal size.
set -euo pipefail
binary=$1
screens=$2
strokes=${3:-10000}
config="$XDG_CONFIG_HOME/Quillery"
mkdir -p "$config"
# No welcome window; ink fades a second after it is drawn.
printf '[General]\ndidShowWelcome=true\nfadeSeconds=1\n' >"$config/Quillery.conf"

read -r width height < <(xdpyinfo | awk '/dimensions:/ { split($2, size, "x"); print size[1], size[2] }')
if [ "$screens" = 2 ]; then
    half=$((width / 2))
    xrandr --setmonitor LEFT "$half/508x$height/286+0+0" screen >/dev/null
    xrandr --setmonitor RIGHT "$half/508x$height/286+$half+0" none >/dev/null
    width=$half
fi

log=$(mktemp)
QUILLERY_TRACE_PAINT=1 "$binary" 2>"$log" &
pid=$!
trap 'kill $pid 2>/dev/null; wait $pid 2>/dev/null || true; rm -f "$log"' EXIT

paints() { grep -c 'overlay painted' "$log" || true; }
rss() { awk '/VmRSS/ { printf "%.1f MB", $2 / 1024 }' "/proc/$pid/status"; }
toggle() { xdotool key ctrl+alt+d; }
cputicks() { awk '{ print $14 + $15 }' "/proc/$pid/stat"; }
# Waits until the program has used no processor time for half a second: it
# has handled every event sent to it, and its ink has faded.
wait_idle() {
    local before after
    before=$(cputicks)
    while sleep 0.5; do
        after=$(cputicks)
        [ "$after" = "$before" ] && return 0
        before=$after
    done
}
# Waits until the log holds at least $1 paint lines; false after 10 s.
wait_paints() {
    for _ in $(seq 1000); do
        [ "$(paints)" -ge "$1" ] && return 0
        sleep 0.01
    done
    return 1
}

# The shortcut works once the program has registered it: press until it does.
for _ in $(seq 50); do
    toggle
    wait_paints "$screens" 2>/dev/null && break || true
done
wait_paints "$screens" || { echo "the overlay never showed" >&2; exit 1; }
toggle
sleep 1

echo "Resident memory, idle: $(rss)"

# Shortcut to the last screen's first paint, eight times: from xdotool's start
# (which types Ctrl and Alt first, a few milliseconds apart), and from the
# program's receipt of the shortcut.
latencies=() inside=()
for _ in $(seq 8); do
    before=$(paints)
    start=$(date +%s.%N)
    toggle
    wait_paints $((before + screens))
    last=$(grep 'overlay painted' "$log" | tail -n "$screens" | awk '{ print $NF }' | sort -n | tail -n1)
    started=$(grep 'drawing started' "$log" | tail -n1 | awk '{ print $NF }')
    latencies+=("$(awk -v a="$start" -v b="$last" 'BEGIN { print (b - a) * 1000 }')")
    inside+=("$(awk -v a="$started" -v b="$last" 'BEGIN { print (b - a) * 1000 }')")
    sleep 0.4
    toggle
    sleep 0.6
done
median() { printf '%s\n' "$@" | sort -n | awk '{ v[NR] = $1 } END { print (v[4] + v[5]) / 2 }'; }
for figure in "from xdotool's start" "from the shortcut's receipt"; do
    printf 'Shortcut to painted overlay on %s screen(s), %s, ms:' "$screens" "$figure"
    if [ "$figure" = "from xdotool's start" ]; then set -- "${latencies[@]}"; else set -- "${inside[@]}"; fi
    printf ' %.1f' "$@"
    printf ' (median %.1f)\n' "$(median "$@")"
done

# Strokes of four moves each, one xdotool call per hundred.
draw() {
    local count=$1 batch=()
    for ((i = 0; i < count; i++)); do
        local x=$((100 + (i * 37) % (width - 300))) y=$((150 + (i * 53) % (height - 300)))
        batch+=(mousemove "$x" "$y" mousedown 1 mousemove $((x + 40)) $((y + 25))
            mousemove $((x + 90)) $((y + 10)) mousemove $((x + 150)) $((y + 60)) mouseup 1)
        if [ $(((i + 1) % 100)) = 0 ] || [ $((i + 1)) = "$count" ]; then
            xdotool "${batch[@]}"
            batch=()
        fi
    done
}

toggle
wait_paints $(($(paints) + screens)) || true
draw 20
sleep 0.3
echo "Resident memory, drawing 20 strokes: $(rss)"
if [ "$strokes" -gt 0 ]; then
    for round in 1 2; do
        started=$(date +%s)
        draw "$strokes"
        sleep 2 # the last ones fade out
        wait_idle
        echo "Resident memory, after $strokes more strokes drawn and faded ($(($(date +%s) - started)) s): $(rss)"
    done
fi
toggle
sleep 2 # the last strokes fade out
wait_idle
echo "Resident memory, idle again: $(rss)"
