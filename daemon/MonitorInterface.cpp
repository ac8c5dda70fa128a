#include "daemon/MonitorInterface.h"

#include "config/HalvexConfig.h"
#include "metrics/RecordVocabulary.h"

namespace halvexd {

MonitorInterface::MonitorInterface(const monitor_config& config)
    : name(config.name),
      active(config.active),
      sampleIntervalTicks(config.sampleIntervalTicks),
      metricReportIntervalTicks(config.metricReportIntervalTicks),
      metricLogcatIntervalTicks(config.metricLogcatIntervalTicks),
      tickOffset(config.tickOffset) {}

bool MonitorInterface::init() {
  metricLogger.init(name);
  sysHealthMetricLogger.init(name);
  return true;
}

std::list<std::pair<std::string, unsigned long>> MonitorInterface::getPeriodicMetrics() {
  std::list<std::pair<std::string, unsigned long>> metrics;
  for (uint8_t percentile : percentiles) {
    unsigned long value = percentageCalculator->getTopPercentileValue(percentile);
    if (value != kNoDistributionAnswer) {
      metrics.emplace_back(getPercentileMetricName(percentile), value);
    }
  }
  // A bucket count of 101 cannot be told from the calculators' "no answer";
  // buckets are reported whatever they hold.
  for (size_t i = 0; i + 1 < bucketBoundaries.size(); ++i) {
    uint8_t low = bucketBoundaries[i];
    uint8_t high = bucketBoundaries[i + 1];
    metrics.emplace_back(getBucketMetricName(low, high), bucketCalculator->getBucketValue(low, high));
  }
  return metrics;
}

std::string MonitorInterface::getPercentileMetricName(unsigned char percentile) {
  return metricBaseName + percentileTag + std::to_string(percentile);
}

std::string MonitorInterface::getBucketMetricName(unsigned char low, unsigned char high) {
  int upper = high == 100 ? 100 : high - 1;
  return metricBaseName + bucketTag + std::to_string(low) + "-" + std::to_string(upper);
}

void MonitorInterface::resetMetricDistribution() {
  percentageCalculator->resetValues();
  bucketCalculator->resetValues();
}

bool MonitorInterface::sampleDue(unsigned long tick, bool force, uint64_t phase) const {
  if (force) return true;
  return active && tickRemainder(tick, sampleIntervalTicks) == phase;
}

void MonitorInterface::publishWithSystemHealth(const MonitorPublishNames& names, uint64_t period) {
  const SystemHealthNames& health = *names.systemHealth;
  sysHealthMetricLogger.appendStringToVec(health.typeField, health.type, records::kFieldSeparator);
  if (health.keysHeader != nullptr) {
    sysHealthMetricLogger.appendStringToVec(health.keysField, health.keysHeader,
                                            records::kFieldSeparator);
  }
  sysHealthMetricLogger.appendUint64ToVec(health.periodField, period);
  sysHealthMetricLogger.emitVedrixMetricPairVec(health.keysField);
  sysHealthMetricLogger.publish(health.publishName);
  metricLogger.publish(names.plainName);
}

void MonitorInterface::reportUsageDistribution(const MonitorPublishNames& names,
                                               const char* percentilePrefix) {
  auto metrics = getPeriodicMetrics();
  resetMetricDistribution();
  const SystemHealthNames& health = *names.systemHealth;
  const bool structured = HalvexConfig::instance().vedrixConfig.enabled;
  for (const auto& [metricName, value] : metrics) {
    metricLogger.emitMetricUint64(metricName, value);
    if (structured) {
      metricLogger.emitVedrixMetricUint64(metricName, value);
      sysHealthMetricLogger.appendPercentileToVec(health.keysField, percentilePrefix, metricName,
                                                  health.valuesField, std::to_string(value));
    }
  }
  publishWithSystemHealth(names, metricReportIntervalTicks);
}

}  // namespace halvexd
