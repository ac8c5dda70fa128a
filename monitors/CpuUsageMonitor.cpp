#include "monitors/CpuUsageMonitor.h"

#include <cmath>
#include <cstdint>
#include <string>

#include "metrics/PublishNames.h"
#include "stats/StatUtil.h"

namespace halvexd::cpuusagemonitor {
namespace {

constexpr int kThresholdPercent = 95;

// The counters of the previous successful sample, shared by every instance:
// the daemon runs one CPU usage monitor.
std::vector<unsigned long> previousCpuTimes;

}  // namespace

CpuUsageMonitor::CpuUsageMonitor(monitor_config config, std::vector<unsigned char> percentileList,
                                 std::vector<unsigned char> boundaries)
    : MonitorInterface(config) {
  percentiles = std::move(percentileList);
  bucketBoundaries = std::move(boundaries);
  previousCpuTimes = getCPUTimes();
  usageOverThreshold.initTotalUsageOverThrStats(-1);
  metricBaseName = "CPUUtilization";
}

bool CpuUsageMonitor::init() {
  return MonitorInterface::init();
}

std::vector<unsigned long> CpuUsageMonitor::getCPUTimes() {
  return StatUtil::getCpuTimes();
}

bool CpuUsageMonitor::getFastUtilizationSnapshot(unsigned long tick) {
  std::vector<unsigned long> now = getCPUTimes();
  if (now.size() < 4 || previousCpuTimes.size() < 4) {
    return false;
  }
  // The totals are summed in 32 bits and their difference read as signed, so
  // a counter that wrapped between samples still gives a small step.
  uint32_t sumNow = 0;
  uint32_t sumPrevious = 0;
  for (unsigned long value : now) sumNow += static_cast<uint32_t>(value);
  for (unsigned long value : previousCpuTimes) sumPrevious += static_cast<uint32_t>(value);
  int32_t totalDelta = static_cast<int32_t>(sumNow - sumPrevious);
  // Only the idle counter counts as idle; time waiting for I/O is busy time.
  uint64_t idleDelta = now[3] - previousCpuTimes[3];
  if (totalDelta < 1 || idleDelta > static_cast<uint64_t>(totalDelta)) {
    return false;
  }
  double busy = static_cast<double>(static_cast<uint64_t>(totalDelta) - idleDelta);
  int usage = static_cast<int>(std::round(busy * 100.0 / totalDelta));

  usageOverThreshold.printUsageStats(tick, metricLogcatIntervalTicks, usage, kThresholdPercent,
                                     metricBaseName);
  if (crossingSnapshot != nullptr) {
    crossingSnapshot->onCpuSample(usageOverThreshold.lastEvent(), metricBaseName, kThresholdPercent,
                                  static_cast<uint64_t>(totalDelta));
  }
  percentageCalculator->addMeasurement(static_cast<unsigned char>(usage));
  bucketCalculator->addMeasurement(static_cast<unsigned char>(usage));
  previousCpuTimes = std::move(now);
  return true;
}

bool CpuUsageMonitor::check(unsigned long tick, bool force) {
  if (!sampleDue(tick, force, 0)) return true;
  if (!getFastUtilizationSnapshot(tick)) {
    return false;
  }
  if (tickRemainder(tick, metricReportIntervalTicks) == tickOffset) {
    log();
  }
  return true;
}

void CpuUsageMonitor::log() {
  reportUsageDistribution(publishnames::kCpuUsageMonitor, "CpuSys");
}

}  // namespace halvexd::cpuusagemonitor
