#!/usr/bin/env bash
# Installs what Quillery needs to build, run and test on Debian 12. Safe to run again.
set -euo pipefail
packages=(
    build-essential cmake ninja-build pkg-config clang-format
    qt6-base-dev qt6-base-dev-tools qt6-qpa-plugins libgl-dev
    libxcb1-dev libxcb-keysyms1-dev libxcb-shape0-dev libxcb-xfixes0-dev libxcb-xinput-dev
    libwayland-dev libwayland-bin wayland-protocols librust-wayland-protocols-dev libxkbcommon-dev
    libbenchmark-dev fonts-dejavu-core
    xvfb openbox picom xdotool imagemagick xserver-xephyr x11-xserver-utils x11-utils
    tint2 dbus dbus-x11
    sway xwayland grim wtype adwaita-icon-theme mutter
    desktop-file-utils appstream man-db groff-base dpkg-dev file
)
missing=()
for package in "${packages[@]}"; do
    dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'ok installed' || missing+=("$package")
done
[ ${#missing[@]} -eq 0 ] && exit 0
sudo=()
[ "$(id -u)" -eq 0 ] || sudo=(sudo)
export DEBIAN_FRONTEND=noninteractive
"${sudo[@]}" apt-get update -qq
"${sudo[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
