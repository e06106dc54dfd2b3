#!/bin/sh
# The real-SDK cross build must be able to fail: a copy of the sources with a
# misspelt selector and a deployment target below what the code calls is
# rejected with the SDK's own diagnostics, for one architecture. Skipped, in one
# line, where there is no macOS SDK.
#   cross_check_rejects_mistakes.sh [WORK-FOLDER-OF-THE-CHECK]
set -u
root=$(cd "$(dirname "$0")/../.." && pwd)
main_work=${1:-$root/build/macos-cross}
sdk=$(sh "$root/tools/macos-cross-check" --find-sdk)
if [ -z "$sdk" ]; then
    echo "cross_check_rejects_mistakes: skipped: no macOS SDK"
    exit 0
fi
copy=$(mktemp -d)
trap 'rm -rf "$copy"' EXIT
failures=0
fail() {
    echo "FAIL: $*"
    failures=$((failures + 1))
}

(cd "$root" && tar cf - CMakeLists.txt src packaging tools) | (cd "$copy" && tar xf -)
# Reuse what the check already fetched and built for this architecture.
source=$(find "$main_work/simdjson-source" -maxdepth 3 -path '*/singleheader/simdjson.cpp' 2>/dev/null | head -n 1)
[ -n "$source" ] && TARNWICK_SIMDJSON_SOURCE=$(dirname "$(dirname "$source")") && export TARNWICK_SIMDJSON_SOURCE
mkdir -p "$copy/build/macos-cross"
[ -d "$main_work/arm64-simdjson" ] && cp -R "$main_work/arm64-simdjson" "$copy/build/macos-cross/"

# change FILE SED-EXPRESSION: the copy must really change, or the test proves nothing.
change() {
    before=$(cat "$copy/$1")
    sed -i.orig "$2" "$copy/$1" && rm -f "$copy/$1.orig"
    [ "$before" != "$(cat "$copy/$1")" ] || fail "'$2' changed nothing in $1"
}
change src/app/shell_mac.mm 's/\[menu removeAllItems\]/[menu removeAllItem]/'
# macOS 12: the login item's SMAppService (13.0) and float to_chars (13.3) are newer.
change CMakeLists.txt 's/^set(CMAKE_OSX_DEPLOYMENT_TARGET 13\.3 /set(CMAKE_OSX_DEPLOYMENT_TARGET 12.0 /'

log="$copy/check.log"
if TARNWICK_MACOS_SDK=$sdk TARNWICK_MACOS_CROSS_DIR="$copy/build/macos-cross" \
    sh "$copy/tools/macos-cross-check" arm64 >"$log" 2>&1; then
    fail "the cross build accepted the mistakes"
fi
for pattern in \
    "no visible @interface for 'NSMenu' declares the selector 'removeAllItem'" \
    "'SMAppService' is only available on macOS 13.0 or newer \[-Werror,-Wunguarded-availability-new\]" \
    "'to_chars' is unavailable: introduced in macOS 13.3" \
    "macos-cross-check: arm64: FAILED"; do
    cat "$log" "$copy/build/macos-cross/arm64.build.log" 2>/dev/null | grep -q -- "$pattern" ||
        fail "no diagnostic matching '$pattern'"
done
if [ "$failures" -ne 0 ]; then
    cat "$log"
    echo "$failures check(s) failed"
    exit 1
fi
echo "the cross build rejected every mistake:"
grep -E "error:" "$copy/build/macos-cross/arm64.build.log" | sed 's/^.*src\//  src\//' | sort -u
