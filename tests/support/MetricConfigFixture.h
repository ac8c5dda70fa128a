// Shared by the metric logger tests: a fixture that fills the process-wide
// configuration directly and empties it again, and the exact pieces of the
// records the metrics service reads.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "config/HalvexConfig.h"
#include "tests/support/MetricRecords.h"
#include "tests/support/TestSupport.h"

namespace halvexd::testing {

// A record as the metrics service sees it: buffer 8, info priority, our tag.
inline LogRecord metricRecord(const std::string& message) {
  return {8, 4, "metrics.halvexd", message};
}

inline std::vector<LogRecord> metricRecords(const std::vector<std::string>& messages) {
  std::vector<LogRecord> out;
  for (const auto& message : messages) out.push_back(metricRecord(message));
  return out;
}

class MetricConfigTest : public ::testing::Test {
 protected:
  void SetUp() override { clearConfig(); }
  void TearDown() override { clearConfig(); }

  static void clearConfig() {
    HalvexConfig& config = HalvexConfig::instance();
    config.monitorConfigs.clear();
    config.vedrixConfig = HalvexConfig::VedrixConfig();
  }

  // Structured service on, with region "eu" and default group "grp0".
  static void enableVedrix(bool enabled = true) {
    HalvexConfig& config = HalvexConfig::instance();
    config.vedrixConfig.enabled = enabled;
    config.vedrixConfig.region = "eu";
    config.vedrixConfig.defaultGroupId = "grp0";
  }

  // A record for `metricName` labelled group "grpA", schema "sch7", key tag
  // "metric", value tag "value", with the two interfaces switched as given.
  static HalvexConfig::MonitorConfig& configure(const std::string& metricName, bool plainActive,
                                                bool vedrixActive) {
    HalvexConfig::MonitorConfig& record = HalvexConfig::instance().monitorConfigs[metricName];
    record = HalvexConfig::MonitorConfig();
    record.metricName = metricName;
    record.trazMetricInterface.active = plainActive;
    record.vedrixMetricInterface.active = vedrixActive;
    record.vedrixMetricInterface.groupId = "grpA";
    record.vedrixMetricInterface.schemaId = "sch7";
    record.vedrixMetricInterface.metricKey.dimensionTag = "metric";
    record.vedrixMetricInterface.metricValue.dimensionTag = "value";
    return record;
  }
};

}  // namespace halvexd::testing
