#!/usr/bin/env bash
# Builds the libFuzzer targets with clang into build-fuzz/ and runs each on a
# copy of its committed seed corpus for a bounded time, two at a time.
#
#   bash scripts/fuzz.sh                 every target, FUZZ_SECONDS (8) each
#   FUZZ_SECONDS=600 bash scripts/fuzz.sh config kernel_files
#   FUZZ_BUILD=build-asan bash scripts/fuzz.sh
#                                        the fuzzers of a build configured
#                                        already (the test command's clang
#                                        sanitizer build holds them)
#
# A finding stops that target; its input is kept under
# <build>/findings/<target>/ and the script fails. Fix the bug, then commit
# the input to tests/fuzz/corpus/<target>/ as a regression: the ordinary test
# build replays every corpus file (ctest -R FuzzCorpus).
set -euo pipefail
cd "$(dirname "$0")/.."
seconds="${FUZZ_SECONDS:-8}"
build="${FUZZ_BUILD:-build-fuzz}"

if [ ! -f "$build/CMakeCache.txt" ]; then
  CC=clang CXX=clang++ cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DHALVEXD_FUZZ=ON -DHALVEXD_BUILD_TESTS=OFF >/dev/null
fi

targets=("$@")
if [ ${#targets[@]} -eq 0 ]; then
  for dir in tests/fuzz/corpus/*/; do targets+=("$(basename "$dir")"); done
fi
cmake --build "$build" -j"$(nproc)" $(printf -- '--target fuzz_%s ' "${targets[@]}")
export FUZZ_BUILD="$build"

run_one() {
  local target="$1" seconds="$2"
  local work="$FUZZ_BUILD/work/$target" findings="$FUZZ_BUILD/findings/$target"
  rm -rf "$work"
  mkdir -p "$work" "$findings"
  cp tests/fuzz/corpus/"$target"/* "$work"/
  if "$FUZZ_BUILD"/tests/fuzz/fuzz_"$target" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 \
      -print_final_stats=0 -artifact_prefix="$findings/" "$work" >"$findings/log" 2>&1; then
    echo "fuzz_$target: $(grep -E '^#[0-9]+[[:space:]]+DONE' "$findings/log" | tail -1)"
  else
    echo "fuzz_$target FAILED; input kept in $findings/"
    grep -E 'ERROR|runtime error|fuzz check failed|SUMMARY' "$findings/log" | head -5
    return 1
  fi
}
export -f run_one

printf '%s\n' "${targets[@]}" | xargs -P "$(nproc)" -I{} bash -c 'run_one "$1" "$2"' _ {} "$seconds"
