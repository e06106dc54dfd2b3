#!/bin/sh
# make run on a machine without a display: the walk-through saves and restores
# through the tray menu, says so, leaves its screenshots, exits 0 and leaves
# no process behind.
set -eu
build="$1"
source_dir=$(cd "$(dirname "$0")/../.." && pwd)
out=$(mktemp -d)
mark="walkthrough-test-$$"
trap 'rm -rf "$out"' EXIT
fail() { echo "walkthrough test: $*" >&2; cat "$out/said" >&2 2>/dev/null || true; exit 1; }

status=0
env -u DISPLAY WALKTHROUGH_TEST_MARK="$mark" sh "$source_dir/tools/linux-walkthrough" "$build" "$out/shots" \
    >"$out/said" 2>&1 || status=$?
[ "$status" -eq 0 ] || fail "exit status $status"
grep -q '^walkthrough: saved from the menu: save (manual): 3 apps · 3 windows$' "$out/said" || fail "no save"
grep -q '^walkthrough: the programs quit; windows left: 0$' "$out/said" || fail "the programs did not quit"
grep -q '^walkthrough: restored from the menu: restore: launched 3, windows 3, tabs 0, problems \[\]$' "$out/said" ||
    fail "no restore"
[ "$(grep -c '^  x.* at ' "$out/said")" -eq 6 ] || fail "the programs are not listed before and after"
# Each program back where it was: the lines before the restore equal those after.
before=$(sed -n '/programs running:/,/in the tray/p' "$out/said" | grep '^  x')
after=$(sed -n '/programs back:/,/screenshots:/p' "$out/said" | grep '^  x')
[ "$before" = "$after" ] || fail "the programs came back elsewhere"
for shot in tray-menu.png report.png; do
    [ -s "$out/shots/$shot" ] || fail "no screenshot $shot"
done
sleep 1
for environ in /proc/[0-9]*/environ; do
    if tr '\0' '\n' 2>/dev/null <"$environ" | grep -qx "WALKTHROUGH_TEST_MARK=$mark"; then
        fail "left behind: $(tr '\0' ' ' <"${environ%/environ}/cmdline")"
    fi
done
echo "walkthrough test: saved, quit, restored through the menu; nothing left running"
