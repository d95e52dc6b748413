#!/bin/sh
# Installs the current build into a temporary prefix and checks what a desktop finds there: the
# programs, the device definitions, the desktop entry that opens logs, its icon, and the file types it names.
# Usage: check-install.sh CMAKE BUILD-DIR SOURCE-DIR
set -eu
cmake=$1
build=$2
source=$3
prefix=$(mktemp -d)
trap 'rm -rf "$prefix"' EXIT
fail() {
    echo "FAIL: $*" >&2
    exit 1
}

"$cmake" --install "$build" --prefix "$prefix" >/dev/null || fail "cmake --install $build"

expected="bin/vexo-bus-sim
bin/vexo-log
bin/vexo-studio
share/applications/vexo-studio.desktop
share/icons/hicolor/256x256/apps/vexo-studio.png
share/icons/hicolor/48x48/apps/vexo-studio.png
share/icons/hicolor/scalable/apps/vexo-studio.svg
share/mime/packages/vexo-studio.xml
share/vexo-studio/Devices/Devices.bin"
expected=$(printf '%s\n' "$expected" | LC_ALL=C sort)
actual=$(cd "$prefix" && find . ! -type d | sed 's|^\./||' | LC_ALL=C sort)
if [ "$actual" != "$expected" ]; then
    printf 'expected:\n%s\ninstalled:\n%s\n' "$expected" "$actual" >&2
    fail "the installed files differ"
fi
for p in vexo-studio vexo-log vexo-bus-sim; do
    [ -x "$prefix/bin/$p" ] || fail "bin/$p is not executable"
done

# The installed companion works away from the build tree (and from the user's data folder).
HOME="$prefix/home" XDG_DATA_HOME="$prefix/home/data" "$prefix/bin/vexo-log" info \
    "$source/samples/sample-flight.log" >/dev/null || fail "the installed vexo-log cannot read the sample"
HOME="$prefix/home" XDG_DATA_HOME="$prefix/home/data" "$prefix/bin/vexo-log" devdef dump \
    "$prefix/share/vexo-studio/Devices/Devices.bin" >/dev/null ||
    fail "the installed device definitions do not load"
rm -rf "$prefix/home"

desktop="$prefix/share/applications/vexo-studio.desktop"
command -v desktop-file-validate >/dev/null || fail "desktop-file-validate missing (desktop-file-utils)"
desktop-file-validate "$desktop" || fail "the desktop entry does not validate"
# %f: a double-click hands the file to the program.
grep -qx 'Exec=vexo-studio %f' "$desktop" || fail "Exec must be 'vexo-studio %f'"
icon=$(sed -n 's/^Icon=//p' "$desktop")
[ -f "$prefix/share/icons/hicolor/scalable/apps/$icon.svg" ] || fail "no icon named '$icon'"
mimetypes=$(sed -n 's/^MimeType=//p' "$desktop")

mime="$prefix/share/mime/packages/vexo-studio.xml"
command -v xmllint >/dev/null || fail "xmllint missing (libxml2-utils)"
xmllint --noout "$mime" || fail "the MIME definitions are not well-formed XML"
node() {
    xmllint --xpath "$1" "$mime" 2>/dev/null || true
}
for glob in '*.log' '*.vml' '*.nmea'; do
    type=$(node "string(//*[local-name()='glob'][@pattern='$glob']/../@type)")
    [ -n "$type" ] || fail "no MIME type has the glob $glob"
    case ";$mimetypes" in
    *";$type;"*) ;;
    *) fail "the desktop entry does not open $type ($glob)" ;;
    esac
done
# ".log" is every program's text log: ours is told apart by content, and must not be a kind of text/plain,
# or the tie-break between the two globs could claim any text log.
log=$(node "string(//*[local-name()='glob'][@pattern='*.log']/../@type)")
[ "$(node "count(//*[@type='$log']/*[local-name()='magic'])")" = 1 ] || fail "$log has no magic"
[ "$(node "count(//*[@type='$log']/*[local-name()='sub-class-of'][@type='text/plain'])")" = 0 ] ||
    fail "$log must not be a sub-class of text/plain"
echo "install layout, desktop entry and MIME types: ok"
