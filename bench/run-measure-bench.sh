#!/usr/bin/env bash
# Times Tidewell's folder measurement against du, gdu, ncdu and a minimal reference walker on
# one generated tree with a warm cache, then checks memory and the extreme shapes (a very deep
# chain of folders, one folder with a million entries, a million-entry tree).
#   bench/run-measure-bench.sh [work-folder]      (BUILD_DIR, RUNS, ENTRIES override the defaults)
set -euo pipefail

source "$(dirname "$0")/common.sh"
bench_setup measure "${1:-}" measure_tree reference_walker make_bench_tree
runs="${RUNS:-5}"
entries="${ENTRIES:-200000}"

tree="$work/tree"
[[ -d "$tree" ]] || "$bin/make_bench_tree" tree "$tree" "$entries"

# Every tool must agree with the reference on the byte count (du and gdu add the folders' own
# blocks, so only Tidewell and the reference are compared).
ours="$("$bin/measure_tree" "$tree")"
reference="$("$bin/reference_walker" "$tree")"
echo "bytes: tidewell $ours, reference $reference"
[[ "$ours" == "$reference" ]] || { echo "totals differ" >&2; exit 1; }

json="$work/times.json"
hyperfine --style basic --warmup 2 --runs "$runs" --export-json "$json" \
  -n tidewell "$bin/measure_tree $tree" \
  -n reference "$bin/reference_walker $tree" \
  -n du "du -s $tree" \
  -n gdu "gdu -n -p -s $tree" \
  -n ncdu "ncdu -q -o /dev/null $tree" >/dev/null

python3 - "$json" <<'PY'
import json, sys
results = {r["command"]: r["median"] for r in json.load(open(sys.argv[1]))["results"]}
ours = results["tidewell"]
for name, median in results.items():
    print(f"{name:10s} median {median * 1000:8.1f} ms   {median / ours:5.2f} x tidewell")
print(f"tidewell / reference = {ours / results['reference']:.2f} (bar <= 1.10)")
print(f"du / tidewell        = {results['du'] / ours:.2f} (bar >= 1.90)")
print(f"gdu / tidewell       = {results['gdu'] / ours:.2f} (bar >= 1.90)")
PY

big="$work/tree-1m"
[[ -d "$big" ]] || "$bin/make_bench_tree" tree "$big" 1000000 --empty-files >/dev/null
"$bin/measure_tree" "$big" >/dev/null
/usr/bin/time -f "1,000,000-entry tree: %e s, max RSS %M KB (bar < 65536 KB)" "$bin/measure_tree" "$big" >/dev/null

chain="$work/chain-50k"
[[ -d "$chain" ]] || "$bin/make_bench_tree" chain "$chain" 50000 >/dev/null
/usr/bin/time -f "50,000-level chain: %e s, max RSS %M KB" "$bin/measure_tree" "$chain"

flat="$work/flat-1m"
[[ -d "$flat" ]] || "$bin/make_bench_tree" flat "$flat" 1000000 >/dev/null
/usr/bin/time -f "1,000,000 entries in one folder: %e s, max RSS %M KB" "$bin/measure_tree" "$flat"

echo "trees kept in $work (remove with rm -rf when done)"
