#!/bin/sh
# Every macOS source in the tree is on the list the build and the compile
# check use; a file missing from it would never be checked.
#   check_covers_every_file.sh LIST-FILE
set -u
root=$(cd "$(dirname "$0")/../.." && pwd)
list=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
(cd "$root" && find src -name '*_mac.mm' -o -name '*_mac.cpp' -o -name '*_mac.m' | sort) >"$work/tree"
sort "$list" >"$work/listed"
if [ ! -s "$work/tree" ]; then
    echo "FAIL: found no macOS sources under $root/src"
    exit 1
fi
if ! diff "$work/tree" "$work/listed" >"$work/diff"; then
    echo "FAIL: macOS sources in the tree (<) and on the checked list (>) differ:"
    cat "$work/diff"
    exit 1
fi
echo "$(wc -l <"$work/tree") macOS sources, all checked:"
cat "$work/tree"
