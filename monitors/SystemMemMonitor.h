// Periodic snapshot of the system's memory accounting: meminfo counters,
// swap, zram, KSM savings and low-memory-killer kills per process class.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <string>

#include "daemon/MonitorInterface.h"

namespace halvexd::systemmemmonitor {

// Metric key of a low-memory-killer class; unknown classes are "Other".
std::string lmkBucketToMetricName(const std::string& className);

class SystemMemMonitor : public MonitorInterface {
 public:
  explicit SystemMemMonitor(monitor_config config);

  bool init() override;
  bool check(unsigned long tick, bool force) override;
  void log() override;

  // Reads meminfo, zram, kill counts and KSM; false when meminfo or zram is
  // unreadable (the meminfo part may then already be updated).
  bool getNewSnapshot();

 private:
  // kB values in the order of the snapshot's metric keys.
  std::array<uint64_t, 19> snapshot{};
  std::map<std::string, unsigned long> lmkKillCounts;
};

}  // namespace halvexd::systemmemmonitor
