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
[ -x "$prefix/libexec/tarnwick/tarnwick-tray" ] || fail "no libexec/tarnwick/tarnwick-tray"
# Without a mode the installed program becomes the installed tray program,
# which is the one to say that it needs a display.
said=$(env -u DISPLAY -u WAYLAND_DISPLAY -u XDG_SESSION_TYPE -u TARNWICK_BACKEND "$prefix/bin/tarnwick" 2>&1) &&
    fail "started without a display"
[ "$said" = "tarnwick: no desktop: neither a Wayland session nor an X11 display (DISPLAY is not set); the tray application needs an X11 desktop or KDE Plasma on Wayland" ] ||
    fail "bin/tarnwick did not hand over to the tray program: $said"
entry="$prefix/share/applications/com.tarnwick.Tarnwick.desktop"
[ -f "$entry" ] || fail "no desktop entry"
icon="$prefix/share/icons/hicolor/scalable/apps/com.tarnwick.Tarnwick.svg"
[ -f "$icon" ] || fail "no icon"
grep -qx 'Exec=tarnwick' "$entry" || fail "the entry does not start tarnwick"
grep -qx 'Icon=com.tarnwick.Tarnwick' "$entry" || fail "the entry does not name the icon"
grep -q '<svg' "$icon" || fail "the icon is not an SVG"
echo "install layout: bin/tarnwick, its tray program, the desktop entry and the icon are in place"
