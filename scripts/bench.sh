#!/usr/bin/env bash
# Measures what halvexd costs and writes BENCHMARKS.md:
#   1-3, 6  the benchmark suite (build/halvexd_bench): per-process scans at
#           100, 1,000 and 4,000 idle children, one check of each system
#           monitor, record building; every figure beside its lower bound or
#           a peer measured in the same run;
#   4       footprint of the running daemon after its first full cycle of all
#           six monitors with 1,000 processes running, beside collectd with
#           its cpu, memory, df and processes plugins at the same interval;
#   5       idle cost: CPU time and wake-ups over 60 one-second ticks on
#           which no monitor is due, without and with the extensions on;
#   7       the extensions' cost per sample and per tick (in the suite).
# Installs what is missing (Debian, root). Takes about two minutes.
#   bash scripts/bench.sh [--quick]   (--quick: short runs, for trying it out)
set -euo pipefail
cd "$(dirname "$0")/.."

quick=false
[ "${1:-}" = "--quick" ] && quick=true

bash scripts/setup.sh
bash scripts/setup.sh libbenchmark-dev procps collectd-core python3
bash scripts/build.sh -DHALVEXD_BUILD_BENCH=ON halvexd halvexd_bench halvexd_idle_floor

# Not build/bench: that is where the build keeps the benchmarks' own files.
out=build/bench-results
rm -rf "$out"
mkdir -p "$out"

# Processes this script started, ended on any exit.
started=()
cleanup() {
  for pid in "${started[@]}"; do kill -9 "$pid" 2>/dev/null || true; done
  wait 2>/dev/null || true
}
trap cleanup EXIT

echo "== benchmark suite"
suite_args=(--benchmark_out="$out/suite.json" --benchmark_out_format=json)
if $quick; then
  suite_args+=(--sizes=100,400 --benchmark_min_time=0.05)
fi
build/halvexd_bench "${suite_args[@]}"

# A device tree that is this machine (its /proc and /sys), with the sample
# tablet's configuration, so the daemon's records are all switched on.
tree="$out/device"
mkdir -p "$tree/system/system_ext/etc" "$tree/data"
ln -s /proc "$tree/proc"
ln -s /sys "$tree/sys"
cp tests/fixtures/tablet/system/system_ext/etc/halvex_config.json "$tree/system/system_ext/etc/"
# The same with the example configuration of the extensions.
extended_tree="$out/device-extensions"
mkdir -p "$extended_tree/system/system_ext/etc" "$extended_tree/data"
ln -s /proc "$extended_tree/proc"
ln -s /sys "$extended_tree/sys"
# Its pressure monitor keeps its own sample interval whatever -s says: set to
# a day, as -s 100000 sets the others, so that the idle ticks stay idle (its
# check has its own row in section 2).
python3 - android/halvex_config_extensions.json \
  "$extended_tree/system/system_ext/etc/halvex_config.json" <<'PY'
import json, sys
config = json.load(open(sys.argv[1]))
config["HalvexExtensions"]["Pressure"]["Sample_interval_ticks"] = 86400
json.dump(config, open(sys.argv[2], "w"), indent=2)
PY

uptime_s=$(cut -d. -f1 /proc/uptime)
if [ "$uptime_s" -lt 180 ]; then
  echo "waiting $((180 - uptime_s)) s: the daemon starts ticking at 180 s of uptime"
fi

# "<first> <second>" figures of /proc/<pid>: CPU time in ns (schedstat) and
# voluntary context switches.
cpu_ns() { cut -d' ' -f1 "/proc/$1/schedstat"; }
voluntary() { awk '/^voluntary_ctxt_switches/ {print $2}' "/proc/$1/status"; }
rollup() { awk -v key="$2:" '$1 == key {print $2}' "/proc/$1/smaps_rollup"; }

# Waits until the daemon's log shows `text`, at most `limit` seconds.
wait_for_log() {
  local log=$1 text=$2 limit=$3
  for _ in $(seq $((limit * 10))); do
    grep -q "$text" "$log" 2>/dev/null && return 0
    sleep 0.1
  done
  echo "the daemon never logged: $text" >&2
  return 1
}

