#!/usr/bin/env bash
# How quickly a running scan stops: the 200,000-entry measurement tree placed as a derived-data
# project of a generated home, scanned and stopped at delays spread over the whole scan.
#   bench/run-cancel-bench.sh [work-folder]      (BUILD_DIR, TRIALS, ENTRIES override the defaults)
set -euo pipefail

source "$(dirname "$0")/common.sh"
bench_setup cancel "${1:-}" cancel_latency make_bench_tree
bench_derived_data_home "${ENTRIES:-200000}"

"$bin/cancel_latency" "$home" "${TRIALS:-20}"
echo "home kept in $work (remove with rm -rf when done)"
