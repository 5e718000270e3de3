#!/usr/bin/env bash
# Builds everything with warnings as errors and runs the tests: check.sh [PRESET], release without one.
set -eu
cd "$(dirname "$0")/.."
preset=${1:-release}
packages=(g++ cmake ninja-build binutils pkg-config qemu-user nlohmann-json3-dev libcli11-dev libsndfile1-dev
    libsamplerate0-dev libpng-dev libgtest-dev)
[ "$preset" != clang ] || packages+=(clang-14)
scripts/packages.sh "${packages[@]}"
cmake --preset "$preset" >/dev/null
cmake --build --preset "$preset"
ctest --preset "$preset"
