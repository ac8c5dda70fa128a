#include "monitors/DiskUsageMonitor.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <optional>

#include "config/HalvexConfig.h"
#include "platform/FileSystemStats.h"
#include "platform/LogBuffers.h"
#include "tests/support/MetricRecords.h"
#include "tests/support/TestSupport.h"

namespace halvexd::diskusagemonitor {
namespace {

using testing::LogCapture;
using testing::LogRecord;

constexpr const char* kTag = "halvexd:DiskUsageMonitor";

struct Figures {
  unsigned long blocks, blockSize, blocksFree, blocksAvail, files, filesFree, filesAvail;
};

// A 4 GB /data at 75 % with plenty of inodes, a 2 GB read-only /system at 90 %.
constexpr Figures kData{1000000, 4096, 250000, 200000, 500000, 400000, 390000};
constexpr Figures kSystem{500000, 4096, 50000, 0, 4000, 0, 0};

LogRecord info(const std::string& message) {
  return {kSystemLogBuffer, ANDROID_LOG_INFO, kTag, message};
}
LogRecord error(const std::string& message) {
  return {kSystemLogBuffer, ANDROID_LOG_ERROR, kTag, message};
}
const LogRecord kRunning{kSystemLogBuffer, ANDROID_LOG_DEBUG, kTag, "Running DiskUsageMonitor"};

class DiskUsageMonitorTest : public ::testing::Test {
 protected:
  void SetUp() override {
    HalvexConfig::instance().resetConfig();
    setStatvfsForTesting([this](const std::string& path, struct statvfs* out) {
      auto found = partitions.find(path);
      if (found == partitions.end()) {
        ADD_FAILURE() << "unexpected statvfs of " << path;
        return -1;
      }
      if (!found->second) return -1;
      const Figures& f = *found->second;
      out->f_blocks = f.blocks;
      out->f_bsize = f.blockSize;
      out->f_bfree = f.blocksFree;
      out->f_bavail = f.blocksAvail;
      out->f_files = f.files;
      out->f_ffree = f.filesFree;
      out->f_favail = f.filesAvail;
      return 0;
    });
  }
  void TearDown() override {
    setStatvfsForTesting(nullptr);
    HalvexConfig::instance().resetConfig();
  }

  DiskUsageMonitor makeMonitor() {
    DiskUsageMonitor monitor(monitor_config{"DiskUsageMonitor", true, 2880, 2880, 2880, 5});
    monitor.init();
    return monitor;
  }

