#!/usr/bin/env bash
# Installs what is missing, builds, and runs the whole test suite:
#  1. the size of the suite against the product (scripts/test-budget.sh) and
#     the include directions between the folders (scripts/check-layers.sh);
#  2. one clang build (build-asan/) with AddressSanitizer, UndefinedBehavior-
#     Sanitizer and LeakSanitizer over everything and the fuzz targets beside
#     the tests: the whole suite through CTest, then every fuzz target for a
#     few seconds on a copy of its corpus (scripts/fuzz.sh);
#  3. the 64-bit Arm build with the platform's GCC at -O2 under emulation
#     (build-arm64/, scripts/test-arm64.sh);
#  4. what a device build would reject (scripts/check-device.sh).
# The plain build that scripts/run.sh makes (build/) is not needed here: the
# Arm build compiles the same sources with GCC and the same warnings.
set -euo pipefail
cd "$(dirname "$0")/.."
jobs="$(nproc)"

stage() { printf '\n=== %s (%ds so far)\n' "$1" "$SECONDS"; }

stage "setup"
bash scripts/setup.sh --tests

stage "test budget and layers"
bash scripts/test-budget.sh
bash scripts/check-layers.sh

stage "sanitizer build and tests"
# Line tables only and -O1: the sanitizers' reports keep file and line, and
# the build takes half the time of -O2 with full debug information.
CC=clang CXX=clang++ cmake -S . -B build-asan -DCMAKE_BUILD_TYPE=None \
  -DCMAKE_C_FLAGS="-O1 -g1" -DCMAKE_CXX_FLAGS="-O1 -g1" -DHALVEXD_SANITIZE=ON -DHALVEXD_FUZZ=ON \
  -DHALVEXD_BUILD_TESTS=ON -DHALVEXD_BUILD_BENCH=ON >/dev/null
cmake --build build-asan -j"$jobs"
ctest --test-dir build-asan --output-on-failure -j"$jobs"

stage "fuzzing"
FUZZ_BUILD=build-asan FUZZ_SECONDS="${FUZZ_SECONDS:-5}" bash scripts/fuzz.sh

stage "64-bit Arm build and tests under emulation"
bash scripts/test-arm64.sh

stage "device checks (platform headers, Android.bp)"
bash scripts/check-device.sh

stage "done"
