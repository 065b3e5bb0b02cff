#!/usr/bin/env bash
# Compares the project-build walk with fd over the same generated home, in one run with a warm
# cache, and prints the medians and the ratio. Then times the whole `tidewell info` on that home
# (find and measure every build folder) against fd finding the same folders piped into the
# reference walker measuring each of them, and counts the file-system calls of both.
# The build is optimised; its test hooks are on only so that `info` can be pointed at the
# generated home (they read two environment variables and cost nothing else).
set -euo pipefail
cd "$(dirname "$0")/.."
build=build/bench-release
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DTIDEWELL_BUILD_TESTS=OFF -DTIDEWELL_TEST_HOOKS=ON >/dev/null
cmake --build "$build" --target project_walk tidewell reference_walker >/dev/null

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

# The whole scan. `info` insists on Xcode's folders; empty ones add nothing to measure.
mkdir -p "$home/Library/Developer/Xcode" "$home/Library/Developer/CoreSimulator" "$work/root"
info="env TIDEWELL_TEST_HOME='$home' TIDEWELL_TEST_ROOT='$work/root' TIDEWELL_FROM_COMMAND_LINE=1 $build/Tidewell.app/Contents/MacOS/tidewell info"
pair="fdfind --no-ignore --hidden -t d --prune '$names' '$home' | $build/bench/reference_walker -"
echo "fd + reference walker measured $(bash -c "$pair" | wc -l) folders"

hyperfine --warmup 2 --runs 10 --export-json "$work/info.json" -n info "$info >/dev/null" -n fd+walker "$pair >/dev/null"
python3 - "$work/info.json" <<'PY'
import json, sys
results = {r["command"]: r["median"] for r in json.load(open(sys.argv[1]))["results"]}
print(f"info median {results['info']*1000:8.1f} ms   fd+walker {results['fd+walker']*1000:8.1f} ms   "
      f"info/(fd+walker) = {results['info']/results['fd+walker']:5.2f}")
PY

for name in info pair; do
  strace -f -c -e trace=openat,getdents64,newfstatat -o "$work/$name.strace" bash -c "${!name} >/dev/null"
  echo "$name: $(awk '$NF ~ /^(openat|getdents64|newfstatat)$/ {printf "%s %s  ", $NF, $4}' "$work/$name.strace")"
done
