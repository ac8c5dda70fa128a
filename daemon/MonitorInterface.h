// What every monitor shares: the record it is built from, the tick gating
// rule, its three operations, its two metric loggers and the distribution of
// its main percentage with the metric names derived from it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <list>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "metrics/MetricLogger.h"
#include "metrics/PublishNames.h"
#include "metrics/SysHealthMetricLogger.h"
#include "stats/TickRemainder.h"
#include "stats/BucketDistributionCalculator.h"
#include "stats/PercentageDistributionCalculator.h"

namespace halvexd {

struct monitor_config {
  std::string name;
  bool active = false;
  uint64_t sampleIntervalTicks = 0;
  uint64_t metricReportIntervalTicks = 0;
  uint64_t metricLogcatIntervalTicks = 0;
  uint64_t tickOffset = 0;
};

class MonitorInterface {
 public:
  virtual ~MonitorInterface() = default;

  // Prepares the monitor's loggers; false stops the daemon's start-up. The
  // base's definition names both loggers after the monitor and always
  // succeeds; monitors that want it call it explicitly.
  virtual bool init() = 0;

  // Called by the engine on every tick; the monitor decides from the tick
  // whether it samples or reports. `force` runs it whatever its gates say.
  // False is logged by the engine and the loop goes on.
  virtual bool check(unsigned long tick, bool force) = 0;

  // Writes the monitor's report; called by the monitor itself from check().
  virtual void log() = 0;

  // Percentile entries (left out while the calculator has no answer) then
  // one entry per adjacent pair of bucket boundaries (always present).
  std::list<std::pair<std::string, unsigned long>> getPeriodicMetrics();
  // "CPUUtilization" and 90 give "CPUUtilization.P90".
  std::string getPercentileMetricName(unsigned char percentile);
  // "CPUUtilization.B0-9" for 0 and 10; the top bucket is closed, so 90 and
  // 100 give "CPUUtilization.B90-100".
  std::string getBucketMetricName(unsigned char low, unsigned char high);
  void resetMetricDistribution();

  MetricLogger metricLogger;
  SysHealthMetricLogger sysHealthMetricLogger;
  std::shared_ptr<PercentageDistributionCalculator> percentageCalculator =
      PercentageDistributionCalculator::create();
  std::shared_ptr<BucketDistributionCalculator> bucketCalculator =
      BucketDistributionCalculator::create();

  std::string name;
  bool active = false;
  uint64_t sampleIntervalTicks = 0;
  uint64_t metricReportIntervalTicks = 0;
  uint64_t metricLogcatIntervalTicks = 0;
  uint64_t tickOffset = 0;

  std::vector<uint8_t> percentiles{50, 90, 99};
  std::vector<uint8_t> bucketBoundaries{0, 10, 20, 30, 40, 50, 60, 70, 80, 90, 100};
  std::string percentileTag = ".P";
  std::string bucketTag = ".B";
  std::string metricBaseName;

 protected:
  MonitorInterface() = default;
  explicit MonitorInterface(const monitor_config& config);

  // The tick gate at the head of check(): true when the monitor runs on
  // `tick`, which is always when `force` is set, else when it is active and
  // the tick falls `phase` ticks into its sample interval. The usage
  // monitors sample on phase 0 and report on their offset; the others
  // sample and report on their offset.
  bool sampleDue(unsigned long tick, bool force, uint64_t phase) const;

  // The tail of a report with a system-health sample: the sample's type,
  // keys header (when it has one) and period go in, the sample is published,
  // then the plain values are.
  void publishWithSystemHealth(const MonitorPublishNames& names, uint64_t period);

  // The report of the two usage monitors: the distribution since the last
  // report (which is then cleared) as plain values, with the structured
  // service on also as structured values and as percentiles (named after
  // `percentilePrefix`, "CpuSys") in the system-health sample; the sample is
  // published first, then the plain values.
  void reportUsageDistribution(const MonitorPublishNames& names, const char* percentilePrefix);
};

}  // namespace halvexd
