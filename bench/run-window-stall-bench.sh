#!/usr/bin/env bash
# The window's responsiveness during a scan: the 200,000-entry measurement tree placed as one
# project's derived data, scanned by the main window (offscreen) and by the command line's
# synchronous scan, alternating, with a warm cache.
#   bench/run-window-stall-bench.sh [work-folder]      (BUILD_DIR, RUNS, ENTRIES override)
set -euo pipefail

source_dir="$(cd "$(dirname "$0")/.." && pwd)"
build_dir="${BUILD_DIR:-$source_dir/build/measure-bench-release}"
work="${1:-$(mktemp -d "${TMPDIR:-/tmp}/tidewell-window-bench-XXXXXX")}"
runs="${RUNS:-5}"
entries="${ENTRIES:-200000}"

cmake -S "$source_dir" -B "$build_dir" -G Ninja -DCMAKE_BUILD_TYPE=Release -DTIDEWELL_BUILD_TESTS=OFF >/dev/null
cmake --build "$build_dir" --target window_stall make_bench_tree >/dev/null
bin="$build_dir/bench"

home="$work/home"
developer="$home/Library/Developer"
mkdir -p "$developer/Xcode/DerivedData" "$developer/CoreSimulator"
project="$developer/Xcode/DerivedData/Bench-abcdefghijklmnopqrstuvwxyz"
[[ -d "$project" ]] || "$bin/make_bench_tree" tree "$project" "$entries" >/dev/null

"$bin/window_stall" "$home" "$runs"
echo "tree kept in $work (remove with rm -rf when done)"
