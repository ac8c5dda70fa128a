// The readers of fixed kernel paths: which file each reads, the fall-backs
// between files, and the exact line each failure logs.
#include <gtest/gtest.h>

#include <filesystem>
#include <optional>

#include "platform/LogBuffers.h"
#include "stats/StatUtil.h"
#include "tests/support/PerfinfoServer.h"
#include "tests/support/TestSupport.h"

namespace halvexd {
namespace {

using namespace std::string_literals;
using testing::LogCapture;
using testing::LogRecord;
using testing::ScopedSysroot;
using testing::TempDir;

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
  struct Row {
    std::optional<std::string> mmStat, memUsedTotal;
    bool ok;
    unsigned long kib;  // starts at 999
    std::vector<LogRecord> lines;
  };
  const Row rows[] = {
      {"123 456 409600 0 0 0 0\n", "2048\n", true, 400, {}},  // bytes >> 10, not / 1000
      {"0 0 1023 0 0 0 0\n", std::nullopt, true, 0, {}},
      {"1 2 18446744073709551615 0\n", std::nullopt, true, 18014398509481983ul, {}},
      {"garbage\n", "2048\n", true, 2, {mmStatWarning}},
      {std::nullopt, "1049600\n", true, 1025, {}},
      {std::nullopt, std::nullopt, false, 999, {}},
      {"x\n", std::nullopt, false, 0, {mmStatWarning}},
      {"", "", false, 0, {mmStatWarning, oldWarning}},
  };
  for (const auto& row : rows) {
    std::filesystem::remove_all(root.path() + "/sys");
    if (row.mmStat) root.write("sys/block/zram0/mm_stat", *row.mmStat);
    if (row.memUsedTotal) root.write("sys/block/zram0/mem_used_total", *row.memUsedTotal);
    logs.clear();
    unsigned long kib = 999;
    EXPECT_EQ(StatUtil::getZramMemUsedKb(kib), row.ok) << row.mmStat.value_or("-");
    EXPECT_EQ(kib, row.kib) << row.mmStat.value_or("-");
    EXPECT_EQ(logs.records(), row.lines) << row.mmStat.value_or("-");
  }
}

TEST_F(ReaderTest, KsmCountsEveryPageStateAndAMissingOneCountsZeroAfterOneLine) {
  const LogRecord missing = line(ANDROID_LOG_ERROR, "file open error is - No such file or directory\n");
  EXPECT_EQ(StatUtil::getKsmRmapItemCnt(), 0u);
  EXPECT_EQ(logs.records(), std::vector<LogRecord>(5, missing));
  const std::pair<const char*, const char*> files[] = {
      {"pages_sharing", "10\n"}, {"pages_shared", "200"}, {"pages_volatile", "3000\n"},
      {"pages_sharing_always", "40000\n"}, {"pages_unsharing", "7\n"}};  // the last is no state
  for (const auto& [name, value] : files) root.write("sys/kernel/mm/ksm/"s + name, value);
  root.write("sys/kernel/slab/ksm_rmap_item/object_size", "64\n");
  logs.clear();
  EXPECT_EQ(StatUtil::getKsmPagesSharingCnt(), 10u);
  EXPECT_EQ(StatUtil::getObjectSizeOfKsmRmapItem(), 64u);
  EXPECT_EQ(StatUtil::getKsmRmapItemCnt(), 43210u);  // pages_unshared missing
  EXPECT_EQ(logs.records(), std::vector<LogRecord>{missing});
}

TEST_F(ReaderTest, ProcessFilesThatEndedOrDoNotParse) {
  ProcessStat stat{};
  EXPECT_FALSE(StatUtil::getProcessStat(77, stat));  // ended: no line
  root.write("proc/77/stat", "77 (init)\n");
  EXPECT_FALSE(StatUtil::getProcessStat(77, stat));
  EXPECT_EQ(logs.records(), std::vector<LogRecord>{line(ANDROID_LOG_ERROR,
                                                        "Failed to parse /proc/77/stat")});
  root.write("proc/78/comm", "Binder:78_1\n");
  root.write("proc/78/cmdline", "/vendor/bin/hw/sensors service\0--flag\0"s);
  root.write("proc/79/comm", "HwBinder:79_2\n");  // no command line
  root.write("proc/80/comm", std::string(30, 'x') + "\n");
  std::filesystem::create_directories(root.path() + "/proc/81");
  std::filesystem::create_symlink("/dev/zero", root.path() + "/proc/81/comm");  // never ends
  const std::pair<int, std::string> names[] = {
      {78, "/vendor/bin/hw/sensorsservice"}, {79, "unknown"}, {80, "-"}, {81, "-"}, {82, "-"}};
  for (const auto& [pid, expected] : names) {
    char name[kProcessNameSize] = "-";
    StatUtil::getProcessName(pid, name);
    EXPECT_EQ(name, expected) << pid;
  }
  std::vector<int> pids;
  std::filesystem::remove_all(root.path() + "/proc");
  logs.clear();
  EXPECT_FALSE(StatUtil::getProcessList(pids));
  EXPECT_EQ(logs.records(), std::vector<LogRecord>{line(ANDROID_LOG_ERROR, "Could not open /proc")});
}

TEST_F(ReaderTest, PerfinfoSelectsThePidThenReadsItsFigure) {
  unsigned long pss = 77;
  EXPECT_FALSE(StatUtil::getProcessPss(1024, pss));  // missing: at once, no retries
  EXPECT_EQ(pss, 0u);
  EXPECT_EQ(logs.records(), std::vector<LogRecord>{line(ANDROID_LOG_ERROR,
                                                        "Failed to open /proc/perfinfo for write")});
  const std::pair<std::string, std::vector<LogRecord>> replies[] = {
      {"Pss: 183412 kB\n", {}},
      {"Rss: 100 kB\n", {line(ANDROID_LOG_ERROR, "Failed to sscanf /proc/perfinfo")}},
      {"", {}},  // no answer: false without a line
  };
  for (const auto& [reply, lines] : replies) {
    std::string answer = reply;
    testing::PerfinfoServer kernel(root.path(), [answer](const std::string&) { return answer; });
    logs.clear();
    EXPECT_EQ(StatUtil::getProcessPss(1024, pss), lines.empty() && !reply.empty()) << reply;
    EXPECT_EQ(pss, reply.empty() || !lines.empty() ? 0u : 183412u) << reply;
    EXPECT_EQ(logs.records(), lines) << reply;
    EXPECT_EQ(kernel.written(), std::vector<std::string>{"1024"}) << reply;
  }
}

}  // namespace
}  // namespace halvexd
