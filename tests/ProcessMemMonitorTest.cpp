#include "monitors/ProcessMemMonitor.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <mutex>

#include "config/HalvexConfig.h"
#include "platform/LogBuffers.h"
#include "tests/support/MetricRecords.h"
#include "tests/support/ProcessTree.h"
#include "tests/support/TestSupport.h"
#include "tools/devicesim/PerfinfoServer.h"

namespace halvexd::processmemmonitor {
namespace {

using testing::LogCapture;
using testing::LogRecord;
using devicesim::PerfinfoServer;
using testing::ScopedSysroot;
using testing::TempDir;

constexpr const char* kTag = "halvexd:ProcessMemMonitor";
const std::string kPrefix = "ProcessMemMonitorTablet";
const std::vector<std::string> kHealthFields = {"mem_app_snapshot_period", "mem_metric_keys",
                                                "mem_metric_type", "mem_metric_values"};

LogRecord running() {
  return {kSystemLogBuffer, ANDROID_LOG_DEBUG, kTag, "Running ProcessMemMonitor"};
}
LogRecord header() {
  return {kSystemLogBuffer, ANDROID_LOG_DEBUG, kTag, "\nProcess Name         PID   : PSS in KB \n\n"};
}
LogRecord info(const std::string& message) {
  return {kSystemLogBuffer, ANDROID_LOG_INFO, kTag, message};
}
LogRecord error(const std::string& message) {
  return {kSystemLogBuffer, ANDROID_LOG_ERROR, kTag, message};
}

monitor_config config(uint64_t sampleInterval = 1, uint64_t offset = 0) {
  return monitor_config{"ProcessMemMonitor", true, sampleInterval, 120, 120, offset};
}

// A device with 4 000 000 kB of memory whose /proc/perfinfo answers the PSS
// set for each pid (0 for others).
class ProcessMemMonitorTest : public ::testing::Test {
 protected:
  void SetUp() override {
    HalvexConfig::instance().resetConfig();
    root.write("proc/meminfo", "MemTotal:        4000000 kB\nMemFree:          100000 kB\n");
  }
  void TearDown() override { HalvexConfig::instance().resetConfig(); }

  void startKernel() {
    kernel = std::make_unique<PerfinfoServer>(root.path(), [this](const std::string& written) {
      std::lock_guard<std::mutex> hold(pssLock);
      auto found = pssByPid.find(written);
      return "Pss: " + std::to_string(found == pssByPid.end() ? 0 : found->second) + " kB\n";
    });
  }
  void process(int pid, const std::string& comm, unsigned long pssKb) {
    testing::writeProcess(root, {pid, comm, 10, 10, 500, "/system/bin/" + comm + '\0'});
    std::lock_guard<std::mutex> hold(pssLock);
    pssByPid[std::to_string(pid)] = pssKb;
  }
  // The pids /proc/perfinfo was asked for since the last call.
  std::vector<std::string> measuredSinceLastLook() {
    auto all = kernel ? kernel->written() : std::vector<std::string>{};
    std::vector<std::string> fresh(all.begin() + static_cast<long>(seen), all.end());
    seen = all.size();
    return fresh;
  }

