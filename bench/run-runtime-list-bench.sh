#!/usr/bin/env bash
# Reads generated simulator-runtime listings of 37,500 to 300,000 records the way a scan does
# and prints, per size, the median time next to the JSON parse of the same text alone, and
# the growth against the smallest listing (8 times the records should take about 8 times as
# long).
set -euo pipefail
cd "$(dirname "$0")/.."
build=build/bench-release
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DTIDEWELL_BUILD_TESTS=OFF >/dev/null
cmake --build "$build" --target runtime_list >/dev/null
"$build/bench/runtime_list" "${1:-5}"
