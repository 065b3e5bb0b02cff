#!/usr/bin/env bash
# Measures and removes "comb" trees (every level holds the next level, two empty folders and a
# file) of 5,000 and 50,000 levels and prints how the times grow: a linear walk keeps
# comb(50k)/comb(5k) near 10 (the goal is at most 12). Elapsed and CPU time are both shown;
# on a busy machine the CPU time is the steadier figure.
#   bench/run-comb-bench.sh [work-folder]      (BUILD_DIR, RUNS override the defaults)
set -euo pipefail

source "$(dirname "$0")/common.sh"
bench_setup comb "${1:-}" comb_tree
runs="${RUNS:-3}"
comb="$bin/comb_tree"

median() { sort -n | awk '{ v[NR] = $1 } END { print v[int((NR + 1) / 2)] }'; }

# Prints the medians over the runs of: measure elapsed, measure CPU, remove elapsed, remove
# CPU. The tree is built anew for every run (removing it is half of what is timed).
time_tree() {
  local levels="$1" mw=() mc=() rw=() rc=() bytes wall cpu
  for ((run = 0; run < runs; run++)); do
    rm -rf "$work/tree"
    "$comb" build "$work/tree" "$levels"
    "$comb" measure "$work/tree" >/dev/null  # warm the cache
    read -r bytes wall cpu < <("$comb" measure "$work/tree")
    mw+=("$wall") mc+=("$cpu")
    read -r wall cpu < <("$comb" remove "$work/tree")
    rw+=("$wall") rc+=("$cpu")
  done
  for values in "${mw[*]}" "${mc[*]}" "${rw[*]}" "${rc[*]}"; do printf '%s\n' $values | median; done | xargs
}

read -r mw5 mc5 rw5 rc5 < <(time_tree 5000)
read -r mw50 mc50 rw50 rc50 < <(time_tree 50000)
python3 - "$mw5" "$mc5" "$rw5" "$rc5" "$mw50" "$mc50" "$rw50" "$rc50" <<'PY'
import sys
mw5, mc5, rw5, rc5, mw50, mc50, rw50, rc50 = map(float, sys.argv[1:])
print("| Comb | Measure (elapsed / CPU) | Remove (elapsed / CPU) |")
print("|---|---|---|")
print(f"| 5,000 levels | {mw5:.2f} s / {mc5:.2f} s | {rw5:.2f} s / {rc5:.2f} s |")
print(f"| 50,000 levels | {mw50:.2f} s / {mc50:.2f} s | {rw50:.2f} s / {rc50:.2f} s |")
print(f"| ratio 50k / 5k | {mw50 / mw5:.1f} / {mc50 / mc5:.1f} | {rw50 / rw5:.1f} / {rc50 / rc5:.1f} |")
PY
rm -rf "$work/tree"
