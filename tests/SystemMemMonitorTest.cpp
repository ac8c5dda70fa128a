#include "monitors/SystemMemMonitor.h"

#include <gtest/gtest.h>

#include "config/HalvexConfig.h"
#include "platform/LogBuffers.h"
#include "tests/support/MetricRecords.h"
#include "tests/support/TestSupport.h"

namespace halvexd::systemmemmonitor {
namespace {

using testing::LogCapture;
using testing::LogRecord;
using testing::ScopedSysroot;
using testing::TempDir;

constexpr const char* kTag = "halvexd:SystemMemMonitor";

// What the sample tablet's files add up to, worked out by hand:
// zram 223432704 B >> 10; KSM sharing 18760 pages * 4 kB; rmap items
// 18760 + 3452 + 40211 + 1587 + 212 = 64222 of 64 B, >> 10 = 4013 kB;
// swap in use 2097148 - 1447412.
const std::vector<std::pair<std::string, std::string>> kTabletValues = {
    {"mem_total", "3866624"},          {"mem_free", "148736"},
    {"mem_available", "1795672"},      {"mem_buffers", "10360"},
    {"mem_cached", "1699808"},         {"mem_active_anon", "702392"},
    {"mem_inactive_anon", "386540"},   {"mem_active_file", "722324"},
    {"mem_inactive_file", "913024"},   {"mem_swap_total", "2097148"},
    {"mem_swap_free", "1447412"},      {"mem_swap_uncompressed", "649736"},
    {"zram_mem_used_kb", "218196"},    {"mem_shmem", "13852"},
    {"mem_s_unreclaim", "134632"},     {"mem_kernel_stack", "51680"},
    {"mem_page_tables", "88956"},      {"mem_ksm_pages_sharing", "75040"},
    {"mem_ksm_overhead", "4013"},      {"mem_ksm_saving", "71027"},
};

const std::map<std::string, std::string> kTabletKills = {
    {"lmk_kills_backup", "41"},     {"lmk_kills_fg", "3"},       {"lmk_kills_other", "268"},
    {"lmk_kills_perceptible", "19"}, {"lmk_kills_persistent", "0"}, {"lmk_kills_visible", "7"},
};

LogRecord info(const std::string& message) {
  return {kSystemLogBuffer, ANDROID_LOG_INFO, kTag, message};
}

class SystemMemMonitorTest : public ::testing::Test {
 protected:
  void SetUp() override { HalvexConfig::instance().resetConfig(); }
  void TearDown() override { HalvexConfig::instance().resetConfig(); }

