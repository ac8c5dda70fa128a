// The real daemon over a copy of the sample tablet, with its demo
// configuration, while the test moves the device's CPU counters on.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <thread>

#include "tests/support/DaemonProcess.h"
#include "tests/support/MetricRecords.h"
#include "tests/support/TestSupport.h"

namespace halvexd {
namespace {

using testing::DaemonProcess;
using testing::LogRecord;
using testing::TempDir;

const std::string kTail = testing::kDeviceTail + ":eu";

// Moves the aggregate CPU counters on every 50 ms, three busy ticks for every
// idle one, so any two samples of the daemon are 75 % apart. Each version of
// the file is written aside and renamed in, as the daemon may read at any
// moment.
class CpuCounterPump {
 public:
  explicit CpuCounterPump(const std::string& root) : statPath(root + "/proc/stat") {
    writeOnce();
    pump = std::thread([this] {
      while (!stop) {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        writeOnce();
      }
    });
  }
  ~CpuCounterPump() {
    stop = true;
    pump.join();
  }

 private:
  void writeOnce() {
    ++steps;
    std::string aside = statPath + ".new";
    {
      std::ofstream out(aside, std::ios::trunc);
      out << "cpu  " << 1473020 + 3 * steps << " 60337 1033474 " << 21598790 + steps
          << " 24875 131532 48722 0 0 0\n"
          << "cpu0 390112 15642 301229 5207645 7321 48310 20012 0 0 0\n"
          << "intr 162840451 0 0\nctxt 301845207\nbtime 1795300000\n";
    }
    std::filesystem::rename(aside, statPath);
  }

  std::string statPath;
  unsigned long steps = 0;
  std::atomic<bool> stop{false};
  std::thread pump;
};

class EndToEndTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::filesystem::copy(testing::fixturePath("tablet"), device.path(),
                          std::filesystem::copy_options::recursive);
  }
  std::map<std::string, std::string> env() const { return {{"HALVEXD_SYSROOT", device.path()}}; }
  std::string logFile() const { return scratch.path() + "/log.jsonl"; }

  static std::vector<std::string> metricMessages(const std::vector<LogRecord>& records,
                                                 const std::string& prefix) {
    std::vector<std::string> out;
    for (const auto& record : records) {
      if (record.buffer == 8 && record.message.rfind(prefix, 0) == 0) out.push_back(record.message);
    }
    return out;
  }

  static void stop(DaemonProcess& daemon) {
    kill(daemon.pid(), SIGTERM);
    int status = daemon.waitForExit();
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    EXPECT_EQ(daemon.records().back().message, "Exiting");
  }

  TempDir device;
  TempDir scratch;
};

