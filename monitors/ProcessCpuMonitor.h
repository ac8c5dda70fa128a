// CPU usage of every running process between two runs, as a percentage of one
// CPU over the wall-clock time between them. Reports the busiest processes as
// metrics and prints every process above 0.1 % to the system log.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>

#include "daemon/MonitorInterface.h"
#include "stats/StatUtil.h"

namespace halvexd::processcpumonitor {

// One known process and its figures at its last sample.
struct ProcessListEntry {
  int32_t pid = 0;
  char name[kProcessNameSize] = {};
  uint64_t sampleTimeMs = 0;  // uptime at the last sample
  int64_t elapsedMs = 0;      // between the previous and the last sample
  uint64_t utimeMs = 0;       // cumulative, at the last sample
  uint64_t stimeMs = 0;
  uint32_t utimeDeltaMs = 0;  // growth between the last two samples
  uint32_t stimeDeltaMs = 0;
  bool isNew = true;  // created by the last snapshot: no usage figure yet
  float cpuUsagePercent = 0;
  bool remove = false;  // dropped at the end of the current snapshot
};

// Descending order of usage: true when `a` used strictly more than `b`.
bool CpuUsageCompare(ProcessListEntry* a, ProcessListEntry* b);

class ProcessCpuMonitor : public MonitorInterface {
 public:
  explicit ProcessCpuMonitor(monitor_config config);
  ~ProcessCpuMonitor() override = default;

  bool init() override;
  // Samples (and reports) on the ticks where tick modulo the sample interval
  // equals the tick offset, or whenever `force` is set. False, with the table
  // kept, when /proc cannot be listed.
  bool check(unsigned long tick, bool force) override;
  // Plain metrics for the eleven busiest processes, structured ones and the
  // system-health values of the three busiest when the structured service
  // is on, then the table of processes above 0.1 %. Nothing on the first run,
  // when no process has a usage figure yet.
  void log() override;

  // Brings the table up to the processes now running: new ones are added,
  // known ones get a usage figure, ended ones and implausible figures are
  // dropped. False, changing nothing, when /proc cannot be listed.
  bool getNewSnapshot();
  void addEntry(const ProcessStat& stat);
  void updateEntry(ProcessListEntry* entry, const ProcessStat& stat);
  // Frees the entries marked for removal.
  void compactProcessList();

  // Replaces the uptime clock that times the samples, so that tests control
  // the elapsed time exactly.
  void setUptimeClockForTesting(std::function<uint64_t()> clock);

  // Known processes by pid, ascending.
  std::map<int32_t, std::unique_ptr<ProcessListEntry>> processList;
  // Milliseconds per clock tick, in whole milliseconds (10 at 100 Hz).
  uint32_t msPerClockTick = 0;
  // CPUs the system is configured with; a process cannot use more than
  // this many times 100 %.
  long configuredCpus = 0;

 private:
  std::function<uint64_t()> uptimeMillis = StatUtil::getUptimeMillis;
};

}  // namespace halvexd::processcpumonitor