  SystemMemMonitor makeMonitor() {
    SystemMemMonitor monitor(monitor_config{"SystemMemMonitor", true, 120, 120, 120, 2});
    monitor.init();
    return monitor;
  }
};

TEST(LmkBucketNameTest, SixClassesAndEverythingElseAsOther) {
  const std::pair<const char*, const char*> cases[] = {
      {"Persistent", "lmk_kills_persistent"}, {"Fg", "lmk_kills_fg"},
      {"Visible", "lmk_kills_visible"},       {"Perceptible", "lmk_kills_perceptible"},
      {"Backup", "lmk_kills_backup"},         {"Other", "lmk_kills_other"},
      {"fg", "lmk_kills_other"},              {"Total", "lmk_kills_other"},
      {"", "lmk_kills_other"},
  };
  for (const auto& [className, key] : cases) {
    EXPECT_EQ(lmkBucketToMetricName(className), key) << className;
  }
}

TEST_F(SystemMemMonitorTest, SnapshotOfTheSampleTabletInLogAndRecords) {
  ScopedSysroot sysroot(testing::fixturePath("tablet"));
  HalvexConfig::instance().vedrixConfig = {true, "eu", "grp0"};
  testing::configureMetricRecord("SystemMemMonitor", true, true);
  SystemMemMonitor monitor = makeMonitor();
  LogCapture capture;
  ASSERT_TRUE(monitor.check(122, false));

  std::vector<LogRecord> expectedLines = {
      {kSystemLogBuffer, ANDROID_LOG_DEBUG, kTag, "Running SystemMemMonitor"}};
  for (const auto& [key, value] : kTabletValues) expectedLines.push_back(info(key + " = " + value + " Kb"));
  for (const auto& [key, value] : kTabletKills) expectedLines.push_back(info(key + " = " + value));
  EXPECT_EQ(capture.withTag(kTag), expectedLines);

  std::map<std::string, std::string> memoryValues(kTabletValues.begin(), kTabletValues.end());
  std::vector<std::string> expected = {
      testing::plainRecord("SystemMemMonitorTablet", "SystemMemMonitor", memoryValues)};
  for (const auto& [key, value] : memoryValues) {
    expected.push_back(testing::structuredRecord("SystemMemMonitor", key, value, "eu"));
  }
  expected.push_back(testing::plainRecord("SystemMemMonitorTablet", "SystemMemMonitor", kTabletKills));
  for (const auto& [key, value] : kTabletKills) {
    expected.push_back(testing::structuredRecord("SystemMemMonitor", key, value, "eu"));
  }
  EXPECT_EQ(testing::messagesOf(capture.metricRecords()), expected);
}

TEST_F(SystemMemMonitorTest, WithoutKsmItsTwoDerivedMetricsAreOnlyLogged) {
  TempDir root;
  ScopedSysroot sysroot(root.path());
  root.write("proc/meminfo", "MemTotal:  2000 kB\nSwapTotal: 100 kB\nSwapFree: 40 kB\n");
  root.write("sys/block/zram0/mm_stat", "4096 1024 8192 0 8192 0 0 0 0\n");
  testing::configureMetricRecord("SystemMemMonitor", true, false);
  SystemMemMonitor monitor = makeMonitor();
  LogCapture capture;
  ASSERT_TRUE(monitor.check(0, true));

  auto records = testing::messagesOf(capture.metricRecords());
  ASSERT_EQ(records.size(), 2u);
  EXPECT_EQ(records[0].find("mem_ksm_overhead"), std::string::npos);
  EXPECT_EQ(records[0].find("mem_ksm_saving"), std::string::npos);
  EXPECT_NE(records[0].find(",mem_swap_uncompressed=60;CT;1,"), std::string::npos);
  EXPECT_NE(records[0].find(",zram_mem_used_kb=8;CT;1"), std::string::npos);
  auto lines = capture.messages(kTag);
  EXPECT_NE(std::find(lines.begin(), lines.end(), "mem_ksm_overhead = 0 Kb"), lines.end());
  EXPECT_NE(std::find(lines.begin(), lines.end(), "mem_ksm_saving = 0 Kb"), lines.end());
  // No lmk_stats file: the seeded counts go out as they are.
  EXPECT_EQ(records[1], testing::plainRecord("SystemMemMonitorTablet", "SystemMemMonitor",
                                             {{"lmk_kills_backup", "0"},
                                              {"lmk_kills_fg", "0"},
                                              {"lmk_kills_other", "0"},
                                              {"lmk_kills_perceptible", "0"},
                                              {"lmk_kills_persistent", "0"},
                                              {"lmk_kills_visible", "0"}}));
}

TEST_F(SystemMemMonitorTest, KsmCostingMoreThanItSavesIsNoSaving) {
  TempDir root;
  ScopedSysroot sysroot(root.path());
  root.write("proc/meminfo", "MemTotal:  2000 kB\n");
  root.write("sys/block/zram0/mm_stat", "0 0 0 0 0 0 0\n");
  // 10 pages shared (40 kB) tracked by 1000 rmap items of 64 B (62 kB).
  root.write("sys/kernel/mm/ksm/pages_sharing", "10\n");
  root.write("sys/kernel/mm/ksm/pages_unshared", "990\n");
  root.write("sys/kernel/slab/ksm_rmap_item/object_size", "64\n");
  SystemMemMonitor monitor = makeMonitor();
  LogCapture capture;
  ASSERT_TRUE(monitor.check(0, true));
  auto lines = capture.messages(kTag);
  EXPECT_NE(std::find(lines.begin(), lines.end(), "mem_ksm_pages_sharing = 40 Kb"), lines.end());
  EXPECT_NE(std::find(lines.begin(), lines.end(), "mem_ksm_overhead = 62 Kb"), lines.end());
  EXPECT_NE(std::find(lines.begin(), lines.end(), "mem_ksm_saving = 0 Kb"), lines.end());
}

TEST_F(SystemMemMonitorTest, NoZramFailsEverySnapshotAndNothingIsReported) {
  TempDir root;
  ScopedSysroot sysroot(root.path());
  root.write("proc/meminfo", "MemTotal:  2000 kB\n");
  testing::configureMetricRecord("SystemMemMonitor", true, false);
  SystemMemMonitor monitor = makeMonitor();
  LogCapture capture;
  EXPECT_FALSE(monitor.check(2, false));
  EXPECT_TRUE(capture.metricRecords().empty());
  EXPECT_EQ(capture.messages(kTag), (std::vector<std::string>{"Running SystemMemMonitor"}));
}

TEST_F(SystemMemMonitorTest, RunsOnTicksCongruentToItsOffset) {
  TempDir root;
  ScopedSysroot sysroot(root.path());
  SystemMemMonitor monitor(monitor_config{"SystemMemMonitor", true, 120, 120, 120, 2});
  LogCapture capture;
  std::vector<unsigned long> runTicks;
  for (unsigned long tick : {0UL, 1UL, 2UL, 3UL, 120UL, 122UL, 242UL, 243UL}) {
    capture.clear();
    monitor.check(tick, false);
    if (!capture.records().empty()) runTicks.push_back(tick);
  }
  EXPECT_EQ(runTicks, (std::vector<unsigned long>{2, 122, 242}));
}

}  // namespace
}  // namespace halvexd::systemmemmonitor
