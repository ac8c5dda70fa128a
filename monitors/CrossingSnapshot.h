// The processes behind a threshold crossing of the CPU or memory usage: when
// either usage monitor logs that it crossed (or, if asked, that it is still
// above), the busiest processes of that very moment are written next to the
// line, as status lines and as one record.
//
// CPU shares need each process's counters at the previous CPU sample, so
// while the extension is on every CPU sample also reads every process's stat
// file (the same per-process reader the per-process CPU monitor uses) and
// keeps one small entry per process until the next sample.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "config/ExtensionConfig.h"
#include "metrics/MetricLogger.h"
#include "metrics/PublishNames.h"
#include "stats/StatUtil.h"
#include "stats/TotalUsageOverThrStats.h"

namespace halvexd::crossingsnapshot {

class CrossingSnapshot {
 public:
  using Event = TotalUsageOverThrStats::Event;

  // Reads every process's CPU counters: the base of the first CPU sample,
  // so it is built right after the CPU usage monitor takes its first one.
  explicit CrossingSnapshot(const ExtensionConfig::CrossingSnapshot& settings);

  // Called after every successful CPU usage sample, with the line it wrote
  // and the growth of all CPUs' counters (clock ticks) since the previous
  // one. Reads every process's counters; on a line that calls for it, writes
  // the processes with the largest growth since the previous call.
  void onCpuSample(Event event, const std::string& metric, int threshold, uint64_t totalTicks);

  // Called after every memory usage sample; on a line that calls for it,
  // writes the processes with the most resident memory now.
  void onMemorySample(Event event, const std::string& metric, int threshold);

 private:
  // One process's counters at the last CPU sample.
  struct Counter {
    int32_t pid;
    uint64_t startTime;  // tells a reused pid from the process seen before
    uint32_t busyTicks;  // user and system time, as wide as the stat reader keeps it
  };
  struct Entry {
    int32_t pid;
    double value;
    char name[kProcessNameSize];
    bool hasPss;
    unsigned long pssKb;
  };

  bool wanted(Event event) const;
  // Every readable process's stat, by ascending pid.
  static std::vector<ProcessStat> readProcesses();
  // The growth of each process's busy time since the counters were read,
  // for the processes that grew; the counters then become today's.
  std::vector<Entry> cpuGrowth(uint64_t totalTicks);
  // Keeps the `topProcesses` largest values, names them.
  std::vector<Entry> top(std::vector<Entry> candidates) const;
  // PSS where a source answers: /proc/perfinfo when the device has it, else
  // smaps_rollup with the "SmapsRollupPss" extension on.
  static bool readPss(int32_t pid, unsigned long& pssKb);
  void write(Event event, const std::string& metric, int threshold, const std::vector<Entry>& top,
             bool memory);

  ExtensionConfig::CrossingSnapshot settings;
  std::vector<Counter> counters;
  uint64_t pageKb = 4;
  MetricLogger metricLogger;
};

}  // namespace halvexd::crossingsnapshot
