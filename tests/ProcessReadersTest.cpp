#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <optional>
#include <thread>

#include "platform/LogBuffers.h"
#include "stats/StatUtil.h"
#include "tests/support/ProcessTree.h"
#include "tests/support/TestSupport.h"
#include "tools/devicesim/PerfinfoServer.h"

namespace halvexd {
namespace {

using namespace std::string_literals;
using testing::FakeProcess;
using testing::fixturePath;
using testing::LogCapture;
using testing::LogRecord;
using devicesim::PerfinfoServer;
using testing::ScopedSysroot;
using testing::TempDir;

constexpr const char* kTag = "halvexd:StatUtil";

LogRecord error(const std::string& message) {
  return {kSystemLogBuffer, ANDROID_LOG_ERROR, kTag, message};
}

std::string nameOf(int pid) {
  char name[kProcessNameSize] = "untouched";
  if (!StatUtil::getProcessName(pid, name)) return "<false>";
  return name;
}

// The pids of the sample tablet, in ascending order; 2 and 84 are kernel
// threads.
const std::vector<int> kTabletPids = {1, 2, 84, 545, 612, 640, 655, 700, 701, 1024, 1288, 1311, 1760,
                                      2790};

// --- /proc/<pid>/stat -------------------------------------------------------

TEST(ProcessStatTest, RealLineFillsEveryFieldWithThirtyTwoBitCountersTruncated) {
  // system_server on the sample tablet: its vsize (16263077888) and rsslim
  // (unlimited) do not fit 32 bits and arrive as their low bits.
  ScopedSysroot sysroot(fixturePath("tablet"));
  ProcessStat s{};
  ASSERT_TRUE(StatUtil::getProcessStat(1024, s));
  EXPECT_EQ(s.pid, 1024);
  EXPECT_EQ(s.state, 'S');
  EXPECT_EQ(s.ppid, 700);
  EXPECT_EQ(s.pgrp, 700);
  EXPECT_EQ(s.session, 0);
  EXPECT_EQ(s.ttyNr, 0);
  EXPECT_EQ(s.tpgid, -1);
  EXPECT_EQ(s.flags, 1077952832u);
  EXPECT_EQ(s.minflt, 1870322u);
  EXPECT_EQ(s.cminflt, 5231u);
  EXPECT_EQ(s.majflt, 2810u);
  EXPECT_EQ(s.cmajflt, 3u);
  EXPECT_EQ(s.utime, 361520u);
  EXPECT_EQ(s.stime, 118253u);
  EXPECT_EQ(s.cutime, 0);
  EXPECT_EQ(s.cstime, 0);
  EXPECT_EQ(s.priority, 18);
  EXPECT_EQ(s.nice, -2);
  EXPECT_EQ(s.numThreads, 168);
  EXPECT_EQ(s.itrealvalue, 0);
  EXPECT_EQ(s.starttime, 1422u);
  EXPECT_EQ(s.vsize, 3378176000u);  // 16263077888 - 3 * 2^32
  EXPECT_EQ(s.rss, 72331);
  EXPECT_EQ(s.rsslim, 0xFFFFFFFFu);
}

TEST(ProcessStatTest, NamesWithBlanksAndParenthesesAreSkippedUpToTheLastParenthesis) {
  struct Case {
    std::string text;
    char state;
    int32_t ppid;
    uint32_t utime;
    const char* why;
  };
  const std::string fields = " 1 7 0 0 -1 4194560 10 0 0 0 ";
  const std::string tail = " 0 0 20 0 1 0 500 1000 5 18446744073709551615 0 0\n";
  const Case cases[] = {
      {"2790 (MediaCodec (1)) S 1 7 0 0 -1 4194560 10 0 0 0 31 4" + tail, 'S', 1, 31,
       "a name ending in its own parenthesis"},
      {"77 (x) R 99 99 (y) D" + fields + "42 4" + tail, 'D', 1, 42,
       "a name that imitates the fields that follow it"},
      {"77 (a\n) b) R" + fields + "43 4" + tail, 'R', 1, 43, "a newline inside the name"},
      {"77 () Z" + fields + "44 4" + tail, 'Z', 1, 44, "an empty name"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    ProcessStat s{};
    ASSERT_TRUE(parseProcessStat(c.text, s));
    EXPECT_EQ(s.state, c.state);
    EXPECT_EQ(s.ppid, c.ppid);
    EXPECT_EQ(s.utime, c.utime);
    EXPECT_EQ(s.rss, 5);
  }
}

TEST(ProcessStatTest, NumbersWiderThanTheirFieldKeepTheirLowBits) {
  struct Case {
    std::string utime;
    std::string priority;
    std::string starttime;
    uint32_t expectedUtime;
    int32_t expectedPriority;
    uint64_t expectedStart;
    const char* why;
  };
  const Case cases[] = {
      {"4294967301", "-98", "18446744073709551615", 5u, -98, 18446744073709551615u,
       "2^32 + 5 ticks wrap to 5; real-time priority; full 64-bit start"},
      {"99999999999999999999999", "2147483648", "0", 0xFFFFFFFFu, INT32_MIN, 0u,
       "beyond 64 bits saturates; 2^31 wraps negative"},
      {"-1", "-9223372036854775809", "7", 0xFFFFFFFFu, 0, 7u,
       "a negative count wraps; below the signed range saturates to its low bits (0)"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    std::string text = "9 (p) S 1 9 0 0 -1 0 0 0 0 0 " + c.utime + " 0 0 0 " + c.priority +
                       " 0 1 0 " + c.starttime + " 0 1 0";
    ProcessStat s{};
    ASSERT_TRUE(parseProcessStat(text, s));
    EXPECT_EQ(s.utime, c.expectedUtime);
    EXPECT_EQ(s.priority, c.expectedPriority);
    EXPECT_EQ(s.starttime, c.expectedStart);
  }
}

TEST(ProcessStatTest, MalformedFilesFailWithOneLineNamingTheDevicePath) {
  const std::string twentyTwo = " S 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18 19 20 21";
  struct Case {
    std::string text;
    const char* why;
  };
  const Case cases[] = {
      {"", "empty file"},
      {"77 init S 1 1 0 0 -1 0 0 0 0 0 0 0 0 0 20 0 1 0 5 0 1 0\n", "no parenthesis at all"},
      {"pid (init)" + twentyTwo + " 22\n", "no pid before the name"},
      {"77 (init)" + twentyTwo + "\n", "one field short: rsslim missing"},
      {"77 (init) S 1 x 0 0 -1 0 0 0 0 0 0 0 0 0 20 0 1 0 5 0 1 0\n", "a word where pgrp belongs"},
      {"77 (init)\n", "nothing after the name"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    TempDir root;
    ScopedSysroot sysroot(root.path());
    root.write("proc/77/stat", c.text);
    LogCapture capture;
    ProcessStat s{};
    EXPECT_FALSE(StatUtil::getProcessStat(77, s));
    EXPECT_EQ(capture.records(), (std::vector<LogRecord>{error("Failed to parse /proc/77/stat")}));
  }
}

TEST(ProcessStatTest, ProcessThatEndedGivesFalseWithoutALine) {
  ScopedSysroot sysroot(fixturePath("tablet"));
  LogCapture capture;
  ProcessStat s{};
  EXPECT_FALSE(StatUtil::getProcessStat(31337, s));
  EXPECT_TRUE(capture.records().empty());
}

// --- process lists ---------------------------------------------------------

TEST(ProcessListTest, NumericEntriesOfProcAppendedToWhatTheCallerHas) {
  ScopedSysroot sysroot(fixturePath("tablet"));
  std::vector<int> pids = {-7};
  ASSERT_TRUE(StatUtil::getProcessList(pids));
  ASSERT_FALSE(pids.empty());
  EXPECT_EQ(pids.front(), -7);
  // meminfo, stat, uptime and lmk_stats are not processes.
  std::vector<int> listed(pids.begin() + 1, pids.end());
  std::sort(listed.begin(), listed.end());
  EXPECT_EQ(listed, kTabletPids);
}

TEST(ProcessListTest, RssListLeavesOutKernelThreadsAndUnreadableProcesses) {
  ScopedSysroot sysroot(fixturePath("tablet"));
  std::vector<int> pids;
  ASSERT_TRUE(StatUtil::getProcessListRss(pids));
  std::sort(pids.begin(), pids.end());
  std::vector<int> expected = kTabletPids;
  expected.erase(std::remove_if(expected.begin(), expected.end(), [](int p) { return p == 2 || p == 84; }),
                 expected.end());
  EXPECT_EQ(pids, expected);

  // A process that ended after /proc was listed (its directory is left with
  // no stat) is skipped; it does not fail the list.
  TempDir root;
  ScopedSysroot other(root.path());
  testing::writeProcess(root, {300, "logd", 5, 5, 210, "/system/bin/logd\0"s});
  root.write("proc/301/comm", "gone\n");
  std::vector<int> some;
  ASSERT_TRUE(StatUtil::getProcessListRss(some));
  EXPECT_EQ(some, (std::vector<int>{300}));
}

TEST(ProcessListTest, FailuresOfTheListings) {
  {
    TempDir root;  // no /proc at all
    ScopedSysroot sysroot(root.path());
    LogCapture capture;
    std::vector<int> pids;
    EXPECT_FALSE(StatUtil::getProcessList(pids));
    EXPECT_FALSE(StatUtil::getProcessListRss(pids));
    EXPECT_TRUE(pids.empty());
    EXPECT_EQ(capture.records(),
              (std::vector<LogRecord>{error("Could not open /proc"), error("Could not open /proc")}));
  }
  {
    TempDir root;  // an empty /proc lists fine, but holds no process
    root.write("proc/meminfo", "MemTotal: 1 kB\n");
    ScopedSysroot sysroot(root.path());
    std::vector<int> pids;
    EXPECT_TRUE(StatUtil::getProcessList(pids));
    EXPECT_TRUE(pids.empty());
    EXPECT_FALSE(StatUtil::getProcessListRss(pids));
  }
  {
    TempDir root;  // only kernel threads: readable, but none has memory
    testing::writeProcess(root, {2, "kthreadd", 0, 17, 0, ""});
    ScopedSysroot sysroot(root.path());
    std::vector<int> pids;
    EXPECT_TRUE(StatUtil::getProcessListRss(pids));
    EXPECT_TRUE(pids.empty());
  }
  {
    TempDir root;  // every stat unreadable
    root.write("proc/5/stat", "garbage\n");
    ScopedSysroot sysroot(root.path());
    LogCapture capture;
    std::vector<int> pids;
    EXPECT_FALSE(StatUtil::getProcessListRss(pids));
    EXPECT_EQ(capture.records(), (std::vector<LogRecord>{error("Failed to parse /proc/5/stat")}));
  }
}

// --- names and command lines -----------------------------------------------

TEST(ProcessNameTest, NamesOfTheSampleTablet) {
  ScopedSysroot sysroot(fixturePath("tablet"));
  const std::pair<int, const char*> cases[] = {
      {1, "init"},
      {1024, "system_server"},
      {1288, "ndroid.systemui"},  // the kernel keeps the last 15 characters of an app's name
      {700, "main"},              // both zygotes are called main
      {2790, "MediaCodec"},       // the first word only
      {655, "/system/bin/storaged"},            // binder thread: the program instead
      {640, "re.sensors@2.0-service.multihal"},  // ... its last 31 characters
      {31337, "<false>"},
  };
  for (const auto& [pid, expected] : cases) {
    EXPECT_EQ(nameOf(pid), expected) << "pid " << pid;
  }
}

TEST(ProcessNameTest, BinderThreadsTakeTheirProgramsName) {
  struct Case {
    std::string comm;
    std::optional<std::string> cmdline;  // nullopt: no cmdline file
    std::string expected;
    const char* why;
  };
  const std::string forty = "/vendor/bin/hw/vendor.sensors-svc-abcde";  // 39, and "f" below
  const Case cases[] = {
      {"Binder:77_1", "/system/bin/my daemon\0--flag\0"s, "/system/bin/mydaemon",
       "one blank removed, later arguments ignored"},
      {"HwBinder:77_2", "/vendor/bin/a\tb c\0"s, "/vendor/bin/abc", "tabs are blanks too"},
      {"Binder:77_1", forty + "f\0"s, "in/hw/vendor.sensors-svc-abcdef", "40 characters keep the last 31"},
      {"Binder:77_1", std::string(31, 'a') + "\0"s, std::string(31, 'a'), "31 characters kept whole"},
      {"Binder:77_1", "b" + std::string(31, 'a') + "\0"s, std::string(31, 'a'), "32 drop the first"},
      {"Binder:77_1", "/system/bin/Binder\0"s, "unknown", "a command line that is itself a binder"},
      {"Binder:77_1", ""s, "unknown", "an empty command line"},
      {"Binder:77_1", std::nullopt, "unknown", "no command line"},
      {"Binder:77_1", "\0/x\0"s, "", "an empty first argument"},
      {"binder:77_1", "/system/bin/x\0"s, "binder:77_1", "the match is case-sensitive"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    TempDir root;
    ScopedSysroot sysroot(root.path());
    root.write("proc/77/comm", c.comm + "\n");
    if (c.cmdline) root.write("proc/77/cmdline", *c.cmdline);
    EXPECT_EQ(nameOf(77), c.expected);
  }
}

TEST(ProcessNameTest, CommLinesOfOneToThirtyBytesWithAWord) {
  struct Case {
    std::string comm;  // file contents
    std::string expected;
    const char* why;
  };
  const Case cases[] = {
      {std::string(29, 'x') + "\n", std::string(29, 'x'), "30 bytes with the newline"},
      {std::string(30, 'x') + "\n", "<false>", "31 bytes"},
      {std::string(30, 'x'), std::string(30, 'x'), "30 bytes without a newline"},
      {"\n", "<false>", "only a newline"},
      {"   \n", "<false>", "only blanks"},
      {"", "<false>", "empty"},
      {"  surfaceflinger\n", "surfaceflinger", "leading blanks skipped"},
      {"a\0b\n"s, "a", "a zero byte ends the name"},
      {"a\nsecond line\n", "a", "the first line only"},
      {"surfaceflinger\n" + std::string(40, 'y') + "\n", "surfaceflinger",
       "what follows the first line does not count against its length"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    TempDir root;
    ScopedSysroot sysroot(root.path());
    root.write("proc/77/comm", c.comm);
    EXPECT_EQ(nameOf(77), c.expected);
  }
}

TEST(ProcessCmdlineTest, FirstArgumentOnlyAndBoundedReading) {
  ScopedSysroot sysroot(fixturePath("tablet"));
  std::string cmdline = "previous";
  EXPECT_TRUE(StatUtil::getProcessCmdline(1, cmdline));
  EXPECT_EQ(cmdline, "/system/bin/init");
  cmdline = "previous";
  EXPECT_FALSE(StatUtil::getProcessCmdline(2, cmdline));  // a kernel thread has none
  EXPECT_FALSE(StatUtil::getProcessCmdline(31337, cmdline));
  EXPECT_EQ(cmdline, "previous");

  TempDir root;
  ScopedSysroot other(root.path());
  root.write("proc/77/cmdline", std::string(10000, 'a'));  // one endless argument
  ASSERT_TRUE(StatUtil::getProcessCmdline(77, cmdline));
  EXPECT_EQ(cmdline, std::string(kMaxCmdlineBytes, 'a'));
}

TEST(PidOfTest, FindsTheFirstProcessOfANameInListingOrder) {
  ScopedSysroot sysroot(fixturePath("tablet"));
  std::vector<int> listing;
  ASSERT_TRUE(StatUtil::getProcessList(listing));
  auto firstMain = std::find_if(listing.begin(), listing.end(), [](int p) { return p == 700 || p == 701; });
  ASSERT_NE(firstMain, listing.end());

  struct Case {
    std::string name;
    int expected;  // 0: not found
  };
  const Case cases[] = {
      {"system_server", 1024},
      {"main", *firstMain},  // two zygotes share the name: the first listed wins
      {"/system/bin/storaged", 655},           // names compare after the binder substitution
      {"re.sensors@2.0-service.multihal", 640},
      {"Binder:655_3", 0},
      {"com.android.systemui", 0},  // the kernel shortened it; a longer name never matches
      {"system_serve", 0},          // no prefix matches
      {"", 0},
  };
  for (const auto& c : cases) {
    int pid = -1;
    bool found = StatUtil::pidOf(c.name, pid);
    EXPECT_EQ(found, c.expected != 0) << c.name;
    EXPECT_EQ(pid, c.expected != 0 ? c.expected : -1) << c.name;
  }
}

// --- /proc/perfinfo --------------------------------------------------------

TEST(PerfinfoTest, AnswerParsing) {
  struct Case {
    const char* line;
    bool ok;
    unsigned long kb;
  };
  const Case cases[] = {
      {"Pss: 83412 kB\n", true, 83412},
      {"Pss:7kB", true, 7},
      {"Pss: 0 kB\n", true, 0},
      {"Pss: 18446744073709551615 kB", true, 18446744073709551615UL},
      {"Pss: 18446744073709551616 kB", false, 0},
      {"Pss: -5 kB", false, 0},
      {" Pss: 5 kB", false, 0},
      {"Rss: 5 kB", false, 0},
      {"Pss: kB", false, 0},
      {"", false, 0},
  };
  for (const auto& c : cases) {
    unsigned long kb = 99;
    EXPECT_EQ(parsePerfinfoPss(c.line, kb), c.ok) << c.line;
    EXPECT_EQ(kb, c.ok ? c.kb : 99) << c.line;
  }
}

TEST(PerfinfoTest, MissingFileFailsAtOnceWithOneLine) {
  TempDir root;
  ScopedSysroot sysroot(root.path());
  LogCapture capture;
  unsigned long pss = 77;
  auto start = std::chrono::steady_clock::now();
  EXPECT_FALSE(StatUtil::getProcessPss(1024, pss));
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(500));
  EXPECT_EQ(pss, 0u);
  EXPECT_EQ(capture.records(),
            (std::vector<LogRecord>{error("Failed to open /proc/perfinfo for write")}));
}

TEST(PerfinfoTest, WritesThePidThenReadsItsFigure) {
  TempDir root;
  ScopedSysroot sysroot(root.path());
  PerfinfoServer kernel(root.path(), PerfinfoServer::byPid({{1024, 183412}, {612, 64020}}));
  LogCapture capture;
  unsigned long pss = 0;
  ASSERT_TRUE(StatUtil::getProcessPss(1024, pss));
  EXPECT_EQ(pss, 183412u);  // the host's memory tracker adds nothing
  ASSERT_TRUE(StatUtil::getProcessPss(612, pss));
  EXPECT_EQ(pss, 64020u);
  // The pid goes in as bare decimal text, one write per reading.
  EXPECT_EQ(kernel.written(), (std::vector<std::string>{"1024", "612"}));
  EXPECT_TRUE(capture.records().empty());
}

TEST(PerfinfoTest, AnswersThatAreNoFigure) {
  struct Case {
    std::string reply;
    std::vector<LogRecord> lines;
    const char* why;
  };
  const Case cases[] = {
      {"Rss: 100 kB\n", {error("Failed to sscanf /proc/perfinfo")}, "another figure"},
      {"pid 1024 not found\n", {error("Failed to sscanf /proc/perfinfo")}, "a kernel complaint"},
      {"", {}, "no answer at all: false without a line"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    TempDir root;
    ScopedSysroot sysroot(root.path());
    std::string reply = c.reply;
    PerfinfoServer kernel(root.path(), [reply](const std::string&) { return reply; });
    LogCapture capture;
    unsigned long pss = 77;
    EXPECT_FALSE(StatUtil::getProcessPss(1024, pss));
    EXPECT_EQ(pss, 0u);
    EXPECT_EQ(capture.records(), c.lines);
    EXPECT_EQ(kernel.written(), (std::vector<std::string>{"1024"}));
  }
}

TEST(PerfinfoTest, ConcurrentCallersNeverMixTheirSelections) {
  // The kernel file keeps one selection for everybody: without the lock a
  // caller could read the figure of a pid another caller selected.
  TempDir root;
  ScopedSysroot sysroot(root.path());
  PerfinfoServer kernel(root.path(), [](const std::string& written) {
    return "Pss: " + written + "0 kB\n";  // pid 12 answers 120
  });
  constexpr int kCalls = 15;
  auto caller = [](int pid, int& mismatches) {
    for (int i = 0; i < kCalls; ++i) {
      unsigned long pss = 0;
      if (!StatUtil::getProcessPss(pid, pss) || pss != static_cast<unsigned long>(pid) * 10) {
        ++mismatches;
      }
    }
  };
  int mismatchesA = 0;
  int mismatchesB = 0;
  std::thread a(caller, 12, std::ref(mismatchesA));
  std::thread b(caller, 345, std::ref(mismatchesB));
  a.join();
  b.join();
  EXPECT_EQ(mismatchesA, 0);
  EXPECT_EQ(mismatchesB, 0);
  auto written = kernel.written();
  EXPECT_EQ(written.size(), 2u * kCalls);
  EXPECT_EQ(std::count(written.begin(), written.end(), "12"), kCalls);
  EXPECT_EQ(std::count(written.begin(), written.end(), "345"), kCalls);
}

}  // namespace
}  // namespace halvexd
