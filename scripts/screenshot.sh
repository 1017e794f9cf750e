#!/usr/bin/env bash
# Takes docs/screenshot.png: Quillery drawing over a small desktop (a slide in an
# image viewer, Quillery's own Settings window, a panel with the tray icon), on a
# private X server, so nothing on your own screen or in your settings changes.
set -euo pipefail
cd "$(dirname "$0")/.."

if [ "${1:-}" != --inside ]; then
    binary=${QUILLERY_BINARY:-build/quillery}
    [ -x "$binary" ] || bash scripts/build.sh build
    exec tests/support/with-x --compositor --tray --screen 1280x800 -- \
        env QUILLERY_BINARY="$(realpath "$binary")" bash "$0" --inside
fi

scratch=$(mktemp -d)
pids=()
trap 'kill "${pids[@]}" 2>/dev/null; rm -rf "$scratch"' EXIT

# Drawings stay put while the picture is composed.
mkdir -p "$XDG_CONFIG_HOME/Quillery"
printf '[General]\ndidShowWelcome=true\nfadeSeconds=0\n' >"$XDG_CONFIG_HOME/Quillery/Quillery.conf"

# The slide being presented.
font=DejaVu-Sans
convert -size 760x500 xc:white -font "$font" \
    -fill '#1d3557' -pointsize 34 -draw "text 40,64 'Quarterly sign-ups'" \
    -fill '#6c757d' -pointsize 18 -draw "text 40,98 'New accounts per quarter, in thousands'" \
    -stroke '#adb5bd' -draw 'line 60,440 720,440' -stroke none \
    -fill '#457b9d' -draw 'rectangle 100,330 200,440' -draw 'rectangle 260,270 360,440' \
    -draw 'rectangle 420,300 520,440' -fill '#e76f51' -draw 'rectangle 580,160 680,440' \
    -fill '#343a40' -pointsize 20 \
    -draw "text 130,470 'Q1'" -draw "text 290,470 'Q2'" -draw "text 450,470 'Q3'" \
    -draw "text 610,470 'Q4'" \
    -draw "text 132,320 '12'" -draw "text 292,260 '18'" -draw "text 452,290 '15'" \
    -draw "text 612,150 '31'" \
    "$scratch/slide.png"

wait_for() { for _ in $(seq 100); do "$@" >/dev/null 2>&1 && return 0; sleep 0.1; done; return 1; }

# A wallpaper: an image viewer's window turned into the desktop window, which the
# window manager keeps below everything, undecorated.
convert -size 1280x800 gradient:'#2c3e50-#5d7f99' "$scratch/wallpaper.png"
display -title wallpaper -geometry +0+0 -borderwidth 0 "$scratch/wallpaper.png" &
pids+=($!)
wait_for xdotool search --onlyvisible --name '^wallpaper$'
wallpaper=$(xdotool search --onlyvisible --name '^wallpaper$' | head -n1)
xdotool windowunmap --sync "$wallpaper"
xprop -id "$wallpaper" -f _NET_WM_WINDOW_TYPE 32a -set _NET_WM_WINDOW_TYPE _NET_WM_WINDOW_TYPE_DESKTOP
xdotool windowmap --sync "$wallpaper"

display -title 'Quarterly sign-ups.png' -geometry +60+50 "$scratch/slide.png" &
pids+=($!)

"$QUILLERY_BINARY" &
pids+=($!)
wait_for xdotool search --onlyvisible --name 'Quarterly sign-ups'
tray_icon() {
    for id in $(xdotool search --onlyvisible --classname quillery); do
        eval "$(xdotool getwindowgeometry --shell "$id")"
        if [ "$HEIGHT" -le 64 ] && [ "$Y" -ge 720 ]; then
            echo "$((X + WIDTH / 2)) $((Y + HEIGHT / 2))"
            return 0
        fi
    done
    return 1
}
wait_for tray_icon
read -r tray_x tray_y < <(tray_icon)

# Settings, from the tray menu (its fifth item).
xdotool mousemove "$tray_x" "$tray_y" click 3 sleep 0.5 key Down Down Down Down Down Return
wait_for xdotool search --onlyvisible --name '^Quillery Settings$'
xdotool search --onlyvisible --name '^Quillery Settings$' windowmove 840 420
sleep 0.5

drag() { # x1 y1 x2 y2 ...: press at the first point, release at the last
    local args=(mousemove "$1" "$2" mousedown 1)
    shift 2
    while [ $# -gt 0 ]; do args+=(mousemove "$1" "$2" sleep 0.02); shift 2; done
    xdotool "${args[@]}" mouseup 1
}

xdotool key ctrl+alt+d
sleep 0.7
# A red ellipse round the best quarter, an arrow and a text pointing at it, the
# title highlighted in yellow, the subtitle framed in blue.
xdotool key e
drag 620 190 780 520
xdotool key a
drag 980 260 800 330
xdotool key 2 key h
drag 100 114 240 112 420 114
xdotool key 1 key t mousemove 890 225 click 1 sleep 0.2 type 'Best quarter yet!'
xdotool key Return
xdotool key 4 key r
drag 92 136 470 178
sleep 0.5

mkdir -p docs
import -window root docs/screenshot.png
echo "wrote docs/screenshot.png"
