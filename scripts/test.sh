#!/usr/bin/env bash
# Installs what is missing, builds, and runs the whole test suite: first the
# normal build (build/), then the same suite under AddressSanitizer,
# UndefinedBehaviorSanitizer and LeakSanitizer (build-asan/), then every
# libFuzzer target for a few seconds on a copy of its seed corpus
# (build-fuzz/, see scripts/fuzz.sh), and last the 64-bit Arm build under
# emulation (build-arm64/, see scripts/test-arm64.sh).
set -euo pipefail
cd "$(dirname "$0")/.."
jobs="$(nproc)"

stage() { printf '\n=== %s (%ds so far)\n' "$1" "$SECONDS"; }

stage "setup"
bash scripts/setup.sh --tests

stage "normal build and tests"
bash scripts/build.sh -DHALVEXD_BUILD_TESTS=ON -DHALVEXD_BUILD_BENCH=ON
ctest --test-dir build --output-on-failure -j"$jobs"

stage "sanitizer build and tests"
cmake -S . -B build-asan -DCMAKE_BUILD_TYPE=RelWithDebInfo -DHALVEXD_SANITIZE=ON \
  -DHALVEXD_BUILD_TESTS=ON -DHALVEXD_BUILD_BENCH=ON >/dev/null
cmake --build build-asan -j"$jobs"
ctest --test-dir build-asan --output-on-failure -j"$jobs"

stage "fuzzing"
bash scripts/fuzz.sh

stage "64-bit Arm build and tests under emulation"
bash scripts/test-arm64.sh

stage "device checks (platform headers, Android.bp)"; bash scripts/check-device.sh

stage "done"
