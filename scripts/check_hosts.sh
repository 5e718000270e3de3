#!/usr/bin/env bash
# Builds the plugins and runs them in their real hosts: check_hosts.sh [TEST...], all tests without one.
set -eu
cd "$(dirname "$0")/.."
packages=(g++ cmake ninja-build pkg-config nlohmann-json3-dev libcli11-dev libsndfile1-dev libsamplerate0-dev libpng-dev
    libgtest-dev python3-numpy python3-soundfile)
scripts/packages.sh "${packages[@]}"
cmake --preset release -DVQNS_BUILD_PLUGINS=ON >/dev/null
cmake --build --preset release
tests=$(IFS='|'; echo "$*")
ctest --preset release -L hosts ${tests:+-R "^($tests)\$"}
