#include "monitors/MemoryUsageMonitor.h"

#include <gtest/gtest.h>

#include "config/HalvexConfig.h"
#include "platform/LogBuffers.h"
#include "tests/support/MetricRecords.h"
#include "tests/support/TestSupport.h"

namespace halvexd::memoryusagemonitor {
namespace {

using testing::LogCapture;
using testing::ScopedSysroot;
using testing::TempDir;

std::string meminfo(unsigned long totalKb, unsigned long availableKb) {
  return "MemTotal:       " + std::to_string(totalKb) +
         " kB\n"
         "MemFree:          148736 kB\n"
         "MemAvailable:   " + std::to_string(availableKb) +
         " kB\n"
         "Buffers:           10360 kB\n"
         "Cached:          1699808 kB\n";
}

class MemoryUsageMonitorTest : public ::testing::Test {
 protected:
  void SetUp() override { HalvexConfig::instance().resetConfig(); }
  void TearDown() override { HalvexConfig::instance().resetConfig(); }

  MemoryUsageMonitor makeMonitor(uint64_t reportInterval = 2880) {
    monitor_config config{"MemoryUsageMonitor", true, 1, reportInterval, 20, 4};
    MemoryUsageMonitor monitor(config, {50, 75, 90, 99, 100},
                               {0, 10, 20, 30, 40, 50, 60, 70, 80, 90, 100});
    monitor.init();
    return monitor;
  }

  TempDir root;
  ScopedSysroot sysroot{root.path()};
};

TEST_F(MemoryUsageMonitorTest, UsageIsTheRoundedShareNotAvailable) {
  struct Case {
    unsigned long total;
    unsigned long available;
    bool sampled;
    int usage;
    const char* why;
  };
  const Case cases[] = {
      {3, 1, true, 67, "66.67 rounds up"},
      {8, 7, true, 13, "12.5 rounds half away from zero"},
      {3866624, 3866624, true, 0, "all available"},
      {3866624, 0, true, 100, "nothing available"},
      {3866624, 1795672, true, 54, "a real tablet: 53.56 %"},
      {100, 101, false, 0, "more available than total is not a sample"},
      {0, 0, false, 0, "no total at all is not a sample"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    root.write("proc/meminfo", meminfo(c.total, c.available));
    MemoryUsageMonitor monitor = makeMonitor();
    LogCapture capture;
    EXPECT_EQ(monitor.getFastUtilizationSnapshot(1), c.sampled);
    if (c.sampled) {
      EXPECT_EQ(monitor.percentageCalculator->getTopPercentileValue(100), c.usage + 1);
    } else {
      EXPECT_EQ(monitor.percentageCalculator->getTopPercentileValue(100), 101);
    }
  }
}

TEST_F(MemoryUsageMonitorTest, UnreadableMeminfoFailsTheCheck) {
  MemoryUsageMonitor monitor = makeMonitor();
  LogCapture capture;
  EXPECT_FALSE(monitor.check(0, false));
  EXPECT_TRUE(capture.records().empty());
}

TEST_F(MemoryUsageMonitorTest, ReportCycleAcrossChangingMeminfo) {
  HalvexConfig::instance().vedrixConfig = {true, "na", "grp0"};
  testing::configureMetricRecord("MemoryUsageMonitor", true, true);
  testing::configureSystemHealthRecord(
      "SysHealthMemoryUsage",
      {"mem_metric_keys", "mem_metric_type", "mem_metric_values", "mem_sys_aggregation_period"});
  MemoryUsageMonitor monitor = makeMonitor(/*reportInterval=*/5);
  LogCapture capture;
  // Ticks 0 to 4 at 50 %, 60 %, 96 %, 97 % and 40 %; tick 4 reports.
  const unsigned long available[] = {2000, 1600, 160, 120, 2400};
  for (unsigned long tick = 0; tick < 5; ++tick) {
    root.write("proc/meminfo", meminfo(4000, available[tick]));
    ASSERT_TRUE(monitor.check(tick, false));
  }

  EXPECT_EQ(capture.messages("halvexd:StatUtil"),
            (std::vector<std::string>{
                "MemoryUtilization is at 50%",
                "MemoryUtilization crossed 95%. Current - 96%",
                "MemoryUtilization now below 95%. Usage - 40%. Total seconds above threshold - 2",
            }));

  // Five samples 40, 50, 60, 96, 97: P50 target 2 stops at 50, P75 and P90
  // target 3 stop at 60, P90 and P99 target 4 stop at 96, P100 needs all
  // five and stops at 97: each answer one above.
  const std::map<std::string, std::string> values = {
      {"MemoryUtilization.B0-9", "0"},   {"MemoryUtilization.B10-19", "0"},
      {"MemoryUtilization.B20-29", "0"}, {"MemoryUtilization.B30-39", "0"},
      {"MemoryUtilization.B40-49", "1"}, {"MemoryUtilization.B50-59", "1"},
      {"MemoryUtilization.B60-69", "1"}, {"MemoryUtilization.B70-79", "0"},
      {"MemoryUtilization.B80-89", "0"}, {"MemoryUtilization.B90-100", "2"},
      {"MemoryUtilization.P50", "51"},   {"MemoryUtilization.P75", "61"},
      {"MemoryUtilization.P90", "97"},   {"MemoryUtilization.P99", "97"},
      {"MemoryUtilization.P100", "98"},
  };
  std::vector<std::string> expected = {
      testing::systemHealthRecord("SysHealthMemoryUsage",
                                  {{"mem_metric_keys", "MemSys.P50|MemSys.P90|MemSys.P99"},
                                   {"mem_metric_type", "System"},
                                   {"mem_metric_values", "51|97|97"},
                                   {"mem_sys_aggregation_period", "5"}},
                                  "na"),
      testing::plainRecord("MemoryUsageMonitorTablet", "MemoryUsageMonitor", values),
  };
  for (const auto& [metricName, value] : values) {
    expected.push_back(testing::structuredRecord("MemoryUsageMonitor", metricName, value, "na"));
  }
  EXPECT_EQ(testing::messagesOf(capture.metricRecords()), expected);

  // The next report covers only what came after this one.
  capture.clear();
  root.write("proc/meminfo", meminfo(4000, 4000));
  ASSERT_TRUE(monitor.check(9, false));
  ASSERT_GE(capture.metricRecords().size(), 2u);
  EXPECT_EQ(capture.metricRecords()[1].message,
            testing::plainRecord("MemoryUsageMonitorTablet", "MemoryUsageMonitor",
                                 {{"MemoryUtilization.B0-9", "1"},   {"MemoryUtilization.B10-19", "0"},
                                  {"MemoryUtilization.B20-29", "0"}, {"MemoryUtilization.B30-39", "0"},
                                  {"MemoryUtilization.B40-49", "0"}, {"MemoryUtilization.B50-59", "0"},
                                  {"MemoryUtilization.B60-69", "0"}, {"MemoryUtilization.B70-79", "0"},
                                  {"MemoryUtilization.B80-89", "0"}, {"MemoryUtilization.B90-100", "0"},
                                  {"MemoryUtilization.P50", "0"},    {"MemoryUtilization.P75", "0"},
                                  {"MemoryUtilization.P90", "0"},    {"MemoryUtilization.P99", "0"},
                                  {"MemoryUtilization.P100", "1"}}));
}

}  // namespace
}  // namespace halvexd::memoryusagemonitor
