#!/bin/sh
# cmake --install puts the program, its desktop entry and its icon where a
# Linux desktop finds them, and the installed entry starts the installed program.
set -eu
build="$1"
prefix=$(mktemp -d)
trap 'rm -rf "$prefix"' EXIT
cmake --install "$build" --prefix "$prefix" >/dev/null
fail() { echo "install layout: $*" >&2; exit 1; }
[ -x "$prefix/bin/tarnwick" ] || fail "no bin/tarnwick"
entry="$prefix/share/applications/com.tarnwick.Tarnwick.desktop"
[ -f "$entry" ] || fail "no desktop entry"
icon="$prefix/share/icons/hicolor/scalable/apps/com.tarnwick.Tarnwick.svg"
[ -f "$icon" ] || fail "no icon"
grep -qx 'Exec=tarnwick' "$entry" || fail "the entry does not start tarnwick"
grep -qx 'Icon=com.tarnwick.Tarnwick' "$entry" || fail "the entry does not name the icon"
grep -q '<svg' "$icon" || fail "the icon is not an SVG"
echo "install layout: bin/tarnwick, the desktop entry and the icon are in place"
