#!/usr/bin/env bash
# The window's responsiveness during a scan: the 200,000-entry measurement tree placed as one
# project's derived data, scanned by the main window (offscreen) and by the command line's
# synchronous scan, alternating, with a warm cache.
#   bench/run-window-stall-bench.sh [work-folder]      (BUILD_DIR, RUNS, ENTRIES override)
set -euo pipefail

source "$(dirname "$0")/common.sh"
bench_setup window "${1:-}" window_stall make_bench_tree
bench_derived_data_home "${ENTRIES:-200000}"

"$bin/window_stall" "$home" "${RUNS:-5}"
echo "tree kept in $work (remove with rm -rf when done)"
