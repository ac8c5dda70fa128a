#include "monitors/CpuUsageMonitor.h"

#include <gtest/gtest.h>

#include "config/HalvexConfig.h"
#include "platform/LogBuffers.h"
#include "tests/support/MetricRecords.h"
#include "tests/support/TestSupport.h"

namespace halvexd::cpuusagemonitor {
namespace {

using testing::LogCapture;
using testing::LogRecord;
using testing::ScopedSysroot;
using testing::TempDir;

// A /proc/stat whose aggregate line holds `busy` user ticks and `idle` idle
// ticks on top of fixed other counters, as a real 4-core device prints it.
std::string statFile(unsigned long busy, unsigned long idle) {
  return "cpu  " + std::to_string(busy) + " 120 3400 " + std::to_string(idle) +
         " 210 0 57 0 0 0\n"
         "cpu0 1000 30 900 50000 60 0 20 0 0 0\n"
         "cpu1 1000 30 900 50000 50 0 17 0 0 0\n"
         "intr 12345 0 0\nctxt 987654\nbtime 1795300000\nprocesses 4321\n";
}

class CpuUsageMonitorTest : public ::testing::Test {
 protected:
  void SetUp() override { HalvexConfig::instance().resetConfig(); }
  void TearDown() override { HalvexConfig::instance().resetConfig(); }

  void writeStat(const std::string& contents) { root.write("proc/stat", contents); }

  // Factory percentiles and buckets; sample every tick, report on tick 3 of
  // every 4, status line every 20.
  CpuUsageMonitor makeMonitor() {
    monitor_config config{"CpuUsageMonitor", true, 1, 4, 20, 3};
    return CpuUsageMonitor(config, {50, 75, 90, 99, 100}, {0, 10, 20, 30, 40, 50, 60, 70, 80, 90, 100});
  }

  // The usage of the one sample the monitor holds: with a single sample the
  // 100th percentile answers one above it.
  static int onlySample(CpuUsageMonitor& monitor) {
    return monitor.percentageCalculator->getTopPercentileValue(100) - 1;
  }

