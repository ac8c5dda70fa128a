#include "monitors/ProcessCpuMonitor.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <filesystem>

#include "config/HalvexConfig.h"
#include "platform/LogBuffers.h"
#include "tests/support/MetricConfigFixture.h"
#include "tests/support/MetricRecords.h"
#include "tests/support/ProcessTree.h"
#include "tests/support/TestSupport.h"

namespace halvexd::processcpumonitor {
namespace {

using testing::LogCapture;
using testing::LogRecord;
using testing::ScopedSysroot;
using testing::TempDir;

constexpr const char* kTag = "halvexd:ProcessCpuMonitor";
const std::string kHeader = "\nProcess Name         PID   : CPU % \n\n";
const std::string kPrefix = "ProcessCpuMonitorTablet";

LogRecord running() {
  return {kSystemLogBuffer, ANDROID_LOG_DEBUG, kTag, "Running ProcessCPUMonitor"};
}
LogRecord info(const std::string& message) {
  return {kSystemLogBuffer, ANDROID_LOG_INFO, kTag, message};
}
LogRecord error(const std::string& message) {
  return {kSystemLogBuffer, ANDROID_LOG_ERROR, kTag, message};
}

// A structured record of one process's usage (a float value).
std::string floatRecord(const std::string& name, const std::string& value) {
  return "grpA:schema.CpuUsage:100:metric=" + name + ";SY,value=" + value + ";FL" +
         testing::kDeviceTail + ":eu";
}

monitor_config config(uint64_t sampleInterval = 7, uint64_t offset = 0) {
  return monitor_config{"ProcessCpuMonitor", true, sampleInterval, 120, 120, offset};
}

// Every test runs the monitor over its own /proc, on a clock it sets: the
// figures are exact. At 100 clock ticks a second one tick is 10 ms, so over
// 1000 ms a process that used u ticks shows u %.
class ProcessCpuMonitorTest : public ::testing::Test {
 protected:
  void SetUp() override {
    HalvexConfig::instance().resetConfig();
    ASSERT_EQ(sysconf(_SC_CLK_TCK), 100);
    ASSERT_EQ(monitor.msPerClockTick, 10u);
    monitor.init();
    monitor.setUptimeClockForTesting([this] { return nowMs; });
  }
  void TearDown() override { HalvexConfig::instance().resetConfig(); }

  void write(int pid, const std::string& comm, unsigned long utime, unsigned long stime) {
    testing::writeProcess(root, {pid, comm, utime, stime, 1000, "/system/bin/" + comm + '\0'});
  }
  // A forced run (snapshot and report) at uptime `at`.
  bool runAt(uint64_t at) {
    nowMs = at;
    return monitor.check(0, true);
  }

