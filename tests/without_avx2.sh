#!/usr/bin/env bash
# without_avx2.sh PROGRAM...: runs each on an emulated processor that has AVX but neither AVX2 nor fused multiply-add.
set -eu
if ! command -v qemu-x86_64 >/dev/null; then
    echo "SKIPPED: qemu-x86_64 is missing (Debian package qemu-user)"
    exit 77
fi
# The look at the library's object files is the same on every processor, and slow here.
export GTEST_FILTER=-ObjectFiles.*
for program in "$@"; do
    qemu-x86_64 -cpu SandyBridge "$program" 2>&1 | grep -v "TCG doesn't support"
    [ "${PIPESTATUS[0]}" -eq 0 ] || { echo "$program failed"; exit 1; }
done
