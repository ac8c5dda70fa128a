// Share of the device's RAM in use, from MemTotal and MemAvailable.
#pragma once

#include <vector>

#include "daemon/MonitorInterface.h"
#include "monitors/CrossingSnapshot.h"
#include "stats/TotalUsageOverThrStats.h"

namespace halvexd::memoryusagemonitor {

// What the monitor publishes: the percentiles in the system-health sample,
// the distribution as plain values.
inline constexpr SystemHealthNames kSystemHealthNames = {
    "SysHealthMemoryUsage", "mem_metric_type", "mem_metric_keys", "mem_metric_values",
    "mem_sys_aggregation_period", "System", nullptr};
inline constexpr MonitorPublishNames kPublishNames = {&kSystemHealthNames, "MemoryUsageMonitor",
                                                      nullptr, 0};

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
  void setCrossingSnapshot(crossingsnapshot::CrossingSnapshot* snapshot) {
    crossingSnapshot = snapshot;
  }

 private:
  TotalUsageOverThrStats usageOverThreshold;
  crossingsnapshot::CrossingSnapshot* crossingSnapshot = nullptr;
};

}  // namespace halvexd::memoryusagemonitor
