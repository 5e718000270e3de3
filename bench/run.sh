#!/usr/bin/env bash
# Builds and runs the benchmarks and prints their tables.
#   run.sh [--filter REGEX] [--out FOLDER]
# --filter: only benchmarks whose name matches. --out: also writes FOLDER/bench.json and the plot FOLDER/stages.png.
set -eu
cd "$(dirname "$0")/.."
filter=. out=
while [ $# -gt 0 ]; do
    case $1 in
        --filter) filter=$2; shift 2 ;;
        --out) out=$2; shift 2 ;;
        *) sed -n '2,4s/^# *//p' "$0" >&2; exit 2 ;;
    esac
done
packages=(g++ cmake ninja-build nlohmann-json3-dev libbenchmark-dev python3)
[ -z "$out" ] || packages+=(python3-matplotlib)
scripts/packages.sh "${packages[@]}"
build=build/bench
cmake -S . -B $build -G Ninja -DCMAKE_BUILD_TYPE=Release -DVQNS_BUILD_BENCH=ON -DVQNS_BUILD_TESTS=OFF \
    -DVQNS_BUILD_TOOLS=OFF >/dev/null
cmake --build $build --target vqns_bench >/dev/null
results=$build/bench.json
$build/bench/vqns_bench --benchmark_filter="$filter" --benchmark_out=$results --benchmark_out_format=json \
    >/dev/null 2>$build/bench.log || { cat $build/bench.log >&2; exit 1; }
plot=()
if [ -n "$out" ]; then
    mkdir -p "$out"
    cp $results "$out/bench.json"
    plot=(--plot "$out/stages.png")
fi
/usr/bin/python3 bench/report.py $results "${plot[@]}"
