#!/usr/bin/env bash
# Installs what training and evaluation need, all of it Debian packages. Run the programs with /usr/bin/python3.
set -eu
cd "$(dirname "$0")/.."
scripts/packages.sh python3-torch python3-numpy python3-scipy python3-soundfile libopenblas-openmp-dev g++ \
    python3-matplotlib libspeexdsp1
