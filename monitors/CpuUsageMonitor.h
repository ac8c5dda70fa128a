// Share of time the whole system's CPUs were busy between two samples, from
// the aggregate line of /proc/stat.
#pragma once

#include <memory>
#include <vector>

#include "daemon/MonitorInterface.h"
#include "monitors/CrossingSnapshot.h"
#include "stats/TotalUsageOverThrStats.h"

namespace halvexd::cpuusagemonitor {

class CpuUsageMonitor : public MonitorInterface {
 public:
  // Takes the first sample at once (replacing the process-wide previous
  // sample), so the first delta spans start-up and the boot wait.
  CpuUsageMonitor(monitor_config config, std::vector<unsigned char> percentiles,
                  std::vector<unsigned char> bucketBoundaries);

  bool init() override;
  bool check(unsigned long tick, bool force) override;
  void log() override;

  // Counters of the first line of /proc/stat (user, nice, system, idle, ...);
  // empty when the file cannot be opened.
  static std::vector<unsigned long> getCPUTimes();

  // One sample: usage since the previous successful sample, fed to the
  // threshold statistics and both calculators. False, keeping the previous
  // sample, when the counters are missing or did not move forward.
  bool getFastUtilizationSnapshot(unsigned long tick);

  // Writes the processes behind each crossing; null (the default) writes none.
  // The monitor owns it; the memory usage monitor borrows it.
  void setCrossingSnapshot(std::unique_ptr<crossingsnapshot::CrossingSnapshot> snapshot) {
    crossingSnapshot = std::move(snapshot);
  }

 private:
  TotalUsageOverThrStats usageOverThreshold;
  std::unique_ptr<crossingsnapshot::CrossingSnapshot> crossingSnapshot;
};

}  // namespace halvexd::cpuusagemonitor
