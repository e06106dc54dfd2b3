#!/bin/sh
# The macOS compile check must be able to fail: copies of real macOS sources,
# each with known mistakes, must be rejected with the expected diagnostics,
# while the unchanged copies pass.
#   check_rejects_mistakes.sh CLANG++
set -u
root=$(cd "$(dirname "$0")/../.." && pwd)
clang=$1
check="$root/tools/macos-syntax-check"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0

fail() {
    echo "FAIL: $*"
    failures=$((failures + 1))
}

# mutate SOURCE COPY SED-EXPRESSION...: the copy must differ from the source in
# exactly as many lines as there are expressions, or the test proves nothing.
mutate() {
    source=$1
    copy=$2
    shift 2
    cp "$root/$source" "$work/$copy"
    if ! "$check" "$clang" "$work/$copy" >"$work/clean.log" 2>&1; then
        fail "unchanged $source does not pass"
        cat "$work/clean.log"
    fi
    for expression in "$@"; do
        before=$(cat "$work/$copy")
        sed -i "$expression" "$work/$copy"
        if [ "$before" = "$(cat "$work/$copy")" ]; then
            fail "'$expression' changed nothing in $source"
        fi
    done
}

# expect_rejected COPY PATTERN...: clang fails and prints every pattern.
expect_rejected() {
    copy=$1
    shift
    if "$check" "$clang" "$work/$copy" >"$work/$copy.log" 2>&1; then
        fail "$copy with mistakes was accepted"
    fi
    for pattern in "$@"; do
        grep -q -- "$pattern" "$work/$copy.log" || fail "$copy: no diagnostic matching '$pattern'"
    done
}

# A misspelt selector, and an integer where the SDK has an enum type.
mutate src/store/data_folder_mac.mm folder.mm \
    's/URLsForDirectory:directory/URLsForDirectry:directory/' \
    's/userDirectory(NSApplicationSupportDirectory)/userDirectory(NSUserDomainMask)/'
expect_rejected folder.mm \
    "no visible @interface for 'NSFileManager' declares the selector 'URLsForDirectry:inDomains:'" \
    "to 'NSSearchPathDirectory' for 1st argument"

# The legacy AXValue type names are UInt32 constants, not AXValueType.
mutate src/platform/mac/axo_mac.cpp access.cpp \
    's/AXValueCreate(kAXValueTypeCGPoint/AXValueCreate(kAXValueCGPointType/'
expect_rejected access.cpp "from 'const UInt32' (aka 'const unsigned int') to 'AXValueType'"

# An Objective-C object stored as a plain pointer without a bridge cast.
mutate src/platform/mac/workspace_mac.mm workspace.mm \
    's/(__bridge_retained const void\*)app/(const void*)app/'
expect_rejected workspace.mm "requires a bridged cast"

# BOOL is bool on arm64: a signed char out-parameter only passes as on x86_64.
mutate src/platform/mac/workspace_mac.mm boolean.mm \
    's/return file != nil \&\& \[NSFileManager.defaultManager fileExistsAtPath:file\];/signed char folder = 0; return file != nil \&\& [NSFileManager.defaultManager fileExistsAtPath:file isDirectory:\&folder];/'
expect_rejected boolean.mm "parameter of type 'BOOL \* _Nullable' (aka 'bool \*') with an rvalue of type 'signed char \*'" \
    "boolean.mm fails as built for arm64"
if grep -q "fails as built for x86_64" "$work/boolean.mm.log"; then
    fail "boolean.mm: rejected as built for x86_64, where BOOL is signed char"
fi

# The result of a dispatch call marked warn_unused_result, dropped.
mutate src/app/shell_mac.mm dropped.mm \
    's/void signal() override { dispatch_semaphore_signal(semaphore_); }/void signal() override { dispatch_semaphore_signal(semaphore_); dispatch_time(DISPATCH_TIME_NOW, 0); }/'
expect_rejected dropped.mm "ignoring return value of function declared with 'warn_unused_result' attribute"

# CMake builds a .cpp file as plain C++: no Objective-C in it.
mutate src/store/boot_time_mac.cpp plain.cpp \
    's/if (sysctl(name, 2, \&boot, \&size, nullptr, 0) != 0) return std::nullopt;/@autoreleasepool { if (sysctl(name, 2, \&boot, \&size, nullptr, 0) != 0) return std::nullopt; }/'
expect_rejected plain.cpp "plain.cpp:[0-9]*:[0-9]*: error: expected expression"
# The same text is fine where CMake builds Objective-C++.
cp "$work/plain.cpp" "$work/plain.mm"
if ! "$check" "$clang" "$work/plain.mm" >"$work/plain.mm.log" 2>&1; then
    fail "plain.mm: the same source as Objective-C++ was rejected"
    cat "$work/plain.mm.log"
fi

if [ "$failures" -ne 0 ]; then
    echo "$failures check(s) failed"
    exit 1
fi
echo "every mistake was rejected"
