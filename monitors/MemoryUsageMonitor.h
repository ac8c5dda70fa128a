// Share of the device's RAM in use, from MemTotal and MemAvailable.
#pragma once

#include <vector>

#include "daemon/MonitorInterface.h"
#include "monitors/CrossingSnapshot.h"
#include "stats/TotalUsageOverThrStats.h"

namespace halvexd::memoryusagemonitor {

class MemoryUsageMonitor : public MonitorInterface {
 public:
  MemoryUsageMonitor(monitor_config config, std::vector<unsigned char> percentiles,
                     std::vector<unsigned char> bucketBoundaries);

  bool init() override;
  bool check(unsigned long tick, bool force) override;
  void log() override;

  // One sample fed to the threshold statistics and both calculators; false
  // when /proc/meminfo is unreadable or claims more available than total.
  bool getFastUtilizationSnapshot(unsigned long tick);

  // Writes the processes behind each crossing; null (the default) writes none.
  // Not owned: the CPU usage monitor owns the one writer both share.
  void setCrossingSnapshot(crossingsnapshot::CrossingSnapshot* snapshot) {
    crossingSnapshot = snapshot;
  }

 private:
  TotalUsageOverThrStats usageOverThreshold;
  crossingsnapshot::CrossingSnapshot* crossingSnapshot = nullptr;
};

}  // namespace halvexd::memoryusagemonitor
