# A private virtual desktop for the Linux tools: Xvfb, a D-Bus session bus,
# openbox and a tint2 tray, with HOME and the XDG folders in a folder of its
# own. Sourced after setting `tool` (the name its lines start with); it defines
#   work         that folder (removed at the end)
#   say TEXT     a line of the tool's
#   ours [NAME]  the pids of the processes started here (of that name only)
# and leaves DISPLAY and DBUS_SESSION_BUS_ADDRESS set. Everything started
# here, also what Tarnwick starts in sessions of its own, is stopped when the
# tool exits.

work=$(mktemp -d)
# Every process started here carries this mark, so the end finds them all.
TARNWICK_VIRTUAL_DESKTOP="$work"
export TARNWICK_VIRTUAL_DESKTOP

say() { echo "$tool: $*"; }

ours() {
    for environ in /proc/[0-9]*/environ; do
        pid=${environ#/proc/}
        pid=${pid%/environ}
        [ "$pid" = "$$" ] && continue
        [ -z "${1:-}" ] || [ "$(cat "/proc/$pid/comm" 2>/dev/null)" = "$1" ] || continue
        if tr '\0' '\n' 2>/dev/null <"$environ" | grep -qx "TARNWICK_VIRTUAL_DESKTOP=$work"; then echo "$pid"; fi
    done
}

stop_all() {
    for signal in TERM KILL; do
        for pid in $(ours); do kill "-$signal" "$pid" 2>/dev/null || true; done
        [ "$signal" = TERM ] && sleep 1
    done
    rm -rf "$work"
}
trap stop_all EXIT
trap 'exit 130' INT TERM

export HOME="$work/home" XDG_CONFIG_HOME="$work/home/.config" XDG_DATA_HOME="$work/home/.local/share"
export XDG_STATE_HOME="$work/home/.local/state" XDG_RUNTIME_DIR="$work/runtime"
mkdir -p "$HOME" "$XDG_RUNTIME_DIR"
chmod 700 "$XDG_RUNTIME_DIR"
unset SESSION_MANAGER

exec 3>"$work/display"
Xvfb -displayfd 3 -screen 0 1280x800x24 -nolisten tcp >"$work/xvfb.log" 2>&1 &
exec 3>&-
for _ in $(seq 50); do [ -s "$work/display" ] && break; sleep 0.1; done
[ -s "$work/display" ] || { say "Xvfb did not start"; exit 1; }
DISPLAY=":$(cat "$work/display")"
export DISPLAY
DBUS_SESSION_BUS_ADDRESS=$(dbus-daemon --session --fork --print-address=1)
export DBUS_SESSION_BUS_ADDRESS
openbox --sm-disable >/dev/null 2>&1 &
printf '%s\n' "panel_items = S" "panel_position = top left horizontal" "panel_size = 100% 32" \
    "systray_padding = 4 4 4" "systray_icon_size = 24" "background_color = #303030 100" >"$work/tint2rc"
tint2 -c "$work/tint2rc" >/dev/null 2>&1 &
sleep 1

# Tarnwick's tray icon: "X Y" of its middle once it shows in the tray.
tray_icon() {
    for _ in $(seq 100); do
        for window in $(xdotool search --onlyvisible --class '^Tarnwick$' 2>/dev/null); do
            eval "$(xdotool getwindowgeometry --shell "$window")"
            if [ "$Y" -lt 32 ] && [ "$WIDTH" -le 32 ]; then
                echo "$((X + WIDTH / 2)) $((Y + HEIGHT / 2))"
                return 0
            fi
        done
        sleep 0.1
    done
    return 1
}
