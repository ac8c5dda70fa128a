// The exact lines the readers of fixed kernel paths, the threshold statistics
// and the daemon's own cost log, and the host formats the decoding tools and
// the test harness read back.
#include <gtest/gtest.h>

#include <filesystem>
#include <optional>

#include "config/HalvexConfig.h"
#include "daemon/DaemonCost.h"
#include "platform/LogBuffers.h"
#include "platform/host/HostLog.h"
#include "stats/StatUtil.h"
#include "stats/TotalUsageOverThrStats.h"
#include "tests/support/TestSupport.h"
#include "tools/devicesim/PerfinfoServer.h"

namespace halvexd {
namespace {

using namespace std::string_literals;
using testing::LogCapture;
using testing::LogRecord;
using testing::ScopedSysroot;
using testing::TempDir;

using Lines = std::vector<LogRecord>;

LogRecord line(int priority, const std::string& message) {
  return {kSystemLogBuffer, priority, "halvexd:StatUtil", message};
}

class ReaderTest : public ::testing::Test {
 protected:
  TempDir root;
  ScopedSysroot sysroot{root.path()};
  LogCapture logs;
};

TEST_F(ReaderTest, ZramPrefersMmStatFallsBackAndGivesKiB) {
  const LogRecord mmStatWarning =
      line(ANDROID_LOG_DEBUG, "warning: failed to parse /sys/block/zram0/mm_stat");
  const LogRecord oldWarning =
      line(ANDROID_LOG_DEBUG, "warning: failed to parse /sys/block/zram0/mem_used_total");
  const std::tuple<std::optional<std::string>, std::optional<std::string>, bool, unsigned long,
                   Lines>
      rows[] = {  // mm_stat, mem_used_total, result, KiB (starts at 999), lines
          {"123 456 409600 0 0 0 0\n", "2048\n", true, 400, {}},  // bytes >> 10, not / 1000
          {"0 0 1023 0 0 0 0\n", std::nullopt, true, 0, {}},
          {"garbage\n", "2048\n", true, 2, {mmStatWarning}},
          {std::nullopt, "1049600\n", true, 1025, {}},
          {std::nullopt, std::nullopt, false, 999, {}},
          {"x\n", std::nullopt, false, 0, {mmStatWarning}},
          {"", "", false, 0, {mmStatWarning, oldWarning}},
      };
  for (const auto& [mmStat, memUsedTotal, ok, expected, lines] : rows) {
    SCOPED_TRACE(mmStat.value_or("-") + " / " + memUsedTotal.value_or("-"));
    std::filesystem::remove_all(root.path() + "/sys");
    if (mmStat) root.write("sys/block/zram0/mm_stat", *mmStat);
    if (memUsedTotal) root.write("sys/block/zram0/mem_used_total", *memUsedTotal);
    logs.clear();
    unsigned long kib = 999;
    EXPECT_EQ(StatUtil::getZramMemUsedKb(kib), ok);
    EXPECT_EQ(kib, expected);
    EXPECT_EQ(logs.records(), lines);
  }
}

TEST_F(ReaderTest, ProcessFilesThatEndedOrDoNotParse) {
  ProcessStat stat{};
  EXPECT_FALSE(StatUtil::getProcessStat(77, stat));  // ended: no line
  root.write("proc/77/stat", "77 (init)\n");
  EXPECT_FALSE(StatUtil::getProcessStat(77, stat));
  EXPECT_EQ(logs.records(), Lines{line(ANDROID_LOG_ERROR, "Failed to parse /proc/77/stat")});
  root.write("proc/78/comm", "Binder:78_1\n");
  root.write("proc/78/cmdline", "/vendor/bin/hw/sensors service\0--flag\0"s);
  root.write("proc/79/comm", "HwBinder:79_2\n");  // no command line: "unknown"
  std::filesystem::create_directories(root.path() + "/proc/81");
  std::filesystem::create_symlink("/dev/zero", root.path() + "/proc/81/comm");  // never ends
  const std::pair<int, std::string> names[] = {
      {78, "/vendor/bin/hw/sensorsservice"}, {79, "unknown"}, {81, "-"}};
  for (const auto& [pid, expected] : names) {
    char name[kProcessNameSize] = "-";
    StatUtil::getProcessName(pid, name);
    EXPECT_EQ(name, expected) << pid;
  }
  std::vector<int> pids;
  std::filesystem::remove_all(root.path() + "/proc");
  logs.clear();
  EXPECT_FALSE(StatUtil::getProcessList(pids));
  EXPECT_EQ(logs.records(), Lines{line(ANDROID_LOG_ERROR, "Could not open /proc")});
}

TEST_F(ReaderTest, PerfinfoSelectsThePidThenReadsItsFigure) {
  unsigned long pss = 77;
  EXPECT_FALSE(StatUtil::getProcessPss(1024, pss));  // missing: at once, no retries
  EXPECT_EQ(pss, 0u);
  EXPECT_EQ(logs.records(),
            Lines{line(ANDROID_LOG_ERROR, "Failed to open /proc/perfinfo for write")});
  const std::pair<std::string, const char*> replies[] = {  // answer, line (null: none)
      {"Pss: 183412 kB\n", nullptr},  {"Rss: 100 kB\n", "Failed to sscanf /proc/perfinfo"},
      {"", nullptr},  // no answer: false without a line
  };
  for (const auto& [answer, failure] : replies) {
    std::string reply = answer;
    devicesim::PerfinfoServer kernel(root.path(), [reply](const std::string&) { return reply; });
    logs.clear();
    const bool ok = failure == nullptr && !reply.empty();
    EXPECT_EQ(StatUtil::getProcessPss(1024, pss), ok) << reply;
    EXPECT_EQ(pss, ok ? 183412u : 0u) << reply;
    EXPECT_EQ(logs.records(), failure ? Lines{line(ANDROID_LOG_ERROR, failure)} : Lines{});
    EXPECT_EQ(kernel.written(), std::vector<std::string>{"1024"}) << reply;  // the pid, bare
  }
}

// Samples of `usage` on ticks from..to, every `step` ticks.
struct Samples {
  unsigned long from, to, step;
  int usage;
};

constexpr unsigned long kQuiet = 100000;  // a logcat interval no row reaches after tick 0

// Two intervals of three ticks over the daemon's own /proc entries: figures
// since the last report, the budget warned once per interval (a tick at the
// budget is within it), smaps_rollup gone in the second.
TEST_F(ReaderTest, DaemonCostReportsEachIntervalAndWarnsOncePerIntervalOverBudget) {
  auto own = [this](int cpuTicks, int switches, bool rollup) {
    root.write("proc/self/stat", "42 (halvexd) S 1 42 0 0 -1 0 0 0 0 0 " +
                                     std::to_string(cpuTicks) +
                                     " 50 0 0 20 0 1 0 100 1000 300 18446744073709551615\n");
    root.write("proc/self/status",
               "Name:\thalvexd\nVmRSS:\t    5000 kB\nvoluntary_ctxt_switches:\t" +
                   std::to_string(switches) + "\nnonvoluntary_ctxt_switches:\t3\n");
    std::filesystem::remove(root.path() + "/proc/self/smaps_rollup");
    if (rollup)
      root.write("proc/self/smaps_rollup",
                 "1-2 ---p [rollup]\nPss:    3000 kB\nPrivate_Dirty:  1200 kB\n");
  };
  for (const char* fd : {"0", "1", "2", "3"}) root.write("proc/self/fd/"s + fd, "");
  own(100, 10, true);
  HalvexConfig& config = HalvexConfig::instance();
  config.monitorConfigs["DaemonCost"].trazMetricInterface.active = true;
  daemoncost::DaemonCost cost({true, 3, 5});
  uint64_t now = 0;
  cost.setClockForTesting([&now] { return now; });
  // Each tick: its length, then the checks of A and B.
  const std::tuple<uint64_t, uint64_t, uint64_t> ticks[] = {{2000, 1500, 400}, {7000, 1000, 6500},
                                                            {9000, 8000, 900}, {1000, 900, 50},
                                                            {5000, 100, 4800}, {5001, 200, 4700}};
  for (size_t tick = 0; tick < std::size(ticks); ++tick) {
    if (tick == 2) own(104, 25, true);
    if (tick == 5) own(104, 25, false);
    const auto [length, a, b] = ticks[tick];
    cost.tickBegins();
    cost.checkDone("A", a);
    cost.checkDone("B", b);
    now += length;
    cost.tickDone(tick);
  }
  config.resetConfig();
  const auto status = [](int priority, const std::string& message) {
    return LogRecord{kSystemLogBuffer, priority, "halvexd:DaemonCost", message};
  };
  const auto record = [](const std::string& body) {
    return LogRecord{kMetricsLogBuffer, ANDROID_LOG_INFO, "metrics.halvexd",
                     "DaemonCostTablet:DaemonCost:" + body + ":NR"};
  };
  EXPECT_EQ(
      logs.records(),
      (Lines{
          status(ANDROID_LOG_WARN,
                 "Tick 1 took 7.000 ms, over the budget of 5 ms; longest check B 6.500 ms"),
          status(ANDROID_LOG_INFO,
                 "Own cost over 3 ticks: CPU 40 ms, 15 voluntary switches, tick mean 6.000 ms, "
                 "max 9.000 ms, longest check A 8.000 ms, RSS 5000 kB, PSS 3000 kB, private dirty "
                 "1200 kB, 3 open descriptors"),
          record("CpuTimeMs=40;CT;1,IntervalTicks=3;CT;1,LongestCheckUs.A=8000;CT;1,OpenFds=3;CT;1,"
                 "PrivateDirtyKB=1200;CT;1,PssKB=3000;CT;1,RssKB=5000;CT;1,TickMaxUs=9000;CT;1,"
                 "TickMeanUs=6000;CT;1,VoluntarySwitches=15;CT;1"),
          status(ANDROID_LOG_WARN,
                 "Tick 5 took 5.001 ms, over the budget of 5 ms; longest check B 4.700 ms"),
          status(ANDROID_LOG_INFO,
                 "Own cost over 3 ticks: CPU 0 ms, 0 voluntary switches, tick mean 3.667 ms, "
                 "max 5.001 ms, longest check B 4.800 ms, RSS 5000 kB, PSS unknown, private dirty "
                 "unknown, 3 open descriptors"),
          record("CpuTimeMs=0;CT;1,IntervalTicks=3;CT;1,LongestCheckUs.B=4800;CT;1,OpenFds=3;CT;1,"
                 "RssKB=5000;CT;1,TickMaxUs=5001;CT;1,TickMeanUs=3667;CT;1,VoluntarySwitches=0;CT;"
                 "1")}));
}

TEST(ThresholdStatisticsTest, LinesFollowTheUsageAcrossTheThreshold) {
  // what the row proves, threshold, logcat interval, samples, lines
  const std::tuple<const char*, int, unsigned long, std::vector<Samples>,
                   std::vector<std::string>> rows[] = {
      {"crossing, two 60-tick summaries (float average), fall back after 125 ticks", 95, kQuiet,
       {{10, 10, 1, 96}, {11, 69, 1, 97}, {70, 70, 1, 98}, {71, 129, 1, 99}, {130, 130, 1, 95},
        {135, 136, 1, 50}},
       {"cpu crossed 95%. Current - 96%",
        // (96 + 59 * 97) / 60 = 96.98333..., narrowed to float
        "cpu still above 95%. Current - 98% Last 60 ticks stats: Min - 96% Max - 97% "
        "Avg - 96.983330%",
        "cpu still above 95%. Current - 95% Last 60 ticks stats: Min - 98% Max - 99% "
        "Avg - 98.983330%",
        "cpu now below 95%. Usage - 50%. Total seconds above threshold - 125"}},
      {"the average divides by 60 whatever the number of samples", 95, kQuiet,
       {{10, 70, 2, 96}},
       {"cpu crossed 95%. Current - 96%",
        "cpu still above 95%. Current - 96% Last 60 ticks stats: Min - 96% Max - 96% "
        "Avg - 48.000000%"}},
      {"samples off the 60-tick grid never summarise", 95, kQuiet, {{10, 400, 7, 99}},
       {"cpu crossed 95%. Current - 99%"}},
      {"usage equal to the threshold is above it", 95, kQuiet,
       {{3, 3, 1, 95}, {4, 4, 1, 94}},
       {"cpu crossed 95%. Current - 95%",
        "cpu now below 95%. Usage - 94%. Total seconds above threshold - 1"}},
      {"a zero sum counts as below, so every sample crosses again", 0, kQuiet, {{1, 2, 1, 0}},
       {"cpu crossed 0%. Current - 0%", "cpu crossed 0%. Current - 0%"}},
      {"is-at lines every 20 ticks, after the sample's threshold line", 95, 20,
       {{0, 19, 1, 5}, {20, 41, 1, 99}},
       {"cpu is at 5%", "cpu crossed 95%. Current - 99%", "cpu is at 99%", "cpu is at 99%"}},
      {"a logcat interval of 0 prints on tick 0 only", 95, 0, {{0, 41, 1, 5}}, {"cpu is at 5%"}},
  };
  for (const auto& [proves, threshold, logcatInterval, samples, lines] : rows) {
    SCOPED_TRACE(proves);
    TotalUsageOverThrStats stats;
    stats.initTotalUsageOverThrStats(-1);
    LogCapture capture;
    for (const Samples& s : samples) {
      for (unsigned long tick = s.from; tick <= s.to; tick += s.step) {
        stats.printUsageStats(tick, logcatInterval, s.usage, threshold, "cpu");
      }
    }
    Lines expected;
    for (const std::string& text : lines) expected.push_back(line(ANDROID_LOG_INFO, text));
    EXPECT_EQ(capture.records(), expected);
  }
}

TEST(HostLogTest, JsonLineKeepsKeyOrderAndEscapesOnlyWhatJsonNeeds) {
  const std::pair<LogRecord, std::string> rows[] = {
      {{8, 4, "metrics.halvexd", "a\"b\\c\td"},
       R"({"buf":8,"prio":4,"tag":"metrics.halvexd","msg":"a\"b\\c\td"})"},
      {{3, 3, "t", std::string("x\x01y\x1f", 4)},
       R"({"buf":3,"prio":3,"tag":"t","msg":"x\u0001y\u001f"})"},
  };
  for (const auto& [record, json] : rows) EXPECT_EQ(hostlog::formatJsonLine(record), json + "\n");
}

TEST(HostLogTest, TextLinesFollowTheLogcatLayoutOneLinePerMessageLine) {
  const long long millis = 1795316645067LL;  // .067 seconds past, in any time zone
  std::string text =
      hostlog::formatTextLines({3, ANDROID_LOG_WARN, "halvexd", "a\nb\n\n"}, millis, 42);
  const std::string head = text.substr(0, 19);
  EXPECT_EQ(head.substr(14), ".067 ");
  EXPECT_EQ(text, head + "   42    42 W halvexd: a\n" + head + "   42    42 W halvexd: b\n");
  EXPECT_EQ(hostlog::formatTextLines({8, ANDROID_LOG_INFO, "metrics.halvexd", "r:1"}, millis, 7),
            "[metrics] " + head + "    7     7 I metrics.halvexd: r:1\n");
}

}  // namespace
}  // namespace halvexd
