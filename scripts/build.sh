#!/usr/bin/env bash
# Configures build/ and builds into it. Arguments starting with -D go to the
# configure step (e.g. -DHALVEXD_BUILD_TESTS=ON); the others name the targets
# to build, everything configured when none is named. Without options the
# build holds the daemon and its tools only; options stay in build/'s cache.
#   bash scripts/build.sh halvexd
#   bash scripts/build.sh -DHALVEXD_BUILD_TESTS=ON -DHALVEXD_BUILD_BENCH=ON
set -euo pipefail
cd "$(dirname "$0")/.."
options=()
targets=()
for arg in "$@"; do
  case "$arg" in
    -D*) options+=("$arg") ;;
    *) targets+=(--target "$arg") ;;
  esac
done
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo "${options[@]}" >/dev/null
cmake --build build -j"$(nproc)" "${targets[@]}"
