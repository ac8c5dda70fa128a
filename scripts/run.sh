#!/usr/bin/env bash
# Installs what is missing, builds the daemon and its two tools (nothing of
# the tests), and runs halvexd in the foreground over the bundled sample
# tablet (a fixture device tree), logging to the terminal.
# Extra arguments go to the daemon, e.g. `bash scripts/run.sh -t 1`.
# Stop it with Ctrl-C.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
bash scripts/build.sh halvexd halvex-decode halvex-config-check
export HALVEXD_SYSROOT="${HALVEXD_SYSROOT:-$PWD/tests/fixtures/tablet}"
exec build/halvexd "$@"
