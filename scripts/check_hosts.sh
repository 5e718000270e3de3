#!/usr/bin/env bash
# Builds the plugins and runs them in their real hosts: check_hosts.sh [TEST...], all tests without one.
set -eu
cd "$(dirname "$0")/.."
packages=(g++ cmake ninja-build pkg-config nlohmann-json3-dev libcli11-dev libsndfile1-dev libsamplerate0-dev libpng-dev
    libgtest-dev python3-numpy python3-soundfile chromium
    libgstreamer-plugins-base1.0-dev gstreamer1.0-tools gstreamer1.0-plugins-base gstreamer1.0-plugins-good
    gir1.2-gstreamer-1.0 python3-gi
    ladspa-sdk libglib2.0-0 liblilv-0-0 liblua5.3-0 libreadline8
    baresip-core libre-dev librem-dev
    pybind11-dev python3-dev python3-venv python3-distributed
    lintian dpkg-dev git xz-utils)
scripts/packages.sh "${packages[@]}"
scripts/pipewire.sh || echo "PipeWire cannot be fetched: its test is skipped where it is not installed"
cmake --preset hosts >/dev/null
cmake --build --preset hosts
tests=$(IFS='|'; echo "$*")
ctest --preset hosts ${tests:+-R "^($tests)\$"}