TEST_F(EndToEndTest, UsageMonitorsReportOnTheirOffsetsWithEveryRecord) {
  CpuCounterPump pump(device.path());
  // Every monitor samples every tick; CPU usage reports on tick 3, memory
  // usage on tick 4.
  DaemonProcess daemon({"-s", "1", "-t", "1"}, env(), logFile());
  ASSERT_TRUE(daemon.waitForRecord(
      [](const LogRecord& r) { return r.message.rfind("MemoryUsageMonitorTablet:", 0) == 0; },
      std::chrono::seconds(20)));
  stop(daemon);
  auto records = daemon.records();

  // Four CPU samples at 75 % (ticks 0 to 3) and five memory samples of the
  // tablet's 53.56 % (ticks 0 to 4): every percentile answers one above.
  std::map<std::string, std::string> cpu, memory;
  for (int low = 0; low < 90; low += 10) {
    std::string bucket = ".B" + std::to_string(low) + "-" + std::to_string(low + 9);
    cpu["CPUUtilization" + bucket] = low == 70 ? "4" : "0";
    memory["MemoryUtilization" + bucket] = low == 50 ? "5" : "0";
  }
  cpu["CPUUtilization.B90-100"] = "0";
  memory["MemoryUtilization.B90-100"] = "0";
  for (const char* p : {".P50", ".P75", ".P90", ".P99", ".P100"}) {
    cpu[std::string("CPUUtilization") + p] = "76";
    memory[std::string("MemoryUtilization") + p] = "55";
  }
  EXPECT_EQ(metricMessages(records, "CpuUsageMonitorTablet:"),
            (std::vector<std::string>{
                testing::plainRecord("CpuUsageMonitorTablet", "CpuUsageMonitor", cpu)}));
  EXPECT_EQ(metricMessages(records, "MemoryUsageMonitorTablet:"),
            (std::vector<std::string>{
                testing::plainRecord("MemoryUsageMonitorTablet", "MemoryUsageMonitor", memory)}));

  // The per-process CPU monitor shares the health record's name; its samples
  // start with their snapshot period, the system-wide ones with their keys.
  EXPECT_EQ(metricMessages(records, "hx_health:hx_health_cpu_v2:100:metricKeys="),
            (std::vector<std::string>{
                "hx_health:hx_health_cpu_v2:100:metricKeys=CpuSys.P50|CpuSys.P90|CpuSys.P99;SY,"
                "metricType=System;SY,metricValues=76|76|76;SY,aggregationPeriod=2880;IN" +
                kTail}));
  EXPECT_EQ(metricMessages(records, "hx_health:hx_health_mem_v2:100:metricKeys="),
            (std::vector<std::string>{
                "hx_health:hx_health_mem_v2:100:metricKeys=MemSys.P50|MemSys.P90|MemSys.P99;SY,"
                "metricType=System;SY,metricValues=55|55|55;SY,aggregationPeriod=2880;IN" +
                kTail}));

  std::vector<std::string> structuredCpu;
  for (const auto& [name, value] : cpu) {
    structuredCpu.push_back("hx_tablet:hx_cpu_sys_v1:100:metric=" + name + ";SY,value=" + value +
                            ";IN" + kTail);
  }
  EXPECT_EQ(metricMessages(records, "hx_tablet:hx_cpu_sys_v1:"), structuredCpu);
  EXPECT_EQ(metricMessages(records, "hx_tablet:hx_mem_sys_v1:").size(), memory.size());
}

TEST_F(EndToEndTest, SystemMemoryAndDiskReportOnTheirOffsets) {
  // On a six-tick interval the system memory monitor runs on tick 2 and the
  // disk monitor on tick 5.
  DaemonProcess daemon({"-s", "6", "-t", "1"}, env(), logFile());
  ASSERT_TRUE(daemon.waitForRecord(
      [](const LogRecord& r) { return r.message.rfind("DiskUsageMonitorTablet:", 0) == 0; },
      std::chrono::seconds(20)));
  stop(daemon);
  auto records = daemon.records();

  auto memoryRecords = metricMessages(records, "SystemMemMonitorTablet:SystemMemMonitor:");
  ASSERT_EQ(memoryRecords.size(), 2u);
  EXPECT_EQ(memoryRecords[0].rfind("SystemMemMonitorTablet:SystemMemMonitor:mem_active_anon=702392;CT;1,", 0), 0u);
  EXPECT_NE(memoryRecords[0].find(",zram_mem_used_kb=218196;CT;1:NR"), std::string::npos);
  EXPECT_EQ(memoryRecords[1],
            testing::plainRecord("SystemMemMonitorTablet", "SystemMemMonitor",
                                 {{"lmk_kills_backup", "41"},
                                  {"lmk_kills_fg", "3"},
                                  {"lmk_kills_other", "268"},
                                  {"lmk_kills_perceptible", "19"},
                                  {"lmk_kills_persistent", "0"},
                                  {"lmk_kills_visible", "7"}}));
  // 20 memory values and 6 kill counts, each also as a structured record.
  EXPECT_EQ(metricMessages(records, "hx_tablet:hx_sysmem_v1:100:metric=").size(), 26u);

  // /data and /system of the copy sit on this machine's disk: the figures
  // are the host's, the shape is the daemon's.
  auto diskRecords = metricMessages(records, "DiskUsageMonitorTablet:PercentageUsed:/data=");
  ASSERT_EQ(diskRecords.size(), 1u);
  EXPECT_NE(diskRecords[0].find(",/data/avail_inodes="), std::string::npos);
  EXPECT_NE(diskRecords[0].find(",/system="), std::string::npos);
  EXPECT_EQ(metricMessages(records, "hx_tablet:hx_disk_v1:100:partition=/").size(), 5u);
  EXPECT_EQ(metricMessages(records,
                           "hx_health:hx_health_storage_v2:100:metricKeys=PartitionPath|percentage|"
                           "totalSize;SY,metricType=System;SY,metricValues=/data|")
                .size(),
            1u);
}

}  // namespace
}  // namespace halvexd