  TempDir root;
  ScopedSysroot sysroot{root.path()};
  uint64_t nowMs = 0;
  ProcessCpuMonitor monitor{config()};
};

TEST_F(ProcessCpuMonitorTest, FirstRunOnlyFillsTheTable) {
  ScopedSysroot tablet(testing::fixturePath("tablet"));
  testing::configureMetricRecord("CpuUsage", true, true);
  HalvexConfig::instance().vedrixConfig = {true, "eu", "grp0"};
  LogCapture capture;
  ASSERT_TRUE(runAt(50000));
  EXPECT_EQ(capture.records(), (std::vector<LogRecord>{running()}));

  // Every process of the tablet, kernel threads included, with its times in
  // milliseconds and no usage figure yet.
  std::vector<int> pids;
  for (const auto& [pid, entry] : monitor.processList) {
    pids.push_back(pid);
    EXPECT_TRUE(entry->isNew);
    EXPECT_EQ(entry->sampleTimeMs, 50000u);
  }
  EXPECT_EQ(pids, (std::vector<int>{1, 2, 84, 545, 612, 640, 655, 700, 701, 1024, 1288, 1311, 1760, 2790}));
  const ProcessListEntry& server = *monitor.processList.at(1024);
  EXPECT_STREQ(server.name, "system_server");
  EXPECT_EQ(server.utimeMs, 3615200u);
  EXPECT_EQ(server.stimeMs, 1182530u);
  EXPECT_STREQ(monitor.processList.at(640)->name, "re.sensors@2.0-service.multihal");
}

TEST_F(ProcessCpuMonitorTest, ReportOfTwelveBusyProcessesWithTheStructuredService) {
  HalvexConfig::instance().vedrixConfig = {true, "eu", "grp0"};
  testing::configureMetricRecord("CpuUsage", true, true);
  testing::configureSystemHealthRecord(
      "SysHealthCpuUsage",
      {"cpu_app_snapshot_period", "cpu_metric_keys", "cpu_metric_type", "cpu_metric_values"});
  const std::vector<std::string> names = {
      "system_server", "surfaceflinger", "ndroid.systemui", "droid.launcher3",
      "m.android.phone", "logd", "audioserver", "cameraserver",
      "mediaserver", "netd", "vold", "lmkd"};
  for (size_t i = 0; i < names.size(); ++i) write(1001 + i, names[i], 5000, 700);
  ASSERT_TRUE(runAt(100000));
  // Four seconds later process i has used 25 * (12 - i) ticks, user and
  // system time both counting: 75 % down to 6.25 % in steps that a float
  // holds exactly.
  for (size_t i = 0; i < names.size(); ++i) {
    unsigned long used = 25 * (12 - i);
    write(1001 + i, names[i], 5000 + used - 5, 700 + 5);
  }
  LogCapture capture;
  ASSERT_TRUE(runAt(104000));

  EXPECT_EQ(capture.withTag(kTag),
            (std::vector<LogRecord>{
                running(), info(kHeader),
                info("system_server        1001  : 75.00% \n"),
                info("surfaceflinger       1002  : 68.75% \n"),
                info("ndroid.systemui      1003  : 62.50% \n"),
                info("droid.launcher3      1004  : 56.25% \n"),
                info("m.android.phone      1005  : 50.00% \n"),
                info("logd                 1006  : 43.75% \n"),
                info("audioserver          1007  : 37.50% \n"),
                info("cameraserver         1008  : 31.25% \n"),
                info("mediaserver          1009  : 25.00% \n"),
                info("netd                 1010  : 18.75% \n"),
                info("vold                 1011  : 12.50% \n"),
                info("lmkd                 1012  : 6.25% \n"),  // in the table, but no metric
            }));

  // Eleven processes as metrics; the three busiest in the system-health
  // values, with six decimals.
  const std::map<std::string, std::string> plain = {
      {"system_server", "75"}, {"surfaceflinger", "68.75"}, {"ndroid.systemui", "62.5"},
      {"droid.launcher3", "56.25"}, {"m.android.phone", "50"}, {"logd", "43.75"},
      {"audioserver", "37.5"}, {"cameraserver", "31.25"}, {"mediaserver", "25"},
      {"netd", "18.75"}, {"vold", "12.5"}};
  std::vector<std::string> expected = {
      testing::systemHealthRecord(
          "SysHealthCpuUsage",
          {{"cpu_app_snapshot_period", "7"},
           {"cpu_metric_keys", "AppName|percentage"},
           {"cpu_metric_type", "Process"},
           {"cpu_metric_values",
            "system_server|75.000000 surfaceflinger|68.750000 ndroid.systemui|62.500000"}},
          "eu"),
      testing::plainRecord(kPrefix, "CpuUsage", plain),
  };
  for (const auto& [name, value] : plain) expected.push_back(floatRecord(name, value));
  EXPECT_EQ(testing::messagesOf(capture.metricRecords()), expected);
}

TEST_F(ProcessCpuMonitorTest, WithoutTheStructuredServiceTheHealthSampleHasNoValues) {
  testing::configureMetricRecord("CpuUsage", true, true);
  testing::configureSystemHealthRecord(
      "SysHealthCpuUsage",
      {"cpu_app_snapshot_period", "cpu_metric_keys", "cpu_metric_type", "cpu_metric_values"});
  write(300, "surfaceflinger", 100, 100);
  write(301, "logd", 100, 100);
  ASSERT_TRUE(runAt(1000));
  write(300, "surfaceflinger", 120, 105);  // 25 %
  LogCapture capture;
  ASSERT_TRUE(runAt(2000));
  EXPECT_EQ(testing::messagesOf(capture.metricRecords()),
            (std::vector<std::string>{testing::plainRecord(
                kPrefix, "CpuUsage", {{"logd", "0"}, {"surfaceflinger", "25"}})}));

  // The health sample was still stored, without values: it goes out with
  // the next publish that finds the service on.
  capture.clear();
  HalvexConfig::instance().vedrixConfig = {true, "eu", "grp0"};
  monitor.sysHealthMetricLogger.publish("SysHealthCpuUsage");
  EXPECT_EQ(testing::messagesOf(capture.metricRecords()),
            (std::vector<std::string>{testing::systemHealthRecord(
                "SysHealthCpuUsage",
                {{"cpu_app_snapshot_period", "7"},
                 {"cpu_metric_keys", "AppName|percentage"},
                 {"cpu_metric_type", "Process"}},
                "eu")}));
}

TEST_F(ProcessCpuMonitorTest, FiguresAtTheEdges) {
  const long cpus = sysconf(_SC_NPROCESSORS_CONF);
  ASSERT_GT(cpus, 0);
  const std::string atBound = std::to_string(cpus * 100);
  const std::string aboveBound = std::to_string((cpus + 1) * 100);
  struct Case {
    uint64_t elapsedMs;
    unsigned long before;  // user ticks at the first run
    unsigned long after;   // at the second
    std::string metric;    // "" when nothing is reported
    std::vector<LogRecord> lines;
    bool kept;
    const char* why;
  };
  const Case cases[] = {
      {10000, 50, 51, "0.1", {running(), info(kHeader), info("p                    77    : 0.10% \n")},
       true, "10 ms in 10 s is 0.1f, which is above 0.1 in double precision: printed"},
      {20000, 50, 51, "0.05", {running(), info(kHeader)}, true, "0.05 % is reported but not printed"},
      {1000, 50, 50, "0", {running(), info(kHeader)}, true, "an idle process"},
      {3000, 50, 60, "3.33333", {running(), info(kHeader), info("p                    77    : 3.33% \n")},
       true, "a third of a tenth"},
      {1000, 429496729, 429496739, "10",
       {running(), info(kHeader), info("p                    77    : 10.00% \n")}, true,
       "the millisecond counter wraps at 2^32 between the samples"},
      {1000, 500, 100, "-400", {running(), info(kHeader)}, true,
       "a reused pid whose new process has used less: a negative figure, kept"},
      {1000, 0, static_cast<unsigned long>(cpus) * 100, atBound,
       {running(), info(kHeader), info("p                    77    : " + atBound + ".00% \n")}, true,
       "every CPU busy is the most a process can use"},
      {1000, 0, static_cast<unsigned long>(cpus + 1) * 100, "",
       {running(), error("Cpu usage percent value " + aboveBound + ".000000 is invalid, delete it")},
       false, "one CPU more than there are: logged and dropped, nothing left to report"},
      {0, 50, 51, "",
       {running(), error("Cpu usage percent value inf is invalid, delete it")}, false,
       "time used within one millisecond: an infinite figure"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    HalvexConfig::instance().resetConfig();
    testing::configureMetricRecord("CpuUsage", true, false);
    TempDir tree;
    ScopedSysroot here(tree.path());
    uint64_t now = 40000;
    ProcessCpuMonitor cpu(config());
    cpu.init();
    cpu.setUptimeClockForTesting([&now] { return now; });
    testing::writeProcess(tree, {77, "p", c.before, 0, 1000, ""});
    ASSERT_TRUE(cpu.check(0, true));
    testing::writeProcess(tree, {77, "p", c.after, 0, 1000, ""});
    now += c.elapsedMs;
    LogCapture capture;
    ASSERT_TRUE(cpu.check(0, true));
    EXPECT_EQ(capture.withTag(kTag), c.lines);
    std::vector<std::string> records;
    if (!c.metric.empty()) records.push_back(testing::plainRecord(kPrefix, "CpuUsage", {{"p", c.metric}}));
    EXPECT_EQ(testing::messagesOf(capture.metricRecords()), records);
    EXPECT_EQ(cpu.processList.count(77), c.kept ? 1u : 0u);
  }
}

TEST_F(ProcessCpuMonitorTest, OneTickAboveEveryCpuBusyIsDropped) {
  const long cpus = sysconf(_SC_NPROCESSORS_CONF);
  write(77, "p", 0, 0);
  ASSERT_TRUE(runAt(1000));
  write(77, "p", static_cast<unsigned long>(cpus) * 100 + 1, 0);
  LogCapture capture;
  ASSERT_TRUE(runAt(2000));
  EXPECT_EQ(monitor.processList.count(77), 0u);
  auto lines = capture.withTag(kTag);
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[1].priority, ANDROID_LOG_ERROR);
  // The single-precision figure of n * 100 + 1 is printed with its rounding.
  double logged = 0;
  ASSERT_EQ(std::sscanf(lines[1].message.c_str(), "Cpu usage percent value %lf is invalid, delete it",
                        &logged),
            1);
  EXPECT_NEAR(logged, cpus * 100 + 1, 0.01);
}

TEST_F(ProcessCpuMonitorTest, IdleProcessesSampledTwiceInOneMillisecondStayAndSortLast) {
  // A forced run right after a run: the first twenty processes updated see
  // the same millisecond as their last sample (0 / 0, no figure), the rest a
  // second later (0 %). Entries without a figure stay, are not printed, and
  // are never among the eleven reported.
  testing::configureMetricRecord("CpuUsage", true, false);
  for (int pid = 200; pid < 240; ++pid) write(pid, "p" + std::to_string(pid), 100, 100);
  ASSERT_TRUE(runAt(1000));
  int calls = 0;
  monitor.setUptimeClockForTesting([&calls] { return ++calls <= 20 ? 1000 : 2000; });
  LogCapture capture;
  ASSERT_TRUE(monitor.check(0, true));
  ASSERT_EQ(monitor.processList.size(), 40u);
  int withoutFigure = 0;
  for (const auto& [pid, entry] : monitor.processList) withoutFigure += std::isnan(entry->cpuUsagePercent);
  EXPECT_EQ(withoutFigure, 20);
  EXPECT_EQ(capture.withTag(kTag), (std::vector<LogRecord>{running(), info(kHeader)}));
  auto records = testing::messagesOf(capture.metricRecords());
  ASSERT_EQ(records.size(), 1u);
  size_t entries = 0;
  for (size_t at = 0; (at = records[0].find("=0;CT;1", at)) != std::string::npos; ++at) ++entries;
  EXPECT_EQ(entries, 11u) << records[0];
  EXPECT_EQ(records[0].find("nan"), std::string::npos) << records[0];
}

TEST_F(ProcessCpuMonitorTest, ProcessesComingAndGoing) {
  testing::configureMetricRecord("CpuUsage", true, false);
  write(100, "surfaceflinger", 10, 10);
  write(101, "crash_dump64", 10, 10);
  write(102, "logd", 10, 10);
  ASSERT_TRUE(runAt(1000));

  // 101 ended; 102's stat no longer parses; 103 started; 104 ended between
  // the listing and the reading of its stat.
  write(100, "surfaceflinger", 30, 10);  // 20 %
  testing::removeProcess(root, 101);
  root.write("proc/102/stat", "102 (logd) S\n");
  write(103, "traced_probes", 500, 500);
  root.write("proc/104/comm", "dex2oat\n");
  LogCapture capture;
  ASSERT_TRUE(runAt(2000));
  EXPECT_EQ(capture.messages("halvexd:StatUtil"),
            (std::vector<std::string>{"Failed to parse /proc/102/stat"}));
  std::vector<int> known;
  for (const auto& [pid, entry] : monitor.processList) known.push_back(pid);
  EXPECT_EQ(known, (std::vector<int>{100, 103}));
  EXPECT_TRUE(monitor.processList.at(103)->isNew);
  // The newcomer has no figure yet and is not reported.
  EXPECT_EQ(testing::messagesOf(capture.metricRecords()),
            (std::vector<std::string>{testing::plainRecord(kPrefix, "CpuUsage", {{"surfaceflinger", "20"}})}));

  // The newcomer gets its first figure; 102, readable again, starts over as
  // a new entry.
  write(103, "traced_probes", 505, 500);  // 5 %
  write(102, "logd", 10, 10);
  capture.clear();
  ASSERT_TRUE(runAt(3000));
  EXPECT_EQ(testing::messagesOf(capture.metricRecords()),
            (std::vector<std::string>{testing::plainRecord(
                kPrefix, "CpuUsage", {{"surfaceflinger", "0"}, {"traced_probes", "5"}})}));
  EXPECT_TRUE(monitor.processList.at(102)->isNew);
}

TEST_F(ProcessCpuMonitorTest, FailedListingKeepsTheTableAndReportsNothing) {
  testing::configureMetricRecord("CpuUsage", true, false);
  write(100, "surfaceflinger", 10, 10);
  ASSERT_TRUE(runAt(1000));
  std::filesystem::remove_all(root.path() + "/proc");
  LogCapture capture;
  EXPECT_FALSE(runAt(2000));
  EXPECT_EQ(capture.records(),
            (std::vector<LogRecord>{running(), {kSystemLogBuffer, ANDROID_LOG_ERROR,
                                                "halvexd:StatUtil", "Could not open /proc"}}));
  ASSERT_EQ(monitor.processList.count(100), 1u);
  EXPECT_FALSE(monitor.processList.at(100)->remove);
  EXPECT_EQ(monitor.processList.at(100)->sampleTimeMs, 1000u);
}

TEST_F(ProcessCpuMonitorTest, RunsOnTicksCongruentToItsOffset) {
  write(100, "surfaceflinger", 10, 10);
  struct Case {
    uint64_t interval;
    uint64_t offset;
    bool active;
    std::vector<unsigned long> runs;
    const char* why;
  };
  const Case cases[] = {
      {5, 2, true, {2, 7, 12}, "every fifth tick from the offset"},
      {5, 0, true, {0, 5, 10}, "offset 0"},
      {0, 3, true, {3}, "interval 0: only the tick equal to the offset"},
      {5, 2, false, {}, "inactive"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    ProcessCpuMonitor gated(config(c.interval, c.offset));
    gated.active = c.active;
    LogCapture capture;
    std::vector<unsigned long> runs;
    for (unsigned long tick = 0; tick < 13; ++tick) {
      capture.clear();
      EXPECT_TRUE(gated.check(tick, false));
      if (!capture.withTag(kTag).empty()) runs.push_back(tick);
    }
    EXPECT_EQ(runs, c.runs);
    capture.clear();
    EXPECT_TRUE(gated.check(1, true));  // forced: runs whatever the gates say
    auto lines = capture.withTag(kTag);
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines.front(), running());
  }
}

}  // namespace
}  // namespace halvexd::processcpumonitor
