#!/usr/bin/env bash
# Installs what is missing, builds, and runs halvexd in the foreground,
# logging to the terminal (or where HALVEXD_LOG_FILE / HALVEXD_LOG_FORMAT say).
#
#   bash scripts/run.sh          over the sample tablet, moving: a copy of
#                                tests/fixtures/tablet that halvex-devicesim
#                                changes every second as a running device
#   bash scripts/run.sh --live   over this machine's own /proc and /sys
#   bash scripts/run.sh --seed N the sample tablet's moves from seed N
#   bash scripts/run.sh [--live] --config FILE
#                                with FILE as the device's configuration
#                                (e.g. android/halvex_config_extensions.json,
#                                every extension on)
#   bash scripts/run.sh [--live] --no-perfinfo
#                                a device without /proc/perfinfo (with the
#                                configuration above, PSS from smaps_rollup)
#   bash scripts/run.sh [--live] -s 1 -t 1
#                                one daemon with these options instead
#
# Two daemons watch the same tree (see "Run it" in README.md for why): one
# with -s 1 -t 1, whose CPU and memory usage monitors report on ticks 3 and 4,
# and one with -s 6 -t 1, whose per-process CPU, per-process memory, system
# memory and disk monitors report within 12 seconds. Stop all with Ctrl-C:
# the daemons end first (each logs "Exiting"), then the device.
set -euo pipefail
cd "$(dirname "$0")/.."

live=0
seed=1
config=""
perfinfo=1
while [ $# -gt 0 ]; do
  case "$1" in
    --live) live=1 ;;
    --seed) seed="$2"; shift ;;
    --config) config="$2"; shift ;;
    --no-perfinfo) perfinfo=0 ;;
    *) break ;;
  esac
  shift
done
# Any other arguments go to a single daemon instead of the two.
daemon_args=("$@")

bash scripts/setup.sh
bash scripts/build.sh halvexd halvex-decode halvex-config-check halvex-devicesim

sysroot="$(mktemp -d /tmp/halvexd-run.XXXXXX)"
pids=()
# Waits up to ten seconds for the given processes to end. (Polled: `wait` for
# a pid inside an exit trap does not come back in every bash.)
await() {
  for _ in $(seq 100); do
    local alive=0
    for pid in "$@"; do kill -0 "$pid" 2>/dev/null && alive=1; done
    [ "$alive" = 0 ] && return 0
    sleep 0.1
  done
}
stop() {
  trap '' INT TERM
  # The daemons first, so neither reads a tree that is going away; each logs
  # "Exiting". Then the device.
  for pid in "${pids[@]:1}"; do kill -TERM "$pid" 2>/dev/null || true; done
  await "${pids[@]:1}"
  [ ${#pids[@]} -gt 0 ] && kill -TERM "${pids[0]}" 2>/dev/null || true
  await "${pids[@]}"
  rm -rf "$sysroot"
}
trap stop EXIT
trap 'exit 0' INT TERM

device_args=()
[ "$perfinfo" = 0 ] && device_args+=(--no-perfinfo)
if [ "$live" = 1 ]; then
  build/halvex-devicesim --live --config "${config:-android/halvex_config.json}" \
    "${device_args[@]}" "$sysroot/root" &
else
  build/halvex-devicesim --seed "$seed" --from tests/fixtures/tablet ${config:+--config "$config"} \
    "${device_args[@]}" "$sysroot/root" &
fi
pids+=($!)
# /proc/perfinfo is the last thing the device makes; without it, the
# tablet's pressure files are written after everything else the daemons read
# first, and the live sysroot's /proc links after its configuration.
ready=(-p "$sysroot/root/proc/perfinfo")
if [ "$perfinfo" = 0 ]; then
  ready=(-e "$sysroot/root/proc/pressure/io")
  [ "$live" = 1 ] && ready=(-e "$sysroot/root/proc/uptime")
fi
for _ in $(seq 100); do [ "${ready[@]}" ] && break; sleep 0.1; done
[ "${ready[@]}" ] || { echo "the device did not start" >&2; exit 1; }

export HALVEXD_SYSROOT="$sysroot/root"
if [ ${#daemon_args[@]} -gt 0 ]; then
  build/halvexd "${daemon_args[@]}" &
  pids+=($!)
else
  build/halvexd -s 1 -t 1 &
  pids+=($!)
  build/halvexd -s 6 -t 1 &
  pids+=($!)
fi
wait
