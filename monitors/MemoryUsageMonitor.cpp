#include "monitors/MemoryUsageMonitor.h"

#include <cmath>
#include <string>

#include "metrics/PublishNames.h"
#include "stats/StatUtil.h"

namespace halvexd::memoryusagemonitor {
namespace {

constexpr int kThresholdPercent = 95;

}  // namespace

MemoryUsageMonitor::MemoryUsageMonitor(monitor_config config,
                                       std::vector<unsigned char> percentileList,
                                       std::vector<unsigned char> boundaries)
    : MonitorInterface(config) {
  percentiles = std::move(percentileList);
  bucketBoundaries = std::move(boundaries);
  usageOverThreshold.initTotalUsageOverThrStats(-1);
  metricBaseName = "MemoryUtilization";
}

bool MemoryUsageMonitor::init() {
  return MonitorInterface::init();
}

bool MemoryUsageMonitor::getFastUtilizationSnapshot(unsigned long tick) {
  SysMeminfoKb meminfo{};
  if (!StatUtil::getMeminfo(meminfo)) {
    return false;
  }
  // A zero total (no MemTotal line at all) has no share to compute: the
  // division would give not-a-number, which no percentage can hold.
  if (meminfo.memTotal < meminfo.memAvailable || meminfo.memTotal == 0) {
    return false;
  }
  double used = static_cast<double>(meminfo.memTotal - meminfo.memAvailable);
  int usage = static_cast<int>(std::round(used * 100.0 / static_cast<double>(meminfo.memTotal)));

  usageOverThreshold.printUsageStats(tick, metricLogcatIntervalTicks, usage, kThresholdPercent,
                                     metricBaseName);
  if (crossingSnapshot != nullptr) {
    crossingSnapshot->onMemorySample(usageOverThreshold.lastEvent(), metricBaseName,
                                     kThresholdPercent);
  }
  percentageCalculator->addMeasurement(static_cast<unsigned char>(usage));
  bucketCalculator->addMeasurement(static_cast<unsigned char>(usage));
  return true;
}

bool MemoryUsageMonitor::check(unsigned long tick, bool force) {
  if (!sampleDue(tick, force, 0)) return true;
  if (!getFastUtilizationSnapshot(tick)) {
    return false;
  }
  if (tickRemainder(tick, metricReportIntervalTicks) == tickOffset) {
    log();
  }
  return true;
}

void MemoryUsageMonitor::log() {
  reportUsageDistribution(publishnames::kMemoryUsageMonitor, "MemSys");
}

}  // namespace halvexd::memoryusagemonitor
