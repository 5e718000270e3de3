#!/usr/bin/env bash
# Builds the library and the program, and cleans a recording: demo.sh [IN [OUT]]
set -eu
in=${1:+$(realpath "$1")}
out=${2:+$(realpath "$2")}
cd "$(dirname "$0")/.."
scripts/packages.sh g++ cmake ninja-build nlohmann-json3-dev libcli11-dev libsndfile1-dev libsamplerate0-dev libpng-dev
cmake --preset release -DVQNS_BUILD_TESTS=OFF -B build/demo >/dev/null
cmake --build build/demo
in=${in:-samples/hum.flac}
out=${out:-build/demo/$(basename "${in%.*}")-clean.wav}
picture=${out%.*}.png
build/demo/tools/vqns/vqns denoise "$in" "$out" --spectrogram "$picture"
echo "Cleaned recording: $out"
echo "Before and after:  $picture"
