// Proportional set size (PSS) of processes. Reading a PSS is expensive, so an
// ordinary run measures only the next two names of a process list built once
// per cycle; a forced run measures the whole list. Each run reports what it
// measured.
#pragma once

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "daemon/MonitorInterface.h"
#include "stats/StatUtil.h"

namespace halvexd::processmemmonitor {

// One measured process.
struct ProcessMemData {
  int32_t pid = 0;
  char name[kProcessNameSize] = {};
  uint64_t pssKb = 0;
};

// Descending order of size: true when `a` is strictly larger than `b`.
bool PssCompare(ProcessMemData a, ProcessMemData b);

class ProcessMemMonitor : public MonitorInterface {
 public:
  // Reads the total memory once; it stays 0 when /proc/meminfo is unreadable
  // (then no shares of the total are reported). With the smaps_rollup
  // extension on, decides once where PSS comes from and says so in one line.
  explicit ProcessMemMonitor(monitor_config config);
  ~ProcessMemMonitor() override = default;

  bool init() override;
  // Measures (and reports) on the ticks where tick modulo the sample interval
  // equals the tick offset, or whenever `force` is set. False when a new
  // cycle's process list cannot be built.
  bool check(unsigned long tick, bool force) override;
  // Metrics for the eleven largest measurements (structured ones, and the
  // system-health values of the three largest, when the structured service
  // is on), then the table of non-zero sizes; empties the measurements.
  // Nothing at all when the run measured nothing.
  void log() override;

  // Measures the next pair of names of the cycle, or every name when `all`;
  // starts a new cycle first when the last one ended. A name whose recorded
  // pid now belongs to another program is looked up afresh; a name no
  // process carries any more is skipped.
  bool getNewSnapshot(bool all);
  void resetSampleData();
  // The cycle's pids (those with memory) and the names that could be read.
  // Where PSS comes from smaps_rollup, the names go largest resident size
  // first, so each cycle's early runs measure the processes most likely to
  // be large.
  bool constructProcessLists();

  std::vector<ProcessMemData> processMemData;
  std::vector<int32_t> pids;
  std::vector<std::string> processNames;
  // The pid recorded for each name; the last of several same-named wins.
  std::unordered_map<std::string, int32_t> nameToPid;
  int32_t batchIndex = 0;
  bool needsReset = true;
  uint64_t memTotalKb = 0;
  // True when /proc/perfinfo is missing and the extension lets
  // /proc/<pid>/smaps_rollup answer instead.
  bool pssFromRollup = false;

 private:
  // Reads the PSS of `pid` into the measurements; one error line if it
  // cannot be read.
  void measure(int32_t pid);
  // Reorders `pids` by `rssPages` (one per pid), largest first.
  void rankByResidentSize(const std::vector<int32_t>& rssPages);
};

}  // namespace halvexd::processmemmonitor