echo "== footprint with 1,000 processes running"
for _ in $(seq 1000); do
  sleep 100000 &
  started+=($!)
done
HALVEXD_SYSROOT="$PWD/$tree" HALVEXD_LOG_FILE="$out/footprint.log" build/halvexd -s 6 -t 1 &
daemon=$!
started+=("$daemon")

cat > "$out/collectd.conf" <<CONF
Interval 1
LoadPlugin cpu
LoadPlugin memory
LoadPlugin df
LoadPlugin processes
LoadPlugin csv
<Plugin csv>
  DataDir "$PWD/$out/collectd-csv"
</Plugin>
CONF
/usr/sbin/collectd -f -C "$out/collectd.conf" >"$out/collectd.log" 2>&1 &
collectd=$!
started+=("$collectd")

# Tick 5 runs the disk monitor, the last of the six; tick 6 the per-process
# CPU monitor's first report.
wait_for_log "$out/footprint.log" "Running DiskUsageMonitor" 400
sleep 2
processes=$(ls /proc | grep -c '^[0-9]')
{
  echo "processes=$processes"
  for key in Rss Pss Private_Dirty; do
    echo "halvexd_$key=$(rollup "$daemon" "$key")"
    echo "collectd_$key=$(rollup "$collectd" "$key")"
  done
} > "$out/footprint.txt"
{
  kill "$daemon" "$collectd"
  for pid in "${started[@]:0:1000}"; do kill -9 "$pid"; done
  wait
} 2>/dev/null || true
started=()

echo "== idle cost over 60 one-second ticks"
ticks=60
$quick && ticks=10
# With a sample interval of 100000 ticks every monitor runs once in ticks
# 0 to 5 and then not again for a day: the ticks after that are idle.
HALVEXD_SYSROOT="$PWD/$tree" HALVEXD_LOG_FILE="$out/idle.log" build/halvexd -s 100000 -t 1 &
daemon=$!
started+=("$daemon")
# Beside it, one with the extensions on (its own-cost report falls on tick
# 119, after the window).
HALVEXD_SYSROOT="$PWD/$extended_tree" HALVEXD_LOG_FILE="$out/idle-extensions.log" \
  build/halvexd -s 100000 -t 1 &
extended=$!
started+=("$extended")
wait_for_log "$out/idle.log" "Running DiskUsageMonitor" 400
wait_for_log "$out/idle-extensions.log" "Running DiskUsageMonitor" 400
sleep 1.5
# The floor: a program that only waits one second at a time, over the same
# ticks; its start-up is left out by reading it one second in.
build/halvexd_idle_floor $((ticks + 3)) &
floor=$!
started+=("$floor")
sleep 1
cpu_before=$(cpu_ns "$daemon")
wakeups_before=$(voluntary "$daemon")
extended_cpu_before=$(cpu_ns "$extended")
extended_wakeups_before=$(voluntary "$extended")
floor_cpu_before=$(cpu_ns "$floor")
floor_wakeups_before=$(voluntary "$floor")
sleep "$ticks"
cpu_after=$(cpu_ns "$daemon")
wakeups_after=$(voluntary "$daemon")
extended_cpu_after=$(cpu_ns "$extended")
extended_wakeups_after=$(voluntary "$extended")
floor_cpu_after=$(cpu_ns "$floor")
floor_wakeups_after=$(voluntary "$floor")
{
  kill "$daemon" "$extended" "$floor"
  wait
} 2>/dev/null || true
started=()
{
  echo "ticks=$ticks"
  echo "cpu_ns=$((cpu_after - cpu_before))"
  echo "wakeups=$((wakeups_after - wakeups_before))"
  echo "extended_cpu_ns=$((extended_cpu_after - extended_cpu_before))"
  echo "extended_wakeups=$((extended_wakeups_after - extended_wakeups_before))"
  echo "floor_cpu_ns=$((floor_cpu_after - floor_cpu_before))"
  echo "floor_wakeups=$((floor_wakeups_after - floor_wakeups_before))"
} > "$out/idle.txt"

python3 scripts/bench_report.py "$out" > BENCHMARKS.md
echo "== BENCHMARKS.md written"
