#!/usr/bin/env bash
# Builds the Debian package and checks it without installing it: its fields,
# that apt could install it here (--simulate), and its files unpacked into a
# temporary folder (the program runs and finds every library, the desktop
# entry validates, the man page renders without warnings, the icons are there).
# Nothing is installed on or removed from this machine.
set -euo pipefail
cd "$(dirname "$0")/.."
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
dpkg-deb --field "$deb" Depends | grep -q 'libwayland-client0' || fail "Depends lacks the Wayland libraries"
dpkg-deb --field "$deb" Recommends | grep -q 'qt6-wayland' || fail "Recommends lacks Qt's Wayland platform"
apt-get --simulate install -qq "$deb" >/dev/null 2>&1 || fail "apt-get --simulate install"

root=$(mktemp -d)
trap 'rm -rf "$root"' EXIT
dpkg -x "$deb" "$root"
outside=$(dpkg-deb --contents "$deb" | awk '{ print $6 }' | grep -v '^\./usr/' | grep -v '^\./$' || true)
[ -z "$outside" ] || fail "files outside /usr: $outside"

binary="$root/usr/bin/quillery"
[ -x "$binary" ] || fail "no /usr/bin/quillery"
missing=$(ldd "$binary" | grep 'not found' || true)
[ -z "$missing" ] || fail "libraries not found: $missing"
version=$("$binary" --version) || fail "quillery --version"
[[ "$version" == "quillery "* ]] || fail "unexpected version text: $version"
app_id=io.github.quillery.Quillery
desktop-file-validate "$root/usr/share/applications/$app_id.desktop" || fail "desktop file"
appstreamcli validate --no-net "$root/usr/share/metainfo/$app_id.metainfo.xml" >/dev/null ||
    fail "AppStream metainfo: $(appstreamcli validate --no-net "$root/usr/share/metainfo/$app_id.metainfo.xml")"
page="$root/usr/share/man/man1/quillery.1.gz"
warnings=$(MANWIDTH=80 man --warnings -l "$page" 2>&1 >/dev/null)
[ -z "$warnings" ] || fail "man page warnings: $warnings"
MANWIDTH=80 man -l "$page" | grep -q -- '--toggle' || fail "man page"
for icon in scalable/apps/quillery.svg 48x48/apps/quillery.png 256x256/apps/quillery.png \
    scalable/status/quillery-idle.svg scalable/status/quillery-drawing.svg; do
    [ -s "$root/usr/share/icons/hicolor/$icon" ] || fail "missing icon $icon"
done
echo "package-test: $version unpacked and checked, $(dpkg-deb --contents "$deb" | wc -l) paths"
