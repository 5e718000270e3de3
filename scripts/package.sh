#!/usr/bin/env bash
# Builds the Debian packages and, in a git checkout, the source tarball: package.sh [OUT], into build/dist without one.
set -eu
umask 022
top=$(realpath "$(dirname "$0")/..")
out=$(realpath -m "${1:-$top/build/dist}")
cd "$top"
mkdir -p "$out"
scripts/packages.sh g++ cmake ninja-build pkg-config nlohmann-json3-dev libcli11-dev libsndfile1-dev \
    libsamplerate0-dev libpng-dev dpkg-dev git xz-utils ladspa-sdk \
    libgstreamer-plugins-base1.0-dev libre-dev librem-dev
cmake --preset release -B build/package -DVQNS_BUILD_TESTS=OFF -DVQNS_BUILD_PLUGINS=ON -DVQNS_PACKAGES=ON >/dev/null
cmake --build build/package
cpack --config build/package/CPackConfig.cmake -B build/package -D CPACK_OUTPUT_FILE_PREFIX="$out"
[ ! -e .git ] || scripts/source_tarball.sh "$out"
