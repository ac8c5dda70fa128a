// The moving sample device: the same seed moves the tree the same way, and
// two daemons watching it (one per set of report ticks, as scripts/run.sh
// runs them) see every monitor report and log nothing a healthy device would
// not make them log.
#include <gtest/gtest.h>
#include <signal.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <thread>

#include "platform/LogBuffers.h"
#include "stats/ProcessFileParsers.h"
#include "stats/SystemFileParsers.h"
#include "tests/support/DaemonProcess.h"
#include "tests/support/TestSupport.h"
#include "tools/devicesim/PerfinfoServer.h"
#include "tools/devicesim/SampleDevice.h"

namespace halvexd {
namespace {

using devicesim::SampleDevice;
using namespace std::string_literals;
using testing::TempDir;

// Every regular file of the tree but the growing one under /data, by path
// under the root.
std::map<std::string, std::string> snapshot(const std::string& root) {
  std::map<std::string, std::string> files;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(root)) {
    if (!entry.is_regular_file() || entry.path().parent_path().filename() == "data") continue;
    std::ifstream in(entry.path(), std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    files[std::filesystem::relative(entry.path(), root).string()] = text.str();
  }
  return files;
}

std::string tabletCopy(const TempDir& dir) {
  std::filesystem::copy(testing::fixturePath("tablet"), dir.path(),
                        std::filesystem::copy_options::recursive);
  return dir.path();
}

uint64_t lineValue(const std::string& text, const std::string& name) {
  size_t at = text.find(name + ":");
  return at == std::string::npos ? 0 : std::stoull(text.substr(at + name.size() + 1));
}

TEST(DeviceSimTest, SameSeedMovesTheTreeTheSameWayAndMovesItLikeADevice) {
  TempDir a, b, c;
  SampleDevice first(tabletCopy(a), 7), twin(tabletCopy(b), 7), other(tabletCopy(c), 8);
  const std::string before = snapshot(a.path()).at("proc/lmk_stats");
  uint64_t previousTotal = 0;
  std::set<std::string> pidsBefore, gone;
  bool pidReused = false, memoryAbove95 = false, memoryStalled = false;
  for (int second = 1; second <= 60; ++second) {
    for (int quarter = 0; quarter < SampleDevice::kStepsPerSecond; ++quarter) {
      first.step();
      twin.step();
      other.step();
      // Four CPUs, 25 clock ticks each per quarter second, whatever the load.
      std::ifstream stat(a.path() + "/proc/stat");
      std::string cpu;
      uint64_t value = 0, total = 0;
      stat >> cpu;
      for (int i = 0; i < 10 && stat >> value; ++i) total += value;
      if (previousTotal != 0) {
        ASSERT_EQ(total - previousTotal, 100u) << "second " << second;
      }
      previousTotal = total;
    }
    const auto files = snapshot(a.path());
    ASSERT_EQ(files, snapshot(b.path())) << "second " << second;
    const std::string& meminfo = files.at("proc/meminfo");
    memoryAbove95 |= lineValue(meminfo, "MemAvailable") * 100 < lineValue(meminfo, "MemTotal") * 5;
    // Memory stalls follow the spells, and smaps_rollup says what perfinfo says.
    PressureStall memory;
    ASSERT_TRUE(parsePressure(files.at("proc/pressure/memory"), memory)) << "second " << second;
    memoryStalled |= memory.some.avg10 >= 1000 && memory.full.present;
    unsigned long pss = 0;
    ASSERT_TRUE(parseSmapsRollupPss(files.at("proc/1024/smaps_rollup"), pss));
    EXPECT_EQ(first.perfinfoAnswer("1024"), "Pss: " + std::to_string(pss) + " kB\n");
    std::set<std::string> pidsNow;
    for (const auto& [path, text] : files) {
      if (path.size() > 5 && path.compare(path.size() - 5, 5, "/stat") == 0) pidsNow.insert(path);
    }
    for (const std::string& path : pidsNow) pidReused |= gone.count(path) != 0;
    for (const std::string& path : pidsBefore) {
      if (pidsNow.count(path) == 0) gone.insert(path);
    }
    pidsBefore = pidsNow;
  }
  EXPECT_NE(snapshot(a.path()), snapshot(c.path()));
  EXPECT_TRUE(memoryAbove95);
  EXPECT_TRUE(memoryStalled);
  EXPECT_GT(lineValue(snapshot(a.path()).at("proc/lmk_stats"), "Total"), lineValue(before, "Total"));
  EXPECT_TRUE(pidReused);
  EXPECT_FALSE(gone.empty());
}

TEST(DeviceSimTest, DaemonsOverTheMovingTabletReportEveryMonitorWithoutAnErrorLine) {
  // Two tablets moving alike, the second configured with the extensions on:
  // /proc/perfinfo answers one selection at a time, so the snapshots' PSS
  // readings get a tablet of their own.
  TempDir device, extendedDevice, logs;
  auto tablet = std::make_unique<SampleDevice>(tabletCopy(device), 1);
  auto twin = std::make_unique<SampleDevice>(tabletCopy(extendedDevice), 1);
  std::filesystem::copy_file(testing::fixturePath("configs/extensions.json"),
                             extendedDevice.path() + "/system/system_ext/etc/halvex_config.json",
                             std::filesystem::copy_options::overwrite_existing);
  devicesim::PerfinfoServer perfinfo(
      device.path(), [&tablet](const std::string& written) { return tablet->perfinfoAnswer(written); },
      false);
  devicesim::PerfinfoServer twinPerfinfo(
      extendedDevice.path(),
      [&twin](const std::string& written) { return twin->perfinfoAnswer(written); }, false);
  std::atomic<bool> stop{false};
  std::thread mover([&] {
    while (!stop) {
      std::this_thread::sleep_for(std::chrono::milliseconds(250));
      tablet->step();
      twin->step();
    }
  });
  const std::map<std::string, std::string> env = {{"HALVEXD_SYSROOT", device.path()}};
  testing::DaemonProcess usage({"-s", "1", "-t", "1"}, env, logs.path() + "/usage.jsonl");
  testing::DaemonProcess others({"-s", "6", "-t", "1"}, env, logs.path() + "/others.jsonl");
  testing::DaemonProcess extended({"-s", "1", "-t", "1"},
                                  {{"HALVEXD_SYSROOT", extendedDevice.path()}},
                                  logs.path() + "/extended.jsonl");

  // Plain records start with the monitor's prefix and the publish name.
  const std::vector<std::pair<testing::DaemonProcess*, std::string>> expected = {
      {&usage, "CpuUsageMonitorTablet:CpuUsageMonitor:"},
      {&usage, "MemoryUsageMonitorTablet:MemoryUsageMonitor:"},
      {&others, "ProcessCpuMonitorTablet:CpuUsage:"},
      {&others, "ProcessMemMonitorTablet:PssKB:"},
      {&others, "SystemMemMonitorTablet:SystemMemMonitor:"},
      {&others, "DiskUsageMonitorTablet:PercentageUsed:"}};
  for (const auto& [daemon, expectedPrefix] : expected) {
    const std::string& prefix = expectedPrefix;  // a lambda cannot capture a binding
    EXPECT_TRUE(daemon->waitForRecord(
        [&prefix](const testing::LogRecord& record) {
          return record.buffer == kMetricsLogBuffer && record.message.rfind(prefix, 0) == 0;
        },
        std::chrono::seconds(20)))
        << prefix;
  }
  // Both kinds of snapshot, and the own cost.
  const std::string cost = "DaemonCostTablet:DaemonCost:";
  for (const std::string& prefix : {cost, "CrossingSnapshotTablet:CrossingSnapshot:CPU"s,
                                    "CrossingSnapshotTablet:CrossingSnapshot:Memory"s}) {
    EXPECT_TRUE(extended.waitForRecord(
        [&prefix](const testing::LogRecord& record) {
          return record.message.rfind(prefix, 0) == 0;
        },
        std::chrono::seconds(30)))
        << prefix;
  }
  for (testing::DaemonProcess* daemon : {&usage, &others, &extended}) {
    kill(daemon->pid(), SIGTERM);
    EXPECT_EQ(daemon->waitForExit(), 0);
    EXPECT_EQ(daemon->records().back().message, "Exiting");
    if (daemon == &extended) continue;
    for (const testing::LogRecord& record : daemon->records()) {
      EXPECT_LT(record.priority, 5) << record.tag << ": " << record.message;
      EXPECT_EQ(record.message.find("Error"), std::string::npos) << record.message;
      EXPECT_EQ(record.message.find("Failed"), std::string::npos) << record.message;
    }
  }
  stop = true;
  mover.join();
  // The k-th CPU (memory) snapshot names first the application behind the
  // k-th burst (spell), by pid.
  const std::regex top(R"(^CrossingSnapshotTablet:CrossingSnapshot:(CPU|Memory)Utilization)"
                       R"(\.Top01\.[^=]*\.(\d+)\.(SharePercent|PssKB|RssKB)=)");
  std::map<bool, std::vector<int>> snapshotPids, spellPids;
  for (const testing::LogRecord& record : extended.records()) {
    std::smatch match;
    if (std::regex_search(record.message, match, top)) {
      snapshotPids[match[1] == "Memory"].push_back(std::stoi(match[2]));
    }
  }
  for (const SampleDevice::Spell& spell : twin->spells()) {
    spellPids[spell.memory].push_back(spell.pid);
  }
  for (bool memory : {false, true}) {
    SCOPED_TRACE(memory ? "memory" : "cpu");
    ASSERT_FALSE(snapshotPids[memory].empty());
    ASSERT_GE(spellPids[memory].size(), snapshotPids[memory].size());
    spellPids[memory].resize(snapshotPids[memory].size());
    EXPECT_EQ(snapshotPids[memory], spellPids[memory]);
  }
  // The own cost every 5 ticks: a line and a record each interval.
  size_t costRecords = 0, costLines = 0;
  for (const testing::LogRecord& record : extended.records()) {
    costRecords += record.message.rfind(cost, 0) == 0 &&
                   record.message.find(",IntervalTicks=5;CT;1,") != std::string::npos;
    costLines += record.tag == "halvexd:DaemonCost" &&
                 record.message.rfind("Own cost over 5 ticks: CPU ", 0) == 0;
  }
  EXPECT_GE(costRecords, 2u);
  EXPECT_EQ(costLines, costRecords);
}

}  // namespace
}  // namespace halvexd
