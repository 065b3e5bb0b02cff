#!/usr/bin/env bash
# How quickly a running scan stops: the 200,000-entry measurement tree placed as a derived-data
# project of a generated home, scanned and stopped at delays spread over the whole scan.
#   bench/run-cancel-bench.sh [work-folder]      (BUILD_DIR, TRIALS, ENTRIES override the defaults)
set -euo pipefail

source_dir="$(cd "$(dirname "$0")/.." && pwd)"
build_dir="${BUILD_DIR:-$source_dir/build/measure-bench-release}"
work="${1:-$(mktemp -d "${TMPDIR:-/tmp}/tidewell-cancel-bench-XXXXXX")}"
entries="${ENTRIES:-200000}"
mkdir -p "$work"

cmake -S "$source_dir" -B "$build_dir" -G Ninja -DCMAKE_BUILD_TYPE=Release -DTIDEWELL_BUILD_TESTS=OFF >/dev/null
cmake --build "$build_dir" --target cancel_latency make_bench_tree >/dev/null
bin="$build_dir/bench"

home="$work/home"
developer="$home/Library/Developer"
mkdir -p "$developer/CoreSimulator" "$developer/Xcode/DerivedData"
tree="$developer/Xcode/DerivedData/Big-abcdefghijklmnopqrstuvwxyz"
[[ -d "$tree" ]] || "$bin/make_bench_tree" tree "$tree" "$entries" >/dev/null

"$bin/cancel_latency" "$home" "${TRIALS:-20}"
echo "home kept in $work (remove with rm -rf when done)"
