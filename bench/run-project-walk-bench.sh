#!/usr/bin/env bash
# Compares the project-build walk with fd over the same generated home, in one run with a warm
# cache, and prints the medians and the ratio.
set -euo pipefail
cd "$(dirname "$0")/.."
build=build/bench-release
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DTIDEWELL_BUILD_TESTS=OFF >/dev/null
cmake --build "$build" --target project_walk >/dev/null

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
home="$work/home"
python3 bench/generate_projects_home.py "$home" 300000

names='^(target|\.build|\.zig-cache|zig-cache|zig-out|node_modules|\.next|\.nuxt|\.turbo|\.parcel-cache|\.angular|\.svelte-kit|\.astro|\.vite|build|cmake-build-debug|cmake-build-release|cmake-build-relwithdebinfo|\.gradle|\.dart_tool|Pods|platforms|bundle|\.venv|venv|DerivedData)$'
echo "tidewell found: $("$build/bench/project_walk" "$home")"
echo "fd found:       $(fdfind --no-ignore -t d --prune "$names" "$home" | wc -l)"

hyperfine --warmup 3 --runs 15 --export-json "$work/walk.json" \
  -n tidewell "$build/bench/project_walk '$home'" \
  -n fd "fdfind --no-ignore -t d --prune '$names' '$home'" \
  -n fd-hidden "fdfind --no-ignore --hidden -t d --prune '$names' '$home'"

python3 - "$work/walk.json" <<'PY'
import json, sys
results = {r["command"]: r for r in json.load(open(sys.argv[1]))["results"]}
tw = results["tidewell"]["median"]
for name in ("fd", "fd-hidden"):
    other = results[name]["median"]
    print(f"{name:10s} median {other*1000:8.1f} ms   tidewell {tw*1000:8.1f} ms   fd/tidewell = {other/tw:5.2f}")
PY