  TempDir root;
  ScopedSysroot sysroot{root.path()};
  std::mutex pssLock;
  std::map<std::string, unsigned long> pssByPid;
  std::unique_ptr<PerfinfoServer> kernel;
  size_t seen = 0;
};

TEST_F(ProcessMemMonitorTest, ForcedRunReportsTheLargestWithTheStructuredService) {
  HalvexConfig::instance().vedrixConfig = {true, "eu", "grp0"};
  testing::configureMetricRecord("PssKB", true, true);
  testing::configureSystemHealthRecord("SysHealthMemoryUsage", kHealthFields);
  process(1024, "system_server", 250000);  // 6.25 % of the total, reported as 6
  process(1288, "ndroid.systemui", 180000);
  process(1760, "droid.launcher3", 160000);
  process(612, "surfaceflinger", 120000);
  process(700, "main", 90000);
  process(1311, "m.android.phone", 70000);
  process(2790, "MediaCodec", 30000);
  process(545, "logd", 12000);
  process(650, "audioserver", 9000);
  process(660, "cameraserver", 8000);
  process(1, "init", 5000);
  process(670, "lmkd", 1200);  // twelfth: printed, not reported
  testing::writeProcess(root, {2, "kthreadd", 0, 17, 0, ""});  // no memory: not listed
  startKernel();
  ProcessMemMonitor monitor(config(120, 1));
  ASSERT_EQ(monitor.memTotalKb, 4000000u);
  monitor.init();
  LogCapture capture;
  ASSERT_TRUE(monitor.check(5, true));

  EXPECT_EQ(capture.withTag(kTag), (std::vector<LogRecord>{
                                       running(),
                                       header(),
                                       info("system_server        1024  : 250000\n"),
                                       info("ndroid.systemui      1288  : 180000\n"),
                                       info("droid.launcher3      1760  : 160000\n"),
                                       info("surfaceflinger       612   : 120000\n"),
                                       info("main                 700   : 90000\n"),
                                       info("m.android.phone      1311  : 70000\n"),
                                       info("MediaCodec           2790  : 30000\n"),
                                       info("logd                 545   : 12000\n"),
                                       info("audioserver          650   : 9000 \n"),
                                       info("cameraserver         660   : 8000 \n"),
                                       info("init                 1     : 5000 \n"),
                                       info("lmkd                 670   : 1200 \n"),
                                   }));
  const std::map<std::string, std::string> plain = {
      {"system_server", "250000"}, {"ndroid.systemui", "180000"}, {"droid.launcher3", "160000"},
      {"surfaceflinger", "120000"}, {"main", "90000"},           {"m.android.phone", "70000"},
      {"MediaCodec", "30000"},      {"logd", "12000"},           {"audioserver", "9000"},
      {"cameraserver", "8000"},     {"init", "5000"}};
  std::vector<std::string> expected = {
      testing::systemHealthRecord(
          "SysHealthMemoryUsage",
          {{"mem_app_snapshot_period", "120"},
           {"mem_metric_keys", "AppName|percentage|usageKb"},
           {"mem_metric_type", "Process"},
           {"mem_metric_values",
            "system_server|6|250000 ndroid.systemui|4|180000 droid.launcher3|4|160000"}},
          "eu"),
      testing::plainRecord(kPrefix, "PssKB", plain),
  };
  for (const auto& [name, value] : plain) {
    expected.push_back(testing::structuredRecord("PssKB", name, value, "eu"));
  }
  EXPECT_EQ(testing::messagesOf(capture.metricRecords()), expected);
  EXPECT_TRUE(monitor.processMemData.empty());
  EXPECT_EQ(measuredSinceLastLook().size(), 12u);
}

TEST_F(ProcessMemMonitorTest, HealthValuesNeedTheServiceAndAKnownTotal) {
  const std::string health = "SysHealthMemoryUsage";
  const std::pair<std::string, std::string> period = {"mem_app_snapshot_period", "1"};
  const std::pair<std::string, std::string> keys = {"mem_metric_keys", "AppName|percentage|usageKb"};
  const std::pair<std::string, std::string> type = {"mem_metric_type", "Process"};
  // A process of 0 kB is reported but not printed.
  const std::string plain =
      testing::plainRecord(kPrefix, "PssKB", {{"logd", "0"}, {"surfaceflinger", "120000"}});
  const std::string structuredLogd = testing::structuredRecord("PssKB", "logd", "0", "eu");
  const std::string structuredFlinger =
      testing::structuredRecord("PssKB", "surfaceflinger", "120000", "eu");
  struct Case {
    bool structured;
    bool meminfo;
    std::vector<std::string> records;
    const char* why;
  };
  const Case cases[] = {
      {true, true,
       {testing::systemHealthRecord(
            health, {period, keys, type, {"mem_metric_values", "surfaceflinger|3|120000 logd|0|0"}}, "eu"),
        plain, structuredLogd, structuredFlinger},
       "service on and a total: shares of it"},
      {true, false,
       {testing::systemHealthRecord(health, {period, keys, type}, "eu"), plain, structuredLogd,
        structuredFlinger},
       "no meminfo at start-up: a total of 0 gives no shares"},
      {false, true, {plain}, "service off: no structured metrics, no health record"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    HalvexConfig::instance().resetConfig();
    if (c.structured) HalvexConfig::instance().vedrixConfig = {true, "eu", "grp0"};
    testing::configureMetricRecord("PssKB", true, true);
    testing::configureSystemHealthRecord(health, kHealthFields);
    TempDir tree;
    ScopedSysroot here(tree.path());
    if (c.meminfo) tree.write("proc/meminfo", "MemTotal: 4000000 kB\n");
    testing::writeProcess(tree, {612, "surfaceflinger", 1, 1, 500, ""});
    testing::writeProcess(tree, {545, "logd", 1, 1, 500, ""});
    PerfinfoServer perfinfo(tree.path(), PerfinfoServer::byPid({{612, 120000}}));
    ProcessMemMonitor monitor(config());
    EXPECT_EQ(monitor.memTotalKb, c.meminfo ? 4000000u : 0u);
    monitor.init();
    LogCapture capture;
    ASSERT_TRUE(monitor.check(0, true));
    EXPECT_EQ(capture.withTag(kTag),
              (std::vector<LogRecord>{running(), header(), info("surfaceflinger       612   : 120000\n")}));
    EXPECT_EQ(testing::messagesOf(capture.metricRecords()), c.records);
  }
}

TEST_F(ProcessMemMonitorTest, OrdinaryRunsWalkTheNamesTwoAtATime) {
  // Each row: the number of processes, the runs ('o' ordinary, 'f' forced)
  // and, per run, the positions in the name list that it measures.
  struct Case {
    int processes;
    std::string runs;
    std::vector<std::vector<int>> measured;
    const char* why;
  };
  const Case cases[] = {
      {3, "ooo", {{0, 1}, {2}, {0, 1}}, "the second run ends the cycle, the third starts a new one"},
      {4, "ooo", {{0, 1}, {2, 3}, {0, 1}}, "an even count ends on a full pair"},
      {1, "oo", {{0}, {0}}, "a single name is a cycle of its own"},
      {5, "ofoo", {{0, 1}, {0, 1, 2, 3, 4}, {4}, {0, 1}},
       "a forced run measures everything and moves the next ordinary run one pair on"},
      {2, "foo", {{0, 1}, {}, {0, 1}},
       "after a forced run an ordinary one can find the cycle over: it measures nothing"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    TempDir tree;
    ScopedSysroot here(tree.path());
    std::map<std::string, int> pidOfName;
    for (int i = 0; i < c.processes; ++i) {
      std::string name = "svc" + std::to_string(i);
      testing::writeProcess(tree, {400 + i, name, 1, 1, 500, ""});
      pidOfName[name] = 400 + i;
    }
    std::vector<std::pair<int, unsigned long>> figures;
    for (const auto& [name, pid] : pidOfName) figures.emplace_back(pid, 1000 + pid);
    PerfinfoServer perfinfo(tree.path(), PerfinfoServer::byPid(figures));
    ProcessMemMonitor monitor(config());
    size_t seenSoFar = 0;
    for (size_t run = 0; run < c.runs.size(); ++run) {
      LogCapture capture;
      ASSERT_TRUE(monitor.check(run, c.runs[run] == 'f'));
      ASSERT_EQ(monitor.processNames.size(), static_cast<size_t>(c.processes));
      std::vector<std::string> expected;
      for (int position : c.measured[run]) {
        expected.push_back(std::to_string(pidOfName.at(monitor.processNames[position])));
      }
      auto written = perfinfo.written();
      EXPECT_EQ(std::vector<std::string>(written.begin() + static_cast<long>(seenSoFar), written.end()),
                expected)
          << "run " << run;
      seenSoFar = written.size();
      // A run that measured nothing reports nothing.
      EXPECT_EQ(capture.withTag(kTag).size(), expected.empty() ? 1u : 2u + expected.size());
    }
  }
}

TEST_F(ProcessMemMonitorTest, NamesAreFollowedToTheirCurrentProcess) {
  testing::configureMetricRecord("PssKB", true, false);
  process(500, "surfaceflinger", 120000);
  process(501, "logd", 12000);
  process(502, "audioserver", 9000);
  process(503, "cameraserver", 8000);
  startKernel();
  ProcessMemMonitor monitor(config());
  monitor.init();
  ASSERT_TRUE(monitor.check(0, false));  // builds the lists, measures two
  ASSERT_EQ(monitor.processNames.size(), 4u);
  measuredSinceLastLook();

  // surfaceflinger restarted under a new pid; logd's pid went to another
  // program and logd itself is gone; audioserver ended.
  testing::removeProcess(root, 500);
  process(900, "surfaceflinger", 130000);
  process(501, "dex2oat64", 40000);
  testing::removeProcess(root, 502);
  LogCapture capture;
  ASSERT_TRUE(monitor.check(1, true));  // every name of the cycle's lists
  std::vector<std::string> measured = measuredSinceLastLook();
  std::sort(measured.begin(), measured.end());
  EXPECT_EQ(measured, (std::vector<std::string>{"503", "900"}));
  EXPECT_EQ(capture.withTag(kTag), (std::vector<LogRecord>{
                                       running(),
                                       header(),
                                       info("surfaceflinger       900   : 130000\n"),
                                       info("cameraserver         503   : 8000 \n"),
                                   }));
  EXPECT_EQ(testing::messagesOf(capture.metricRecords()),
            (std::vector<std::string>{testing::plainRecord(
                kPrefix, "PssKB", {{"cameraserver", "8000"}, {"surfaceflinger", "130000"}})}));
  // The lists keep the pids they were built with.
  EXPECT_EQ(monitor.nameToPid.at("surfaceflinger"), 500);
}

TEST_F(ProcessMemMonitorTest, SameNamedProcessesBothMeasureThePidRecordedLast) {
  testing::configureMetricRecord("PssKB", true, false);
  process(700, "main", 90000);
  process(701, "main", 60000);
  process(612, "surfaceflinger", 120000);
  startKernel();
  ProcessMemMonitor monitor(config());
  monitor.init();
  LogCapture capture;
  ASSERT_TRUE(monitor.check(0, true));
  ASSERT_EQ(monitor.pids.size(), 3u);
  // Of the two, the one listed later in /proc is the one recorded.
  const int later = *std::find_if(monitor.pids.rbegin(), monitor.pids.rend(),
                                  [](int pid) { return pid == 700 || pid == 701; });
  const std::string laterPid = std::to_string(later);
  const std::string laterPss = later == 700 ? "90000" : "60000";
  EXPECT_EQ(monitor.nameToPid.at("main"), later);
  std::vector<std::string> measured = measuredSinceLastLook();
  EXPECT_EQ(std::count(measured.begin(), measured.end(), laterPid), 2);
  EXPECT_EQ(measured.size(), 3u);
  std::string row = "main                 " + laterPid + "   : " + laterPss + "\n";
  EXPECT_EQ(capture.withTag(kTag),
            (std::vector<LogRecord>{running(), header(), info("surfaceflinger       612   : 120000\n"),
                                    info(row), info(row)}));
  EXPECT_EQ(testing::messagesOf(capture.metricRecords()),
            (std::vector<std::string>{testing::plainRecord(
                kPrefix, "PssKB", {{"main", laterPss}, {"surfaceflinger", "120000"}})}));
}

TEST_F(ProcessMemMonitorTest, UnreadablePssSkipsThatProcess) {
  testing::configureMetricRecord("PssKB", true, false);
  process(612, "surfaceflinger", 120000);
  process(545, "logd", 12000);
  kernel = std::make_unique<PerfinfoServer>(root.path(), [](const std::string& written) {
    return written == "545" ? std::string("Rss: 1 kB\n") : std::string("Pss: 120000 kB\n");
  });
  ProcessMemMonitor monitor(config());
  monitor.init();
  LogCapture capture;
  ASSERT_TRUE(monitor.check(0, true));
  EXPECT_EQ(capture.messages("halvexd:StatUtil"),
            (std::vector<std::string>{"Failed to sscanf /proc/perfinfo"}));
  auto lines = capture.withTag(kTag);
  ASSERT_EQ(lines.size(), 4u);
  EXPECT_EQ(lines[0], running());
  EXPECT_EQ(lines[1], error("Could not read the PSS for pid 545\n"));  // before the report
  EXPECT_EQ(lines[2], header());
  EXPECT_EQ(lines[3], info("surfaceflinger       612   : 120000\n"));
  EXPECT_EQ(testing::messagesOf(capture.metricRecords()),
            (std::vector<std::string>{testing::plainRecord(kPrefix, "PssKB", {{"surfaceflinger", "120000"}})}));
}

TEST_F(ProcessMemMonitorTest, RunWhoseMeasurementsAllFailReportsNothing) {
  testing::configureMetricRecord("PssKB", true, false);
  testing::configureSystemHealthRecord("SysHealthMemoryUsage", kHealthFields);
  HalvexConfig::instance().vedrixConfig = {true, "eu", "grp0"};
  process(612, "surfaceflinger", 120000);
  // No /proc/perfinfo at all.
  ProcessMemMonitor monitor(config());
  LogCapture capture;
  ASSERT_TRUE(monitor.check(0, false));
  EXPECT_EQ(capture.records(),
            (std::vector<LogRecord>{
                running(),
                {kSystemLogBuffer, ANDROID_LOG_ERROR, "halvexd:StatUtil",
                 "Failed to open /proc/perfinfo for write"},
                error("Could not read the PSS for pid 612\n"),
            }));
}

TEST_F(ProcessMemMonitorTest, ListsThatCannotBeBuiltAreRetriedOnTheRunAfterNext) {
  process(612, "surfaceflinger", 120000);
  startKernel();
  ProcessMemMonitor monitor(config());
  std::filesystem::rename(root.path() + "/proc", root.path() + "/proc.aside");
  LogCapture capture;
  EXPECT_FALSE(monitor.check(0, false));  // no /proc: nothing to walk
  EXPECT_EQ(capture.records(), (std::vector<LogRecord>{running(), {kSystemLogBuffer, ANDROID_LOG_ERROR,
                                                                   "halvexd:StatUtil", "Could not open /proc"}}));
  std::filesystem::rename(root.path() + "/proc.aside", root.path() + "/proc");
  capture.clear();
  EXPECT_TRUE(monitor.check(1, false));  // the empty lists are not walked
  EXPECT_EQ(capture.records(), (std::vector<LogRecord>{running()}));
  EXPECT_TRUE(monitor.needsReset);
  EXPECT_TRUE(monitor.check(2, false));  // rebuilt
  EXPECT_EQ(measuredSinceLastLook(), (std::vector<std::string>{"612"}));
}

TEST_F(ProcessMemMonitorTest, NoReadableNameMeasuresNothingAndRetriesNextRun) {
  // Processes with memory but no comm (ended between the listing and the
  // name): the name list is empty.
  testing::writeProcess(root, {612, "surfaceflinger", 1, 1, 500, ""});
  std::filesystem::remove(root.path() + "/proc/612/comm");
  startKernel();
  ProcessMemMonitor monitor(config());
  for (bool force : {false, true}) {
    LogCapture capture;
    EXPECT_TRUE(monitor.check(0, force));
    EXPECT_EQ(capture.records(), (std::vector<LogRecord>{running()}));
    EXPECT_TRUE(monitor.processNames.empty());
    EXPECT_TRUE(monitor.needsReset);
  }
  process(612, "surfaceflinger", 120000);
  ASSERT_TRUE(monitor.check(0, false));
  EXPECT_EQ(measuredSinceLastLook(), (std::vector<std::string>{"612"}));
}

TEST_F(ProcessMemMonitorTest, RunsOnTicksCongruentToItsOffset) {
  process(612, "surfaceflinger", 120000);
  startKernel();
  struct Case {
    uint64_t interval;
    uint64_t offset;
    bool active;
    std::vector<unsigned long> runs;
  };
  const Case cases[] = {
      {5, 1, true, {1, 6, 11}},
      {0, 1, true, {1}},
      {5, 1, false, {}},
  };
  for (const auto& c : cases) {
    ProcessMemMonitor gated(config(c.interval, c.offset));
    gated.active = c.active;
    std::vector<unsigned long> runs;
    for (unsigned long tick = 0; tick < 13; ++tick) {
      LogCapture capture;
      EXPECT_TRUE(gated.check(tick, false));
      if (!capture.withTag(kTag).empty()) runs.push_back(tick);
    }
    EXPECT_EQ(runs, c.runs) << c.interval << " " << c.offset << " " << c.active;
    LogCapture capture;
    EXPECT_TRUE(gated.check(3, true));  // forced: runs whatever the gates say
    auto lines = capture.withTag(kTag);
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines.front(), running());
  }
}

}  // namespace
}  // namespace halvexd::processmemmonitor
