#!/usr/bin/env bash
# Builds the Debian package, installs it on this machine with apt-get, checks
# what it installed, and removes it again, making sure nothing is left behind.
# Needs root (it installs a package); elsewhere it skips with status 77.
set -euo pipefail
cd "$(dirname "$0")/.."
if [ "$(id -u)" -ne 0 ]; then
    echo "package-test: skipped, installing a package needs root"
    exit 77
fi
if dpkg-query -W -f='${Status}' quillery 2>/dev/null | grep -q 'ok installed'; then
    echo "package-test: skipped, quillery is already installed on this machine"
    exit 77
fi
fail() {
    echo "package-test: FAILED: $*" >&2
    exit 1
}

dir=$(realpath -m "${1:-build-package}")
cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX=/usr \
    -DQUILLERY_BUILD_TESTS=OFF -DQUILLERY_BUILD_BENCH=OFF >/dev/null
cmake --build "$dir" --parallel "$(nproc)" >/dev/null
rm -f "$dir"/quillery_*.deb
(cd "$dir" && cpack -G DEB >/dev/null 2>&1) || fail "cpack"
deb=$(ls "$dir"/quillery_*.deb)
echo "package-test: built $(basename "$deb")"
dpkg-deb --field "$deb" Depends | grep -q 'libqt6widgets6' || fail "Depends lacks the Qt libraries"

export DEBIAN_FRONTEND=noninteractive
apt-get install -y -qq "$deb" >/dev/null 2>&1 || fail "apt-get install"
trap 'apt-get remove --purge -y -qq quillery >/dev/null 2>&1 || true' EXIT
mapfile -t installed < <(dpkg -L quillery)

[ "$(command -v quillery)" = /usr/bin/quillery ] || fail "quillery is not on PATH at /usr/bin"
version=$(quillery --version) || fail "quillery --version"
[[ "$version" == "quillery "* ]] || fail "unexpected version text: $version"
desktop-file-validate /usr/share/applications/quillery.desktop || fail "desktop file"
warnings=$(MANWIDTH=80 man --warnings -l /usr/share/man/man1/quillery.1.gz 2>&1 >/dev/null)
[ -z "$warnings" ] || fail "man page warnings: $warnings"
MANWIDTH=80 man -l /usr/share/man/man1/quillery.1.gz | grep -q -- '--toggle' || fail "man page"
for icon in scalable/apps/quillery.svg 48x48/apps/quillery.png 256x256/apps/quillery.png \
    scalable/status/quillery-idle.svg scalable/status/quillery-drawing.svg; do
    [ -s "/usr/share/icons/hicolor/$icon" ] || fail "missing icon $icon"
done

apt-get remove --purge -y -qq quillery >/dev/null 2>&1 || fail "apt-get remove"
trap - EXIT
left=()
for path in "${installed[@]}"; do
    if [ -f "$path" ] || [ -L "$path" ]; then left+=("$path"); fi
done
[ ${#left[@]} -eq 0 ] || fail "left behind: ${left[*]}"
echo "package-test: installed $version, validated, removed; ${#installed[@]} paths, none left"
