#!/bin/sh
# The benchmarks survive repetitions, and killed outright in the middle of the
# X11 ones they leave no process of theirs behind.
#   bench_cleanup_test.sh TARNWICK_BENCH
set -u
bench=$1
failures=0
fail() {
    echo "FAIL: $*"
    failures=$((failures + 1))
}
out=$(mktemp -d)
pid=""
cleanup() {
    [ -n "$pid" ] && kill -KILL "$pid" 2>/dev/null
    rm -rf "$out"
}
trap cleanup EXIT

# Alive, and not a zombie waiting for init.
alive() {
    state=$(sed -n 's/^State:[[:space:]]*\([A-Z]\).*/\1/p' "/proc/$1/status" 2>/dev/null)
    [ -n "$state" ] && [ "$state" != Z ]
}

# 1. Three repetitions of the X11 benchmarks run to the end, with their statistics.
"$bench" --benchmark_filter=Thirty --benchmark_repetitions=3 --benchmark_min_time=0.05 >"$out/runs" 2>&1
status=$?
[ "$status" -eq 0 ] || fail "three repetitions ended with status $status"
for name in CaptureThirtyWindows/ CaptureThirtyWindowsCold/ PlaceThirtyWindows/requests/ PlaceThirtyWindows/untilShown/; do
    grep -q "^$name.*_median" "$out/runs" || fail "no median for $name"
done

# 2. Killed while the X11 benchmarks run, once the display and its 30 programs are up.
"$bench" --benchmark_filter=Thirty --benchmark_min_time=5 >"$out/killed" 2>&1 &
pid=$!
count=0
tries=0
while [ "$tries" -lt 600 ]; do
    count=0
    for child in $(pgrep -P "$pid"); do
        [ "$(cat "/proc/$child/comm" 2>/dev/null)" = xlogo ] && count=$((count + 1))
    done
    [ "$count" -ge 30 ] && break
    sleep 0.1
    tries=$((tries + 1))
done
children=$(pgrep -P "$pid" | tr '\n' ' ')
[ "$count" -ge 30 ] || fail "the X11 benchmarks never started their 30 programs"
kill -KILL "$pid"
wait "$pid" 2>/dev/null
pid=""
left=""
tries=0
while [ "$tries" -lt 100 ]; do
    left=""
    for child in $children; do alive "$child" && left="$left $child"; done
    [ -z "$left" ] && break
    sleep 0.1
    tries=$((tries + 1))
done
if [ -n "$left" ]; then
    fail "left behind:$(for child in $left; do printf ' %s(%s)' "$child" "$(cat "/proc/$child/comm" 2>/dev/null)"; done)"
    kill -KILL $left 2>/dev/null
fi

if [ "$failures" -ne 0 ]; then
    cat "$out/runs"
    echo "$failures check(s) failed"
    exit 1
fi
echo "three repetitions ran to the end; killed, it left none of its $(echo $children | wc -w) programs"
