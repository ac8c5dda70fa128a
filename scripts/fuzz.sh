#!/usr/bin/env bash
# Builds the libFuzzer targets with clang into build-fuzz/ and runs each on a
# copy of its committed seed corpus for a bounded time, two at a time.
#
#   bash scripts/fuzz.sh                 every target, FUZZ_SECONDS (8) each
#   FUZZ_SECONDS=600 bash scripts/fuzz.sh config kernel_files
#
# A finding stops that target; its input is kept under
# build-fuzz/findings/<target>/ and the script fails. Fix the bug, then commit
# the input to tests/fuzz/corpus/<target>/ as a regression: the ordinary test
# build replays every corpus file (ctest -R FuzzCorpus).
set -euo pipefail
cd "$(dirname "$0")/.."
seconds="${FUZZ_SECONDS:-8}"

CC=clang CXX=clang++ cmake -S . -B build-fuzz -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DHALVEXD_FUZZ=ON -DHALVEXD_BUILD_TESTS=OFF >/dev/null
cmake --build build-fuzz -j"$(nproc)"

targets=("$@")
if [ ${#targets[@]} -eq 0 ]; then
  for dir in tests/fuzz/corpus/*/; do targets+=("$(basename "$dir")"); done
fi

run_one() {
  local target="$1" seconds="$2"
  local work="build-fuzz/work/$target" findings="build-fuzz/findings/$target"
  rm -rf "$work"
  mkdir -p "$work" "$findings"
  cp tests/fuzz/corpus/"$target"/* "$work"/
  if build-fuzz/tests/fuzz/fuzz_"$target" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 \
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