  // Device path -> figures, or nullopt for a failing statvfs.
  std::map<std::string, std::optional<Figures>> partitions{{"/data", kData}, {"/system", kSystem}};
};

TEST_F(DiskUsageMonitorTest, MeasuresDataFullyAndSystemOnlyForUsedSpace) {
  DiskUsageMonitor monitor = makeMonitor();
  LogCapture capture;
  ASSERT_TRUE(monitor.check(5, false));
  EXPECT_EQ(capture.withTag(kTag),
            (std::vector<LogRecord>{
                kRunning,
                info("/data partition total space=4000000kB used space=3000000kB percent used=75%"),
                info("/data partition available space=800000kB available space percentage=20%"),
                info("/data partition free inodes=400000 total inodes=500000 free inodes "
                     "percentage=80%"),
                info("/data partition available inodes=390000 total inodes=500000 available "
                     "inodes percentage=78%"),
                info("/system partition total space=2000000kB used space=1800000kB percent "
                     "used=90%"),
            }));
}

TEST_F(DiskUsageMonitorTest, EachFailureClearsOnlyItsPartition) {
  struct Case {
    const char* why;
    std::optional<Figures> data;
    std::optional<Figures> system;
    std::vector<LogRecord> expectedLines;
    bool expectedResult;
    bool systemReported;
  };
  const Case cases[] = {
      {"no free block left is an error by design",
       Figures{1000, 4096, 0, 0, 100, 50, 50},
       kSystem,
       {kRunning, error("Error calculating disk usage for /data blocks 1000 blocksize 4096 blocksfree 0"),
        info("/system partition total space=2000000kB used space=1800000kB percent used=90%")},
       true, true},
      {"only the reserve left: used space logged, then the error",
       Figures{1000, 4096, 10, 0, 100, 50, 50},
       kSystem,
       {kRunning, info("/data partition total space=4000kB used space=3960kB percent used=99%"),
        error("Error getting disk usage available space"),
        info("/system partition total space=2000000kB used space=1800000kB percent used=90%")},
       true, true},
      {"no free inode",
       Figures{1000, 4096, 500, 400, 100, 0, 0},
       kSystem,
       {kRunning, info("/data partition total space=4000kB used space=2000kB percent used=50%"),
        info("/data partition available space=1600kB available space percentage=40%"),
        error("Error getting disk usage free inodes"),
        info("/system partition total space=2000000kB used space=1800000kB percent used=90%")},
       true, true},
      {"no inode available to apps",
       Figures{1000, 4096, 500, 400, 100, 10, 0},
       std::nullopt,
       {kRunning, info("/data partition total space=4000kB used space=2000kB percent used=50%"),
        info("/data partition available space=1600kB available space percentage=40%"),
        info("/data partition free inodes=10 total inodes=100 free inodes percentage=10%"),
        error("Error getting disk usage available inodes"),
        error("Failed to check the available space in /system")},
       false, false},
      {"neither partition measurable",
       std::nullopt,
       std::nullopt,
       {kRunning, error("Failed to check the available space in /data"),
        error("Failed to check the available space in /system")},
       false, false},
      {"an empty file system has no share to compute",
       Figures{0, 4096, 0, 0, 0, 0, 0},
       Figures{0, 0, 0, 0, 0, 0, 0},
       {kRunning, error("Error calculating disk usage for /data blocks 0 blocksize 4096 blocksfree 0"),
        error("Error calculating disk usage for /system blocks 0 blocksize 0 blocksfree 0")},
       false, false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    partitions = {{"/data", c.data}, {"/system", c.system}};
    testing::configureMetricRecord("PercentageUsed", true, false);
    DiskUsageMonitor monitor = makeMonitor();
    LogCapture capture;
    EXPECT_EQ(monitor.check(5, false), c.expectedResult);
    EXPECT_EQ(capture.withTag(kTag), c.expectedLines);
    // /system alone is reported when it measured; nothing at all otherwise.
    std::vector<std::string> expectedRecords;
    if (c.systemReported) {
      expectedRecords.push_back(
          testing::plainRecord("DiskUsageMonitorTablet", "PercentageUsed", {{"/system", "90"}}));
    }
    EXPECT_EQ(testing::messagesOf(capture.metricRecords()), expectedRecords);
  }
}

TEST_F(DiskUsageMonitorTest, PercentagesUseSinglePrecisionAndTruncate) {
  struct Case {
    Figures data;
    const char* expectedUsedLine;
  };
  const Case cases[] = {
      {{1000, 4096, 1, 1, 10, 5, 5}, "/data partition total space=4000kB used space=3996kB percent used=99%"},
      // 16777217 of 33554433 bytes is just under 50 %, but as floats both
      // lose their last bit and the share is exactly one half.
      {{33554433, 1, 16777216, 1000, 10, 5, 5},
       "/data partition total space=32768kB used space=16384kB percent used=50%"},
  };
  for (const auto& c : cases) {
    partitions["/data"] = c.data;
    DiskUsageMonitor monitor = makeMonitor();
    LogCapture capture;
    monitor.check(5, false);
    ASSERT_GE(capture.records().size(), 2u);
    EXPECT_EQ(capture.records()[1], info(c.expectedUsedLine));
  }
}

TEST_F(DiskUsageMonitorTest, TotalSizeOfTheFirstRunIsKept) {
  DiskUsageMonitor monitor = makeMonitor();
  partitions["/data"] = Figures{1000, 4096, 500, 400, 100, 50, 50};
  LogCapture capture;
  monitor.check(0, true);
  // Grown to twice the size: used space is still measured against the first
  // total, 2000 of 4000 kB.
  partitions["/data"] = Figures{2000, 4096, 1500, 400, 100, 50, 50};
  monitor.check(0, true);
  auto lines = capture.messages(kTag);
  EXPECT_EQ(std::count(lines.begin(), lines.end(),
                       "/data partition total space=4000kB used space=2000kB percent used=50%"),
            2);
}

TEST_F(DiskUsageMonitorTest, RunsOnlyOnItsOffsetUnlessForced) {
  DiskUsageMonitor monitor(monitor_config{"DiskUsageMonitor", true, 10, 2880, 2880, 5});
  LogCapture capture;
  std::vector<unsigned long> runTicks;
  for (unsigned long tick = 0; tick < 30; ++tick) {
    capture.clear();
    EXPECT_TRUE(monitor.check(tick, false));
    if (!capture.records().empty()) runTicks.push_back(tick);
  }
  EXPECT_EQ(runTicks, (std::vector<unsigned long>{5, 15, 25}));

  monitor.active = false;
  capture.clear();
  EXPECT_TRUE(monitor.check(5, false));
  EXPECT_TRUE(capture.records().empty());
  EXPECT_TRUE(monitor.check(6, true));
  EXPECT_EQ(capture.records().front(), kRunning);
}

TEST_F(DiskUsageMonitorTest, ReportWritesPlainPairAndStorageRecords) {
  HalvexConfig::instance().vedrixConfig = {true, "", "grp0"};
  testing::configureSystemHealthRecord("PercentageUsed", {"partition_path", "percent_used"},
                                       /*plain=*/true);
  testing::configureSystemHealthRecord(
      "SysHealthStorageUsage",
      {"storage_metric_keys", "storage_metric_type", "storage_metric_values", "storage_snapshot_period"});
  DiskUsageMonitor monitor = makeMonitor();
  LogCapture capture;
  ASSERT_TRUE(monitor.check(5, false));

  auto pair = [](const std::string& path, const std::string& percent) {
    return testing::pairRecord("PercentageUsed", {{"partition_path", path}, {"percent_used", percent}},
                               "");
  };
  EXPECT_EQ(testing::messagesOf(capture.metricRecords()),
            (std::vector<std::string>{
                testing::pairRecord("SysHealthStorageUsage",
                                    {{"storage_metric_keys", "PartitionPath|percentage|totalSize"},
                                     {"storage_metric_type", "System"},
                                     {"storage_metric_values", "/data|75|4000000 /system|90|2000000"},
                                     {"storage_snapshot_period", "2880"}},
                                    ""),
                testing::plainRecord("DiskUsageMonitorTablet", "PercentageUsed",
                                     {{"/data", "75"},
                                      {"/data/avail_space", "20"},
                                      {"/data/free_inodes", "80"},
                                      {"/data/avail_inodes", "78"},
                                      {"/system", "90"}}),
                pair("/data", "75"),
                pair("/data/avail_inodes", "78"),
                pair("/data/avail_space", "20"),
                pair("/data/free_inodes", "80"),
                pair("/system", "90"),
            }));
}

TEST_F(DiskUsageMonitorTest, StorageSampleStillGoesOutWhenNothingWasMeasuredOrServiceIsOff) {
  testing::configureSystemHealthRecord("SysHealthStorageUsage",
                                       {"storage_metric_keys", "storage_metric_type",
                                        "storage_snapshot_period"});
  testing::configureMetricRecord("PercentageUsed", true, true);
  HalvexConfig::instance().vedrixConfig = {false, "", "grp0"};
  DiskUsageMonitor monitor = makeMonitor();
  LogCapture capture;
  ASSERT_TRUE(monitor.check(5, false));
  // Service off: the plain record only; the storage sample waits in its store.
  EXPECT_EQ(testing::messagesOf(capture.metricRecords()),
            (std::vector<std::string>{testing::plainRecord(
                "DiskUsageMonitorTablet", "PercentageUsed",
                {{"/data", "75"}, {"/data/avail_space", "20"}, {"/data/free_inodes", "80"},
                 {"/data/avail_inodes", "78"}, {"/system", "90"}})}));

  // Service on, both partitions failing: no measurement, no record at all,
  // since check gives up before the report.
  HalvexConfig::instance().vedrixConfig.enabled = true;
  partitions = {{"/data", std::nullopt}, {"/system", std::nullopt}};
  capture.clear();
  EXPECT_FALSE(monitor.check(5, false));
  EXPECT_TRUE(capture.metricRecords().empty());

  // Back on its feet: the sample waiting from the first run is replaced by
  // this run's, which now carries no values field for a partition.
  partitions = {{"/data", std::nullopt}, {"/system", kSystem}};
  capture.clear();
  ASSERT_TRUE(monitor.check(5, false));
  EXPECT_EQ(testing::messagesOf(capture.metricRecords()).front(),
            testing::pairRecord("SysHealthStorageUsage",
                                {{"storage_metric_keys", "PartitionPath|percentage|totalSize"},
                                 {"storage_metric_type", "System"},
                                 {"storage_snapshot_period", "2880"}},
                                ""));
}

}  // namespace
}  // namespace halvexd::diskusagemonitor
