// The configuration shipped for devices, loaded by the real loader, drives
// every monitor once over the sample tablet: each record it switches on must
// come out.
#include <gtest/gtest.h>

#include <filesystem>
#include <thread>

#include "config/HalvexConfig.h"
#include "daemon/MonitorFactory.h"
#include "tests/support/TestSupport.h"
#include "tools/devicesim/PerfinfoServer.h"

namespace halvexd {
namespace {

using testing::LogCapture;
using testing::ScopedSysroot;
using testing::TempDir;

constexpr const char* kSystemConfig = "/system/system_ext/etc/halvex_config.json";

size_t countStartingWith(const std::vector<testing::LogRecord>& records, const std::string& prefix) {
  size_t count = 0;
  for (const auto& record : records) {
    if (record.message.rfind(prefix, 0) == 0) ++count;
  }
  return count;
}

TEST(DefaultConfigTest, EveryMonitorWritesEveryRecordItsNamesSwitchOn) {
  TempDir device;
  std::filesystem::copy(testing::fixturePath("tablet"), device.path(),
                        std::filesystem::copy_options::recursive);
  std::filesystem::copy_file(std::string(HALVEXD_SOURCE_DIR) + "/android/halvex_config.json",
                             device.path() + kSystemConfig,
                             std::filesystem::copy_options::overwrite_existing);
  ScopedSysroot sysroot(device.path());
  devicesim::PerfinfoServer perfinfo(device.path(),
                                     devicesim::PerfinfoServer::byPid({{1024, 187432}, {612, 40960}}));

  HalvexConfig::instance().resetConfig();
  ASSERT_TRUE(HalvexConfig::instance().loadConfig(kSystemConfig));
  ASSERT_TRUE(HalvexConfig::instance().vedrixConfig.enabled);

  std::vector<MonitorInterface*> monitors;
  ASSERT_TRUE(configureMonitors(120, false, monitors, false));
  ASSERT_EQ(monitors.size(), 6u);
  for (MonitorInterface* monitor : monitors) ASSERT_TRUE(monitor->init());

  // The CPU counters move on after the usage monitor's first sample.
  device.write("proc/stat", "cpu  1473320 60337 1033474 21598890 24875 131532 48722 0 0 0\n"
                            "cpu0 390112 15642 301229 5207645 7321 48310 20012 0 0 0\n");
  LogCapture capture;
  // The per-process CPU monitor reports from its second run.
  ASSERT_TRUE(monitors[0]->check(0, true));
  std::this_thread::sleep_for(std::chrono::milliseconds(5));
  for (MonitorInterface* monitor : monitors) {
    // Forced, on the tick of each monitor's own report.
    ASSERT_TRUE(monitor->check(monitor->tickOffset, true)) << monitor->name;
  }
  auto records = capture.metricRecords();

  struct Expected {
    const char* prefix;
    size_t count;
    const char* what;
  };
  const Expected expected[] = {
      {"CpuUsageMonitorTablet:CpuUsageMonitor:", 1, "CPU usage, plain"},
      {"hx_tablet:hx_cpu_sys_v1:100:metric=CPUUtilization.", 15, "CPU usage, one per value"},
      {"hx_health:hx_health_cpu_v2:100:metricKeys=CpuSys.P50|", 1, "CPU usage, health"},
      {"MemoryUsageMonitorTablet:MemoryUsageMonitor:", 1, "memory usage, plain"},
      {"hx_tablet:hx_mem_sys_v1:100:metric=MemoryUtilization.", 15, "memory usage, one per value"},
      {"hx_health:hx_health_mem_v2:100:metricKeys=MemSys.P50|", 1, "memory usage, health"},
      {"SystemMemMonitorTablet:SystemMemMonitor:mem_", 1, "system memory, plain"},
      {"SystemMemMonitorTablet:SystemMemMonitor:lmk_kills_", 1, "kill counts, plain"},
      {"hx_tablet:hx_sysmem_v1:100:metric=", 26, "system memory, one per value"},
      {"DiskUsageMonitorTablet:PercentageUsed:/data=", 1, "disk, plain"},
      {"hx_tablet:hx_disk_v1:100:partition=/", 5, "disk, one per partition figure"},
      {"hx_health:hx_health_storage_v2:100:metricKeys=PartitionPath|", 1, "disk, health"},
      {"ProcessCpuMonitorTablet:CpuUsage:", 1, "per-process CPU, plain"},
      // Eleven busiest of the tablet's processes, but the two zygotes are both
      // "main" and share one metric name.
      {"hx_tablet:hx_proc_cpu_v1:100:metric=", 10, "per-process CPU, eleven busiest"},
      {"hx_health:hx_health_cpu_v2:100:appSnapshotPeriod=120;IN,metricKeys=AppName|", 1,
       "per-process CPU, health"},
      {"ProcessMemMonitorTablet:PssKB:", 1, "per-process memory, plain"},
      {"hx_tablet:hx_proc_pss_v1:100:metric=", 10, "per-process memory, largest eleven"},
      {"hx_health:hx_health_mem_v2:100:appSnapshotPeriod=120;IN,metricKeys=AppName|", 1,
       "per-process memory, health"},
  };
  size_t total = 0;
  for (const auto& e : expected) {
    EXPECT_EQ(countStartingWith(records, e.prefix), e.count) << e.what;
    total += e.count;
  }
  EXPECT_EQ(records.size(), total) << "records nobody expected";

  for (MonitorInterface* monitor : monitors) delete monitor;
  HalvexConfig::instance().resetConfig();
}

}  // namespace
}  // namespace halvexd
