#include "stats/StatUtil.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <limits>
#include <optional>

#include "platform/LogBuffers.h"
#include "tests/support/TestSupport.h"

namespace halvexd {
namespace {

using testing::fixturePath;
using testing::LogCapture;
using testing::LogRecord;
using testing::ScopedSysroot;
using testing::TempDir;

constexpr const char* kTag = "halvexd:StatUtil";
constexpr uint64_t kMax = std::numeric_limits<uint64_t>::max();

LogRecord parseWarning(const std::string& path) {
  return {kSystemLogBuffer, ANDROID_LOG_DEBUG, kTag, "warning: failed to parse " + path};
}

LogRecord openError(const std::string& reason) {
  return {kSystemLogBuffer, ANDROID_LOG_ERROR, kTag, "file open error is - " + reason + "\n"};
}

TEST(MeminfoTest, TabletFixtureFillsAllFifteenCounters) {
  ScopedSysroot sysroot(fixturePath("tablet"));
  SysMeminfoKb m;
  ASSERT_TRUE(StatUtil::getMeminfo(m));
  EXPECT_EQ(m.memTotal, 3866624u);
  EXPECT_EQ(m.memFree, 148736u);
  EXPECT_EQ(m.memAvailable, 1795672u);
  EXPECT_EQ(m.buffers, 10360u);
  EXPECT_EQ(m.cached, 1699808u);
  EXPECT_EQ(m.activeAnon, 702392u);
  EXPECT_EQ(m.inactiveAnon, 386540u);
  EXPECT_EQ(m.activeFile, 722324u);
  EXPECT_EQ(m.inactiveFile, 913024u);
  EXPECT_EQ(m.swapTotal, 2097148u);
  EXPECT_EQ(m.swapFree, 1447412u);
  EXPECT_EQ(m.shmem, 13852u);
  EXPECT_EQ(m.sUnreclaim, 134632u);
  EXPECT_EQ(m.kernelStack, 51680u);
  EXPECT_EQ(m.pageTables, 88956u);
}

TEST(MeminfoTest, MissingFileLeavesTheRecordUntouched) {
  TempDir empty;
  ScopedSysroot sysroot(empty.path());
  SysMeminfoKb m;
  m.memTotal = 77;
  EXPECT_FALSE(StatUtil::getMeminfo(m));
  EXPECT_EQ(m.memTotal, 77u);
}

TEST(MeminfoTest, LongLinesAndNoTrailingNewlineInAFile) {
  TempDir root;
  ScopedSysroot sysroot(root.path());
  root.write("proc/meminfo", "Junk: " + std::string(1 << 20, '7') + " kB\nMemFree: 5 kB\n" +
                                 std::string(100000, 'M') + ": 9 kB\nMemTotal: 3866624 kB");
  SysMeminfoKb m;
  ASSERT_TRUE(StatUtil::getMeminfo(m));
  EXPECT_EQ(m.memFree, 5u);
  EXPECT_EQ(m.memTotal, 3866624u);
}

TEST(MeminfoTest, OnlyAnExactKeyWithAReadableNumberSetsAField) {
  struct Case {
    std::string text;
    uint64_t memTotal;  // starts at 111
    const char* why;
  };
  const Case cases[] = {
      {"MemTotal: 3866624 kB\n", 3866624, "the plain line"},
      {"MemTotal 3866624 kB\n", 111, "the colon belongs to the key"},
      {"memtotal: 5 kB\n", 111, "keys are case-sensitive"},
      {"MemTotalX: 5 kB\nXMemTotal: 6 kB\n", 111, "a key is matched whole, not as a prefix"},
      {"MemTotal:" + std::string(200, 'x') + " 5 kB\n", 111,
       "a long name starting with a key is not the key"},
      {"MemTotal:5 kB\n", 111, "no blank after the name makes the number part of it"},
      {" \tMemTotal:\t42 kB\r\n", 42, "blanks around the fields and a CR"},
      {"MemTotal: 42\n", 42, "the unit is not required"},
      {"MemTotal: 18446744073709551615 kB\n", kMax, "largest 64-bit value"},
      {"MemTotal: 18446744073709551616 kB\n", 111, "beyond 64 bits is no number"},
      {"MemTotal: -5 kB\n", 111, "a sign is no unsigned number"},
      {"MemTotal: kB\n", 111, "no number"},
      {"MemTotal: 1 kB\nMemTotal: 2 kB\n", 2, "a later line wins"},
      {"MemFree: 1 kB\nMemTotal: 77", 77, "last line without a newline"},
      {"MemFree: 1 kB\n", 111, "an absent key keeps the caller's value"},
      {std::string("\x01\xff" "MemTotal: 9 kB\n", 17), 111, "binary bytes glued to a key"},
      {std::string("MemTotal: 9\0 kB\n", 16), 9, "a NUL after the number ends it"},
      {"", 111, "empty text"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    SysMeminfoKb m;
    m.memTotal = 111;
    m.memFree = 222;
    parseMeminfo(c.text, m);
    EXPECT_EQ(m.memTotal, c.memTotal);
  }
}

class ZramTest : public ::testing::Test {
 protected:
  TempDir root;
  ScopedSysroot sysroot{root.path()};
  LogCapture logs;
};

TEST_F(ZramTest, PrefersMmStatAndFallsBackToMemUsedTotal) {
  const std::string mmStat = "/sys/block/zram0/mm_stat";
  const std::string memUsedTotal = "/sys/block/zram0/mem_used_total";
  struct Case {
    std::optional<std::string> mmStat;
    std::optional<std::string> memUsedTotal;
    bool result;
    unsigned long out;  // starts at 999
    std::vector<LogRecord> logs;
    const char* why;
  };
  const Case cases[] = {
      {"123 456 409600 0 0 0 0\n", "2048\n", true, 400, {}, "third field, in KiB"},
      {"0 0 1023 0 0 0 0\n", std::nullopt, true, 0, {}, "KiB truncate"},
      {"-1 +2 3072\n", std::nullopt, true, 3, {}, "only three fields; signed skipped fields"},
      {"1 2 18446744073709551615 0 0 0 0\n", std::nullopt, true, 18014398509481983UL,
       {}, "largest 64-bit byte count"},
      {"garbage\n", "2048\n", true, 2, {parseWarning(mmStat)}, "unparsable mm_stat falls back"},
      {"1 2\n", "2048", true, 2, {parseWarning(mmStat)}, "two fields are not enough"},
      {"1 2 18446744073709551616 0\n", "4096\n", true, 4, {parseWarning(mmStat)},
       "a third field beyond 64 bits is unparsable"},
      {std::nullopt, "2048\n", true, 2, {}, "older kernels have only mem_used_total"},
      {std::nullopt, std::nullopt, false, 999, {}, "no zram device"},
      {"x\n", std::nullopt, false, 0, {parseWarning(mmStat)}, "failed mm_stat stores 0"},
      {"x\n", "y\n", false, 0, {parseWarning(mmStat), parseWarning(memUsedTotal)},
       "both unparsable"},
      {"", "", false, 0, {parseWarning(mmStat), parseWarning(memUsedTotal)}, "both empty"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    std::filesystem::remove_all(root.path() + "/sys");
    if (c.mmStat) root.write("sys/block/zram0/mm_stat", *c.mmStat);
    if (c.memUsedTotal) root.write("sys/block/zram0/mem_used_total", *c.memUsedTotal);
    logs.clear();
    unsigned long out = 999;
    EXPECT_EQ(StatUtil::getZramMemUsedKb(out), c.result);
    EXPECT_EQ(out, c.out);
    EXPECT_EQ(logs.records(), c.logs);
  }
}

TEST(ZramFixtureTest, BothKernelVariants) {
  struct Case {
    const char* tree;
    unsigned long kib;
  };
  for (const auto& c : {Case{"tablet", 218196}, Case{"tablet-oldzram", 145716}}) {
    SCOPED_TRACE(c.tree);
    ScopedSysroot sysroot(fixturePath(c.tree));
    LogCapture logs;
    unsigned long out = 0;
    EXPECT_TRUE(StatUtil::getZramMemUsedKb(out));
    EXPECT_EQ(out, c.kib);
    EXPECT_TRUE(logs.records().empty());
  }
}

TEST(UintFileTest, FirstNumberOfAnOpenedFileOrZero) {
  struct Case {
    std::string contents;
    unsigned long value;
    const char* why;
  };
  const Case cases[] = {
      {"18760\n", 18760, "a sysfs counter"},
      {" \n\t 7 8\n", 7, "leading white space, first number only"},
      {"12abc", 12, "reading stops at a non-digit"},
      {"18446744073709551615", kMax, "largest 64-bit value"},
      {"18446744073709551616", 0, "beyond 64 bits reads 0"},
      {"-3\n", 0, "a negative number reads 0"},
      {"abc 5\n", 0, "no leading number reads 0"},
      {"", 0, "empty file reads 0"},
  };
  TempDir root;
  ScopedSysroot sysroot(root.path());
  LogCapture logs;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    root.write("sys/counter", c.contents);
    unsigned long out = 999;
    EXPECT_TRUE(StatUtil::getUintValueFromFile(out, "/sys/counter"));
    EXPECT_EQ(out, c.value);
  }
  EXPECT_TRUE(logs.records().empty());
}

TEST(UintFileTest, MissingFileLogsTheSystemErrorAndKeepsTheValue) {
  TempDir root;
  ScopedSysroot sysroot(root.path());
  LogCapture logs;
  unsigned long out = 999;
  EXPECT_FALSE(StatUtil::getUintValueFromFile(out, "/sys/kernel/mm/ksm/pages_sharing"));
  EXPECT_EQ(out, 999u);
  EXPECT_EQ(logs.records(), std::vector<LogRecord>{openError("No such file or directory")});
}

TEST(KsmTest, TabletFixtureCountsEveryPageState) {
  ScopedSysroot sysroot(fixturePath("tablet"));
  LogCapture logs;
  EXPECT_EQ(StatUtil::getKsmPagesSharingCnt(), 18760u);
  EXPECT_EQ(StatUtil::getObjectSizeOfKsmRmapItem(), 64u);
  // pages_sharing 18760 + shared 3452 + unshared 40211 + volatile 1587 +
  // sharing_always 212.
  EXPECT_EQ(StatUtil::getKsmRmapItemCnt(), 64222u);
  EXPECT_TRUE(logs.records().empty());
}

TEST(KsmTest, KernelWithoutKsmCountsZeroAfterOneLinePerFile) {
  ScopedSysroot sysroot(fixturePath("tablet-oldzram"));
  LogCapture logs;
  EXPECT_EQ(StatUtil::getKsmRmapItemCnt(), 0u);
  EXPECT_EQ(logs.records(), std::vector<LogRecord>(5, openError("No such file or directory")));
  logs.clear();
  EXPECT_EQ(StatUtil::getObjectSizeOfKsmRmapItem(), 0u);
  EXPECT_EQ(logs.records(), std::vector<LogRecord>{openError("No such file or directory")});
}

TEST(KsmTest, MissingStatesCountZeroAndTheRestStillAdd) {
  TempDir root;
  ScopedSysroot sysroot(root.path());
  root.write("sys/kernel/mm/ksm/pages_sharing", "10\n");
  root.write("sys/kernel/mm/ksm/pages_volatile", "5\n");
  root.write("sys/kernel/mm/ksm/pages_sharing_always", "7\n");
  LogCapture logs;
  EXPECT_EQ(StatUtil::getKsmRmapItemCnt(), 22u);
  // pages_shared and pages_unshared are missing.
  EXPECT_EQ(logs.records(), std::vector<LogRecord>(2, openError("No such file or directory")));
}

using LmkMap = std::map<std::string, unsigned long>;

LmkMap seededClasses() {
  return {{"Persistent", 0}, {"Fg", 0},     {"Visible", 0},
          {"Perceptible", 0}, {"Backup", 0}, {"Other", 0}};
}

TEST(LmkStatsTest, TabletFixtureUpdatesOnlyTheSeededNames) {
  ScopedSysroot sysroot(fixturePath("tablet"));
  LmkMap stats = seededClasses();
  EXPECT_TRUE(StatUtil::getLmkStats(stats));
  EXPECT_EQ(stats, (LmkMap{{"Persistent", 0}, {"Fg", 3}, {"Visible", 7}, {"Perceptible", 19},
                           {"Backup", 41}, {"Other", 268}}));
}

TEST(LmkStatsTest, FalseWhenMissingOrNothingMatched) {
  {
    ScopedSysroot sysroot(fixturePath("tablet-oldzram"));
    LmkMap stats = seededClasses();
    EXPECT_FALSE(StatUtil::getLmkStats(stats));
    EXPECT_EQ(stats, seededClasses());
  }
  TempDir root;
  ScopedSysroot sysroot(root.path());
  root.write("proc/lmk_stats", "Cached: 12\nTotal: 12\n");
  LmkMap stats = seededClasses();
  EXPECT_FALSE(StatUtil::getLmkStats(stats));
  EXPECT_EQ(stats, seededClasses());
}

TEST(LmkStatsTest, LinesSetSeededNamesOnly) {
  const std::string name62(62, 'k');
  struct Case {
    std::string text;
    LmkMap seeds;
    bool result;
    LmkMap expected;
    const char* why;
  };
  const Case cases[] = {
      {"kill_count: 7\n", {{"kill_count", 0}}, true, {{"kill_count", 7}}, "a seeded name"},
      {"kill_count: 7\n", {{"Fg", 1}}, false, {{"Fg", 1}}, "unseeded names are not added"},
      {"Fg: 3\nFg: 4", {{"Fg", 0}}, true, {{"Fg", 4}}, "later line wins, no final newline"},
      {"Fg 3\n", {{"Fg", 1}}, false, {{"Fg", 1}}, "the name's last character is dropped"},
      {"Fg:\n", {{"Fg", 5}}, true, {{"Fg", 0}}, "a missing number records 0"},
      {"Fg: 99999999999999999999\n", {{"Fg", 5}}, true, {{"Fg", 0}},
       "a number beyond 64 bits records 0"},
      {"Fg: 18446744073709551615\n", {{"Fg", 5}}, true, {{"Fg", kMax}}, "largest 64-bit count"},
      {name62 + ": 5\n", {{name62, 0}}, true, {{name62, 5}}, "longest accepted name"},
      {name62 + "k: 5\n", {{name62, 0}, {name62 + "k", 0}}, false,
       {{name62, 0}, {name62 + "k", 0}}, "a longer name is skipped, not cut to a seeded one"},
      {"\n\n   \n:\n", {{"", 3}}, true, {{"", 0}}, "a lone colon is the empty name"},
      {std::string("F\0: 2\n", 6), {{"F", 1}}, false, {{"F", 1}}, "binary bytes stay in the name"},
      {"", {{"Fg", 1}}, false, {{"Fg", 1}}, "empty text"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    LmkMap stats = c.seeds;
    EXPECT_EQ(parseLmkStats(c.text, stats), c.result);
    EXPECT_EQ(stats, c.expected);
  }
}

}  // namespace
}  // namespace halvexd
