// Per-process scans over this machine's live /proc with N idle children
// running: the per-process CPU monitor's snapshot, pidOf and the per-process
// memory monitor's list building, each beside the least I/O the same scan
// needs and beside the system's own process tools doing the same walk; and
// the crossing snapshot's scans, on every CPU sample and at a crossing.
#include <benchmark/benchmark.h>

#include <string>
#include <vector>

#include "monitors/CrossingSnapshot.h"
#include "monitors/ProcessCpuMonitor.h"
#include "monitors/ProcessMemMonitor.h"
#include "stats/StatUtil.h"
#include "bench/BenchRegistry.h"
#include "bench/IdleChildren.h"
#include "bench/ProcFiles.h"

namespace halvexd::bench {
namespace {

monitor_config factoryConfig(const char* name, uint64_t tickOffset) {
  monitor_config config;
  config.name = name;
  config.active = true;
  config.sampleIntervalTicks = 120;
  config.metricReportIntervalTicks = 120;
  config.metricLogcatIntervalTicks = 120;
  config.tickOffset = tickOffset;
  return config;
}

// Brings the machine to `children` idle children; false (and the benchmark
// skipped with a reason) when it cannot.
bool crowd(benchmark::State& state) {
  if (!sharedIdleChildren().resize(static_cast<size_t>(state.range(0)))) {
    state.SkipWithError("could not start the idle children");
    return false;
  }
  return true;
}

// Time per process: the run's time divided by the processes each pass saw.
void countPerProcess(benchmark::State& state, size_t processes) {
  state.counters["procs"] = static_cast<double>(processes);
  state.counters["per_proc"] = benchmark::Counter(
      static_cast<double>(processes),
      benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void cpuSnapshot(benchmark::State& state) {
  if (!crowd(state)) return;
  processcpumonitor::ProcessCpuMonitor monitor(factoryConfig("ProcessCpuMonitor", 0));
  monitor.getNewSnapshot();  // the first run only fills the table
  for (auto _ : state) {
    benchmark::DoNotOptimize(monitor.getNewSnapshot());
  }
  countPerProcess(state, monitor.processList.size());
}

// What the snapshot must read: the list, and each process's stat and comm.
void cpuSnapshotLowerBound(benchmark::State& state) {
  if (!crowd(state)) return;
  size_t processes = 0;
  for (auto _ : state) {
    std::vector<int> pids = listProcPids();
    for (int pid : pids) {
      benchmark::DoNotOptimize(readProcFile(pid, "stat"));
      benchmark::DoNotOptimize(readProcFile(pid, "comm"));
    }
    processes = pids.size();
  }
  countPerProcess(state, processes);
}

void pidOfMissingName(benchmark::State& state) {
  if (!crowd(state)) return;
  for (auto _ : state) {
    int pid = 0;
    benchmark::DoNotOptimize(StatUtil::pidOf("no.such.process", pid));
  }
  countPerProcess(state, countProcesses());
}

// What a search that finds nothing must read: the list and every comm.
void pidOfLowerBound(benchmark::State& state) {
  if (!crowd(state)) return;
  size_t processes = 0;
  for (auto _ : state) {
    std::vector<int> pids = listProcPids();
    for (int pid : pids) benchmark::DoNotOptimize(readProcFile(pid, "comm"));
    processes = pids.size();
  }
  countPerProcess(state, processes);
}

void memListBuilding(benchmark::State& state) {
  if (!crowd(state)) return;
  processmemmonitor::ProcessMemMonitor monitor(factoryConfig("ProcessMemMonitor", 1));
  for (auto _ : state) {
    monitor.resetSampleData();
    benchmark::DoNotOptimize(monitor.constructProcessLists());
  }
  countPerProcess(state, countProcesses());
}

// What the list building must read: the list, every stat, and the comm of
// each process with resident pages (found before the timing starts).
void memListLowerBound(benchmark::State& state) {
  if (!crowd(state)) return;
  std::vector<int> pids = listProcPids();
  std::vector<char> resident;
  for (int pid : pids) {
    ProcessStat stat{};
    resident.push_back(StatUtil::getProcessStat(pid, stat) && stat.rss != 0);
  }
  for (auto _ : state) {
    std::vector<int> listed = listProcPids();
    benchmark::DoNotOptimize(listed.data());
    for (size_t i = 0; i < pids.size(); ++i) {
      benchmark::DoNotOptimize(readProcFile(pids[i], "stat"));
      if (resident[i]) benchmark::DoNotOptimize(readProcFile(pids[i], "comm"));
    }
  }
  countPerProcess(state, pids.size());
}

// The pids of the processes with resident pages, as the memory monitor lists
// them.
std::vector<int> residentPids() {
  std::vector<int> pids;
  StatUtil::getProcessListRss(pids);
  return pids;
}

// PSS from smaps_rollup, the reader alone, over every process with memory.
void rollupPss(benchmark::State& state) {
  if (!crowd(state)) return;
  const std::vector<int> pids = residentPids();
  for (auto _ : state) {
    for (int pid : pids) {
      unsigned long pssKb = 0;
      benchmark::DoNotOptimize(StatUtil::getProcessPssFromRollup(pid, pssKb));
    }
  }
  countPerProcess(state, pids.size());
}

// The least the kernel must be asked for: smaps_rollup read alone.
void rollupLowerBound(benchmark::State& state) {
  if (!crowd(state)) return;
  const std::vector<int> pids = residentPids();
  for (auto _ : state) {
    for (int pid : pids) benchmark::DoNotOptimize(readProcFile(pid, "smaps_rollup"));
  }
  countPerProcess(state, pids.size());
}

// The tool's own CPU time (from its resource usage), so that it is set
// against the daemon's CPU time and not against fork and exec. `expected`
// is the exit status of a run that did the whole walk.
void runTool(benchmark::State& state, const std::vector<std::string>& argv, int expected) {
  if (!crowd(state)) return;
  for (auto _ : state) {
    int status = -1;
    double seconds = runQuietly(argv, status);
    if (seconds < 0 || status != expected) {
      state.SkipWithError(("could not run " + argv[0]).c_str());
      return;
    }
    state.SetIterationTime(seconds);
  }
  countPerProcess(state, countProcesses());
}

void psPeer(benchmark::State& state) {
  runTool(state, {"ps", "-e", "-o", "pid,comm,utime,stime"}, 0);
}

// Exits 1 when no process matches, which is the whole walk pidOf does for a
// name it does not find.
void pgrepPeer(benchmark::State& state) {
  runTool(state, {"pgrep", "-x", "no.such.process"}, 1);
}

// What every CPU sample costs with the snapshot on: each process's counters
// read and kept for the next sample.
void snapshotCpuSample(benchmark::State& state) {
  if (!crowd(state)) return;
  crossingsnapshot::CrossingSnapshot snapshot({true, 5, false});
  for (auto _ : state) {
    snapshot.onCpuSample(crossingsnapshot::CrossingSnapshot::Event::None, "CPUUtilization", 95, 400);
  }
  countPerProcess(state, countProcesses());
}

// A bare /proc scan: the list and every stat.
void snapshotCpuSampleLowerBound(benchmark::State& state) {
  if (!crowd(state)) return;
  size_t processes = 0;
  for (auto _ : state) {
    std::vector<int> pids = listProcPids();
    for (int pid : pids) benchmark::DoNotOptimize(readProcFile(pid, "stat"));
    processes = pids.size();
  }
  countPerProcess(state, processes);
}

// A sample that crossed (CPU) or a memory sample that did: the scan, the top
// five ranked and named, their lines written.
void snapshotAtCrossing(benchmark::State& state, bool memory) {
  if (!crowd(state)) return;
  crossingsnapshot::CrossingSnapshot snapshot({true, 5, false});
  const auto crossed = crossingsnapshot::CrossingSnapshot::Event::Crossed;
  for (auto _ : state) {
    if (memory) {
      snapshot.onMemorySample(crossed, "MemoryUtilization", 95);
    } else {
      snapshot.onCpuSample(crossed, "CPUUtilization", 95, 400);
    }
  }
  countPerProcess(state, countProcesses());
}

// What a crossing's snapshot must read: the list, every stat and five comms.
void snapshotAtCrossingLowerBound(benchmark::State& state) {
  if (!crowd(state)) return;
  size_t processes = 0;
  for (auto _ : state) {
    std::vector<int> pids = listProcPids();
    for (int pid : pids) benchmark::DoNotOptimize(readProcFile(pid, "stat"));
    for (size_t i = 0; i < 5 && i < pids.size(); ++i) {
      benchmark::DoNotOptimize(readProcFile(pids[i], "comm"));
    }
    processes = pids.size();
  }
  countPerProcess(state, processes);
}

}  // namespace

void registerProcessScanBenchmarks(const std::vector<long>& sizes) {
  const std::pair<const char*, void (*)(benchmark::State&)> scans[] = {
      {"ProcessCpuSnapshot", cpuSnapshot},
      {"ProcessCpuSnapshot_LowerBound", cpuSnapshotLowerBound},
      {"PidOf", pidOfMissingName},
      {"PidOf_LowerBound", pidOfLowerBound},
      {"ProcessMemListBuilding", memListBuilding},
      {"ProcessMemListBuilding_LowerBound", memListLowerBound},
      {"Peer_ps", psPeer},
      {"Peer_pgrep", pgrepPeer},
      {"CrossingSnapshotCpuSample", snapshotCpuSample},
      {"CrossingSnapshotCpuSample_LowerBound", snapshotCpuSampleLowerBound},
      {"CrossingSnapshotCpuCrossing", [](benchmark::State& s) { snapshotAtCrossing(s, false); }},
      {"CrossingSnapshotMemoryCrossing", [](benchmark::State& s) { snapshotAtCrossing(s, true); }},
      {"CrossingSnapshotCrossing_LowerBound", snapshotAtCrossingLowerBound},
  };
  // PSS costs the same per process at any count of processes: measured once,
  // at the first size.
  const std::pair<const char*, void (*)(benchmark::State&)> pssReads[] = {
      {"PssFromRollup", rollupPss},
      {"PssFromRollup_LowerBound", rollupLowerBound},
  };
  for (const auto& [name, run] : pssReads) {
    benchmark::RegisterBenchmark(name, run)->Arg(sizes.front())->Unit(benchmark::kMicrosecond);
  }
  // All scans at one size before the next size, so the children are started
  // once per size.
  for (long size : sizes) {
    for (const auto& [name, run] : scans) {
      auto* scan = benchmark::RegisterBenchmark(name, run)->Arg(size)->Unit(benchmark::kMicrosecond);
      if (std::string(name).rfind("Peer_", 0) == 0) scan->UseManualTime();
    }
  }
}

}  // namespace halvexd::bench
