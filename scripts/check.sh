#!/usr/bin/env bash
# Builds everything with warnings as errors and runs the tests: check.sh [PRESET], release without one.
set -eu
cd "$(dirname "$0")/.."
scripts/packages.sh g++ cmake ninja-build binutils nlohmann-json3-dev libcli11-dev libsndfile1-dev libsamplerate0-dev \
    libpng-dev libgtest-dev pkg-config qemu-user
preset=${1:-release}
cmake --preset "$preset" >/dev/null
cmake --build --preset "$preset"
ctest --preset "$preset"
