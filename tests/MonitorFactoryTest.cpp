#include "daemon/MonitorFactory.h"

#include <gtest/gtest.h>

#include <typeinfo>

#include "monitors/CpuUsageMonitor.h"
#include "monitors/DiskUsageMonitor.h"
#include "monitors/MemoryUsageMonitor.h"
#include "monitors/ProcessCpuMonitor.h"
#include "monitors/ProcessMemMonitor.h"
#include "monitors/SystemMemMonitor.h"
#include "platform/LogBuffers.h"
#include "tests/support/TestSupport.h"

namespace halvexd {
namespace {

using testing::LogCapture;
using testing::ScopedSysroot;

struct Expected {
  const char* name;
  const std::type_info& type;
  uint64_t sample, report, logcat, offset;
};

const Expected kTable[] = {
    {"ProcessCpuMonitor", typeid(processcpumonitor::ProcessCpuMonitor), 120, 120, 120, 0},
    {"ProcessMemMonitor", typeid(processmemmonitor::ProcessMemMonitor), 120, 120, 120, 1},
    {"SystemMemMonitor", typeid(systemmemmonitor::SystemMemMonitor), 120, 120, 120, 2},
    {"CpuUsageMonitor", typeid(cpuusagemonitor::CpuUsageMonitor), 1, 2880, 20, 3},
    {"MemoryUsageMonitor", typeid(memoryusagemonitor::MemoryUsageMonitor), 1, 2880, 20, 4},
    {"DiskUsageMonitor", typeid(diskusagemonitor::DiskUsageMonitor), 2880, 2880, 2880, 5},
};

class MonitorFactoryTest : public ::testing::Test {
 protected:
  std::vector<MonitorInterface*> build(unsigned long sampleInterval, bool optionsGiven) {
    std::vector<MonitorInterface*> monitors;
    EXPECT_TRUE(configureMonitors(sampleInterval, optionsGiven, monitors, false));
    built = monitors;
    return monitors;
  }
  // The daemon never frees its monitors; a test does.
  void TearDown() override {
    for (MonitorInterface* monitor : built) delete monitor;
  }

  ScopedSysroot sysroot{testing::fixturePath("tablet")};
  std::vector<MonitorInterface*> built;
};

TEST_F(MonitorFactoryTest, FixedTableWithoutOptions) {
  LogCapture capture;
  auto monitors = build(999, false);
  ASSERT_EQ(monitors.size(), std::size(kTable));
  std::vector<std::string> expectedLines;
  for (size_t i = 0; i < monitors.size(); ++i) {
    const Expected& row = kTable[i];
    SCOPED_TRACE(row.name);
    MonitorInterface& monitor = *monitors[i];
    EXPECT_EQ(typeid(monitor), row.type);
    EXPECT_EQ(monitor.name, row.name);
    EXPECT_TRUE(monitor.active);
    EXPECT_EQ(monitor.sampleIntervalTicks, row.sample);
    EXPECT_EQ(monitor.metricReportIntervalTicks, row.report);
    EXPECT_EQ(monitor.metricLogcatIntervalTicks, row.logcat);
    EXPECT_EQ(monitor.tickOffset, row.offset);
    expectedLines.push_back(std::string("monitor name ") + row.name + "\n");
    expectedLines.push_back("active 1\n");
    expectedLines.push_back("sample interval in ticks " + std::to_string(row.sample) + "\n");
    expectedLines.push_back("metrics logcat interval in ticks " + std::to_string(row.logcat) + "\n");
    expectedLines.push_back("metrics report interval in ticks " + std::to_string(row.report) + "\n");
  }
  EXPECT_EQ(capture.messages("halvexd"), expectedLines);
  for (const auto& record : capture.withTag("halvexd")) {
    EXPECT_EQ(record.priority, ANDROID_LOG_INFO);
    EXPECT_EQ(record.buffer, kSystemLogBuffer);
  }
}

TEST_F(MonitorFactoryTest, AnyOptionPutsEveryMonitorOnTheCommandLineInterval) {
  auto monitors = build(7, true);
  ASSERT_EQ(monitors.size(), std::size(kTable));
  for (size_t i = 0; i < monitors.size(); ++i) {
    EXPECT_EQ(monitors[i]->sampleIntervalTicks, 7u) << kTable[i].name;
    EXPECT_EQ(monitors[i]->metricReportIntervalTicks, kTable[i].report) << kTable[i].name;
    EXPECT_EQ(monitors[i]->tickOffset, kTable[i].offset) << kTable[i].name;
  }
}

TEST_F(MonitorFactoryTest, UsageMonitorsGetTheWiderPercentileList) {
  auto monitors = build(120, false);
  const std::vector<uint8_t> percentiles{50, 75, 90, 99, 100};
  const std::vector<uint8_t> boundaries{0, 10, 20, 30, 40, 50, 60, 70, 80, 90, 100};
  for (MonitorInterface* monitor : monitors) {
    bool usageMonitor = monitor->name == "CpuUsageMonitor" || monitor->name == "MemoryUsageMonitor";
    EXPECT_EQ(monitor->percentiles, usageMonitor ? percentiles : std::vector<uint8_t>({50, 90, 99}))
        << monitor->name;
    EXPECT_EQ(monitor->bucketBoundaries, boundaries) << monitor->name;
  }
}

TEST_F(MonitorFactoryTest, AppendsAfterWhatTheVectorHolds) {
  std::vector<MonitorInterface*> monitors{nullptr};
  ASSERT_TRUE(configureMonitors(120, false, monitors, false));
  built.assign(monitors.begin() + 1, monitors.end());
  EXPECT_EQ(monitors.front(), nullptr);
  EXPECT_EQ(monitors.size(), 1 + std::size(kTable));
}

}  // namespace
}  // namespace halvexd
