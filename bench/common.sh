# The start every bench script shares; source it, then call bench_setup.
#
# bench_setup NAME WORK TARGET...: builds the named bench programs in the release build
# (BUILD_DIR overrides it) and sets source_dir, build_dir, bin (the bench programs) and work
# (WORK if given, else a new temporary folder named after NAME).
bench_setup() {
  local name=$1 chosen_work=$2
  shift 2
  source_dir="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
  build_dir="${BUILD_DIR:-$source_dir/build/measure-bench-release}"
  work="${chosen_work:-$(mktemp -d "${TMPDIR:-/tmp}/tidewell-$name-bench-XXXXXX")}"
  mkdir -p "$work"
  cmake -S "$source_dir" -B "$build_dir" -G Ninja -DCMAKE_BUILD_TYPE=Release -DTIDEWELL_BUILD_TESTS=OFF >/dev/null
  cmake --build "$build_dir" --target "$@" >/dev/null
  bin="$build_dir/bench"
}

# bench_derived_data_home ENTRIES: a home in $work whose only derived-data project is the
# measurement tree of ENTRIES entries (made once, kept between runs); sets home.
bench_derived_data_home() {
  home="$work/home"
  local developer="$home/Library/Developer"
  mkdir -p "$developer/CoreSimulator" "$developer/Xcode/DerivedData"
  local project="$developer/Xcode/DerivedData/Bench-abcdefghijklmnopqrstuvwxyz"
  [[ -d "$project" ]] || "$bin/make_bench_tree" tree "$project" "$1" >/dev/null
}
