// What the daemon's own-cost extension adds: per tick, the timing of every
// check (a tick of six monitors with nothing due, with the extension and
// without); per interval, the report read from the daemon's own /proc
// entries. Each beside its lower bound.
#include <benchmark/benchmark.h>
#include <time.h>

#include <vector>

#include "bench/BenchRegistry.h"
#include "daemon/DaemonCost.h"
#include "daemon/MonitorEngine.h"
#include "stats/StatUtil.h"

namespace halvexd::bench {
namespace {

// A monitor with nothing due: the engine's call and nothing else.
class IdleMonitor : public MonitorInterface {
 public:
  IdleMonitor() { name = "IdleMonitor"; }
  bool init() override { return true; }
  bool check(unsigned long, bool) override { return true; }
  void log() override {}
};

constexpr size_t kMonitors = 6;

void tick(benchmark::State& state, bool timed) {
  std::vector<IdleMonitor> monitors(kMonitors);
  MonitorEngine engine;
  for (IdleMonitor& monitor : monitors) engine.addMonitor(&monitor);
  // An interval no run reaches: the ticks are timed, never reported.
  daemoncost::DaemonCost cost({true, 86400, 0});
  if (timed) engine.setDaemonCost(&cost);
  for (auto _ : state) engine.runTick();
}

// The timing's least work: one monotonic clock read at each end of every
// check and of the tick.
void tickTimingLowerBound(benchmark::State& state) {
  for (auto _ : state) {
    for (size_t i = 0; i < 2 * (kMonitors + 1); ++i) {
      timespec now{};
      clock_gettime(CLOCK_MONOTONIC, &now);
      benchmark::DoNotOptimize(now);
    }
  }
}

void report(benchmark::State& state) {
  daemoncost::DaemonCost cost({true, 1, 0});
  for (auto _ : state) {
    cost.tickBegins();
    cost.checkDone("IdleMonitor", 1);
    cost.tickDone(0);
  }
}

// The report's least I/O: its three files read and the descriptors listed.
void reportLowerBound(benchmark::State& state) {
  const std::vector<KeyedNumber> none;
  for (auto _ : state) {
    ProcessStat stat{};
    benchmark::DoNotOptimize(StatUtil::getProcessStatFromFile("/proc/self/stat", stat));
    benchmark::DoNotOptimize(StatUtil::getKeyedNumbersFromFile("/proc/self/status", none));
    benchmark::DoNotOptimize(StatUtil::getKeyedNumbersFromFile("/proc/self/smaps_rollup", none));
    uint64_t fds = 0;
    benchmark::DoNotOptimize(StatUtil::countDirectoryEntries("/proc/self/fd", fds));
  }
}

}  // namespace

void registerDaemonCostBenchmarks() {
  benchmark::RegisterBenchmark("EngineTick/plain", [](benchmark::State& s) { tick(s, false); });
  benchmark::RegisterBenchmark("EngineTick/timed", [](benchmark::State& s) { tick(s, true); });
  benchmark::RegisterBenchmark("EngineTickTiming_LowerBound", tickTimingLowerBound);
  benchmark::RegisterBenchmark("DaemonCostReport", report)->Unit(benchmark::kMicrosecond);
  benchmark::RegisterBenchmark("DaemonCostReport_LowerBound", reportLowerBound)
      ->Unit(benchmark::kMicrosecond);
}

}  // namespace halvexd::bench
