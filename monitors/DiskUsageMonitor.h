// Space and inode usage of the data and system partitions.
#pragma once

#include <cstdint>
#include <string>

#include "daemon/MonitorInterface.h"

namespace halvexd::diskusagemonitor {

struct PartitionInfo {
  char path[4096];
  uint64_t percentUsed;
  bool valid;
  // Measured at the first successful run and kept: a later resize of the
  // file system does not change the base of the percentages.
  uint64_t totalSize;
  uint64_t availSpacePercentage;
  uint64_t freeInodesPercentage;
  uint64_t availInodesPercentage;
};

class DiskUsageMonitor : public MonitorInterface {
 public:
  explicit DiskUsageMonitor(monitor_config config);

  bool init() override;
  // False only when both partitions failed their measurement.
  bool check(unsigned long tick, bool force) override;
  void log() override;

  // Measures one partition; false (with `valid` cleared and an error line)
  // at the first figure that cannot be computed.
  bool getPartitionStats(PartitionInfo& partition);

 private:
  // A plain metric, and with the structured service on, a pair-vector record
  // ("partition_path", "percent_used") for the same figure.
  void emitPercentage(const std::string& metricName, uint64_t percentage, bool structured);
  // "path|percentUsed|totalKb" into the storage sample, blank-separated.
  void appendStorageValue(const PartitionInfo& partition);

  PartitionInfo systemPartition;
  PartitionInfo dataPartition;
};

}  // namespace halvexd::diskusagemonitor