  TempDir root;
  ScopedSysroot sysroot{root.path()};
};

TEST_F(CpuUsageMonitorTest, UsageRoundsHalfAwayFromZeroAndCountsIowaitAsBusy) {
  struct Case {
    unsigned long busyStep;
    unsigned long idleStep;
    int expected;
    const char* why;
  };
  const Case cases[] = {
      {2, 1, 67, "2 of 3 busy is 66.67"},
      {1, 7, 13, "1 of 8 busy is exactly 12.5"},
      {0, 100, 0, "fully idle"},
      {250, 0, 100, "fully busy"},
      {1, 199, 1, "0.5 rounds up"},
      {199, 201, 50, "49.75 rounds to 50"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    writeStat(statFile(5000, 90000));
    CpuUsageMonitor monitor = makeMonitor();
    writeStat(statFile(5000 + c.busyStep, 90000 + c.idleStep));
    LogCapture capture;
    ASSERT_TRUE(monitor.getFastUtilizationSnapshot(1));
    EXPECT_EQ(onlySample(monitor), c.expected);
  }
}

TEST_F(CpuUsageMonitorTest, TotalsAreSummedInThirtyTwoBits) {
  // The user counter crosses 2^32 between samples: the 32-bit sums wrap, but
  // their difference is still the real step of 100 ticks, 40 of them idle.
  writeStat(statFile(4294967290UL, 90000));
  CpuUsageMonitor monitor = makeMonitor();
  writeStat(statFile(4294967290UL + 60, 90040));
  LogCapture capture;
  ASSERT_TRUE(monitor.getFastUtilizationSnapshot(1));
  EXPECT_EQ(onlySample(monitor), 60);
}

TEST_F(CpuUsageMonitorTest, FailedSampleKeepsThePreviousCountersForTheNext) {
  writeStat(statFile(1000, 1000));
  CpuUsageMonitor monitor = makeMonitor();
  LogCapture capture;

  writeStat(statFile(1000, 1000));  // no step at all
  EXPECT_FALSE(monitor.getFastUtilizationSnapshot(1));
  writeStat(statFile(900, 1200));  // idle step above the total step
  EXPECT_FALSE(monitor.getFastUtilizationSnapshot(2));
  writeStat("cpu  1 2 3\n");  // fewer than four counters
  EXPECT_FALSE(monitor.getFastUtilizationSnapshot(3));
  root.write("proc/stat", "");
  EXPECT_FALSE(monitor.getFastUtilizationSnapshot(4));

  // Measured against the constructor's sample: 30 busy, 10 idle.
  writeStat(statFile(1030, 1010));
  ASSERT_TRUE(monitor.getFastUtilizationSnapshot(5));
  EXPECT_EQ(onlySample(monitor), 75);
  EXPECT_TRUE(capture.records().empty());
}

TEST_F(CpuUsageMonitorTest, MissingStatFileFailsTheCheckEveryTick) {
  CpuUsageMonitor monitor = makeMonitor();
  EXPECT_TRUE(CpuUsageMonitor::getCPUTimes().empty());
  LogCapture capture;
  EXPECT_FALSE(monitor.check(0, false));
  EXPECT_FALSE(monitor.check(1, false));
  EXPECT_TRUE(capture.records().empty());
}

TEST_F(CpuUsageMonitorTest, GatesOnRemainderZeroAndReportsOnTheOffset) {
  writeStat(statFile(1000, 1000));
  monitor_config config{"CpuUsageMonitor", true, 2, 6, 1000, 4};
  CpuUsageMonitor monitor(config, {50}, {0, 100});
  testing::configureMetricRecord("CpuUsageMonitor", /*plain=*/true, /*vedrix=*/false);
  LogCapture capture;
  unsigned long busy = 1000;
  std::vector<unsigned long> reportTicks;
  for (unsigned long tick = 0; tick < 12; ++tick) {
    busy += 10;
    writeStat(statFile(busy, 1000 + 10 * tick));
    size_t before = capture.metricRecords().size();
    ASSERT_TRUE(monitor.check(tick, false));
    if (capture.metricRecords().size() > before) reportTicks.push_back(tick);
  }
  // Samples on even ticks; reports where tick % 6 == 4.
  EXPECT_EQ(reportTicks, (std::vector<unsigned long>{4, 10}));

  monitor.active = false;
  EXPECT_TRUE(monitor.check(0, false));
  size_t before = capture.metricRecords().size();
  writeStat(statFile(busy + 50, 1110));
  EXPECT_TRUE(monitor.check(10, true));  // forced: samples and reports even when inactive
  EXPECT_EQ(capture.metricRecords().size(), before + 1);
}

TEST_F(CpuUsageMonitorTest, ReportWritesPlainStructuredAndSystemHealthRecords) {
  auto& config = HalvexConfig::instance();
  config.vedrixConfig = {true, "eu", "grp0"};
  testing::configureMetricRecord("CpuUsageMonitor", true, true);
  testing::configureSystemHealthRecord(
      "SysHealthCpuUsage",
      {"cpu_metric_keys", "cpu_metric_values", "cpu_metric_type", "cpu_sys_aggregation_period"});

  writeStat(statFile(5000, 90000));
  CpuUsageMonitor monitor = makeMonitor();
  ASSERT_TRUE(monitor.init());
  LogCapture capture;
  // Ticks 0-3 sample 10 %, 25 %, 50 % and 100 %; tick 3 reports.
  const std::pair<unsigned long, unsigned long> steps[] = {{10, 90}, {25, 75}, {50, 50}, {100, 0}};
  unsigned long busy = 5000;
  unsigned long idle = 90000;
  for (unsigned long tick = 0; tick < 4; ++tick) {
    busy += steps[tick].first;
    idle += steps[tick].second;
    writeStat(statFile(busy, idle));
    ASSERT_TRUE(monitor.check(tick, false));
  }

  EXPECT_EQ(capture.messages("halvexd:StatUtil"),
            (std::vector<std::string>{"CPUUtilization is at 10%",
                                      "CPUUtilization crossed 95%. Current - 100%"}));

  const std::map<std::string, std::string> values = {
      {"CPUUtilization.B0-9", "0"},   {"CPUUtilization.B10-19", "1"},
      {"CPUUtilization.B20-29", "1"}, {"CPUUtilization.B30-39", "0"},
      {"CPUUtilization.B40-49", "0"}, {"CPUUtilization.B50-59", "1"},
      {"CPUUtilization.B60-69", "0"}, {"CPUUtilization.B70-79", "0"},
      {"CPUUtilization.B80-89", "0"}, {"CPUUtilization.B90-100", "1"},
      {"CPUUtilization.P50", "26"},   {"CPUUtilization.P75", "51"},
      {"CPUUtilization.P90", "51"},   {"CPUUtilization.P99", "51"},
  };
  std::vector<std::string> expected = {
      testing::systemHealthRecord("SysHealthCpuUsage",
                                  {{"cpu_metric_keys", "CpuSys.P50|CpuSys.P90|CpuSys.P99"},
                                   {"cpu_metric_type", "System"},
                                   {"cpu_metric_values", "26|51|51"},
                                   {"cpu_sys_aggregation_period", "4"}},
                                  "eu"),
      testing::plainRecord("CpuUsageMonitorTablet", "CpuUsageMonitor", values),
  };
  for (const auto& [metricName, value] : values) {
    expected.push_back(testing::structuredRecord("CpuUsageMonitor", metricName, value, "eu"));
  }
  EXPECT_EQ(testing::messagesOf(capture.metricRecords()), expected);
}

TEST_F(CpuUsageMonitorTest, ReportWithStructuredServiceOffWritesOnlyThePlainRecord) {
  testing::configureMetricRecord("CpuUsageMonitor", true, true);
  testing::configureSystemHealthRecord("SysHealthCpuUsage", {"cpu_metric_type"});
  writeStat(statFile(5000, 90000));
  CpuUsageMonitor monitor = makeMonitor();
  ASSERT_TRUE(monitor.init());
  writeStat(statFile(5000, 90100));
  LogCapture capture;
  ASSERT_TRUE(monitor.check(3, false));

  std::map<std::string, std::string> values;
  for (const char* bucket : {"B0-9", "B10-19", "B20-29", "B30-39", "B40-49", "B50-59", "B60-69",
                             "B70-79", "B80-89", "B90-100"}) {
    values[std::string("CPUUtilization.") + bucket] = std::string(bucket) == "B0-9" ? "1" : "0";
  }
  // One sample at 0 %: the percentile targets below 100 are 0 and answer 0;
  // the 100th needs the one sample and stops one above it.
  for (const char* percentile : {"P50", "P75", "P90", "P99"}) {
    values[std::string("CPUUtilization.") + percentile] = "0";
  }
  values["CPUUtilization.P100"] = "1";
  EXPECT_EQ(testing::messagesOf(capture.metricRecords()),
            (std::vector<std::string>{
                testing::plainRecord("CpuUsageMonitorTablet", "CpuUsageMonitor", values)}));
}

}  // namespace
}  // namespace halvexd::cpuusagemonitor
