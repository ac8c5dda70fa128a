// The kernel-file parsers over text, one table per file, and the bounds of the
// readers that take a path. Needs no fixture tree and no host log sink, so the
// device test module runs it too.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <limits>
#include <map>
#include <string>
#include <vector>

#include "stats/ProcessFileParsers.h"
#include "stats/StatUtil.h"
#include "stats/SystemFileParsers.h"

namespace halvexd {
namespace {

using namespace std::string_literals;
constexpr uint64_t kMax = std::numeric_limits<uint64_t>::max();

// An unnamed temporary file with `contents`, named by its /proc/self/fd link,
// which a reader opens afresh and reads from the start.
struct ScratchFile {
  explicit ScratchFile(const std::string& contents) : file(std::tmpfile()) {
    EXPECT_TRUE(file && std::fwrite(contents.data(), 1, contents.size(), file) == contents.size() &&
                std::fflush(file) == 0);
  }
  ~ScratchFile() { file && std::fclose(file); }
  std::string path() const { return file ? "/proc/self/fd/" + std::to_string(fileno(file)) : ""; }
  FILE* file;
};

TEST(MeminfoParserTest, OnlyAnExactKeyWithAReadableNumberSetsAField) {
  const std::pair<std::string, uint64_t> rows[] = {  // text, memTotal (starts at 111)
      {"MemTotal: 3866624 kB\n", 3866624},
      {"MemTotal 3866624 kB\n", 111},               // the colon belongs to the key
      {"memtotal: 5 kB\n", 111},                    // keys are case-sensitive
      {"MemTotalX: 5 kB\nXMemTotal: 6 kB\n", 111},  // matched whole, not as a prefix
      {"MemTotal:5 kB\n", 111},                     // no blank: the number is in the name
      {" \tMemTotal:\t42 kB\r\n", 42},              // blanks around fields, a CR
      {"MemTotal: 18446744073709551615 kB\n", kMax},
      {"MemTotal: 18446744073709551616 kB\n", 111},  // beyond 64 bits is no number
      {"MemTotal: -5 kB\n", 111},                    // a sign is no counter
      {"MemTotal: 1 kB\nMemTotal: 2 kB\n", 2},       // a later line wins
      {"MemFree: 1 kB\nMemTotal: 77", 77},           // last line without a newline
      {"MemTotal: 9\0 kB\n"s, 9},                    // a NUL after the number ends it
  };
  for (const auto& [text, memTotal] : rows) {
    SysMeminfoKb m;
    m.memTotal = 111;
    parseMeminfo(text, m);
    EXPECT_EQ(m.memTotal, memTotal) << text;
  }
}

TEST(ZramParserTest, ThirdFieldOfMmStatAndFirstNumberOfTheOlderFile) {
  const std::tuple<bool, std::string, bool, unsigned long> rows[] = {  // mm_stat?, text, ok, value
      {true, "123 456 409600 0 0 0 0\n", true, 409600},  {true, "-1 +2 3072", true, 3072},
      {true, "1 2 18446744073709551615 0\n", true, kMax},
      {true, "1 2 18446744073709551616\n", false, 0},  {true, "1 2 -5 0\n", false, 0},
      {true, "1 2\n", false, 0},  {true, "garbage\n", false, 0},  {false, "2048\n", true, 2048},
      {false, " \n\t 7 8\n", true, 7},  {false, "12abc", true, 12},  {false, "-3\n", false, 0},
      {false, "18446744073709551616", false, 0},  {false, "", false, 0},
  };
  for (const auto& [mmStat, text, ok, expected] : rows) {
    unsigned long value = 999;
    EXPECT_EQ(mmStat ? parseZramMmStat(text, value) : parseFirstUnsigned(text, value), ok) << text;
    EXPECT_EQ(value, expected) << text;
  }
}

TEST(LmkStatsParserTest, LinesSetSeededNamesOnly) {
  using Map = std::map<std::string, unsigned long>;
  const std::string k62(62, 'k');  // with its colon, the longest name read
  const std::tuple<std::string, Map, bool, Map> rows[] = {  // text, seeds, result, after
      {"kill_count: 7\n", {{"kill_count", 0}}, true, {{"kill_count", 7}}},
      {"kill_count: 7\n", {{"Fg", 1}}, false, {{"Fg", 1}}},  // unseeded names are not added
      {"Fg: 3\nFg: 4", {{"Fg", 0}}, true, {{"Fg", 4}}},
      {"Fg 3\n", {{"Fg", 1}}, false, {{"Fg", 1}}},  // the last character goes, colon or not
      {"Fg:\n", {{"Fg", 5}}, true, {{"Fg", 0}}},
      {"Fg: 99999999999999999999\n", {{"Fg", 5}}, true, {{"Fg", 0}}},
      {k62 + ": 5\n", {{k62, 0}}, true, {{k62, 5}}},
      {k62 + "k: 5\n", {{k62 + "k", 0}}, false, {{k62 + "k", 0}}},  // skipped whole, never cut
      {"F\0: 2\n"s, {{"F", 1}}, false, {{"F", 1}}},
  };
  for (const auto& [text, seeds, ok, expected] : rows) {
    Map stats = seeds;
    EXPECT_EQ(parseLmkStats(text, stats), ok) << text;
    EXPECT_EQ(stats, expected) << text;
  }
}

TEST(UptimeParserTest, WholeSecondsOfTheFirstNumberOrZero) {
  const std::pair<std::string, int> rows[] = {
      {"12345.99 54321.00\n", 12345},  // the fraction is dropped, not rounded
      {"179.999 3.0\n", 179},  {"200.43 1523.11", 200},  {"-5.5 1\n", -5},
      {"200.43\n", 0},         {"200.43\0 1\n"s, 0},     {"", 0},  {"abc def\n", 0},
      {"1e30 1\n", 0},         {"nan 1\n", 0},           // outside the int range
      {"16777217.0 1\n", 16777216},                      // single precision
  };
  for (const auto& [text, seconds] : rows) EXPECT_EQ(parseUptime(text), seconds) << text;
  ScratchFile longLine("300.25 " + std::string(4096, '9') + "\n");
  EXPECT_EQ(StatUtil::getUptimeFromFile(longLine.path().c_str()), 300);
}

TEST(CpuTimesParserTest, NumbersOfTheAggregateLineOnly) {
  std::string hundred = "cpu ";
  for (int i = 0; i < 100; ++i) hundred += " 7";
  const std::pair<std::string, std::vector<unsigned long>> rows[] = {
      {"cpu  10 20 30 40 50 60 70 0 0 0\ncpu0 1 2 3\n", {10, 20, 30, 40, 50, 60, 70, 0, 0, 0}},
      {"cpu 1 -1 2", {1, kMax, 2}},           // a negative counter wraps
      {"cpu 1 18446744073709551616 3", {1}},  // beyond 64 bits ends the list
      {"cpu 5 x 6", {5}},  {"", {}},
      {hundred, std::vector<unsigned long>(kMaxCpuTimeCounters, 7)},
  };
  for (const auto& [text, times] : rows) EXPECT_EQ(parseCpuTimes(text), times) << text;
}

TEST(ProcessStatParserTest, FieldsAfterTheLastParenthesisAndWideNumbersKeepLowBits) {
  const std::string head = " 1 7 0 0 -1 4194560 10 0 0 0 ";  // ppid .. cmajflt
  const std::string tail = " 0 0 20 0 1 0 500 1000 5 18446744073709551615\n";
  // text, parsed, then utime, stime, starttime and rss (the fields the monitors use)
  using Row = std::tuple<std::string, bool, uint32_t, uint32_t, uint64_t, int32_t>;
  const Row rows[] = {
      {"2790 (MediaCodec (1)) S" + head + "31 4" + tail, true, 31, 4, 500, 5},
      {"77 (x) R 99 99 (y) D" + head + "42 4" + tail, true, 42, 4, 500, 5},
      {"77 (a\n) b) R" + head + "43 4" + tail, true, 43, 4, 500, 5},
      {"9 () S" + head + "4294967301 -1 0 0 20 0 1 0 18446744073709551615 0 -2 0", true, 5,
       0xFFFFFFFFu, kMax, -2},
      {"9 (p) S" + head + "99999999999999999999 0 0 0 20 0 1 0 7 0 4294967298 0", true,
       0xFFFFFFFFu, 0, 7, 2},
      {"", false, 0, 0, 0, 0},
      {"77 init S" + head + "1 2" + tail, false, 0, 0, 0, 0},  // no parenthesis
      {"pid (init) S" + head + "1 2" + tail, false, 0, 0, 0, 0},
      {"77 (init) S" + head + "1 2 0 0 20 0 1 0 500 1000 5", false, 0, 0, 0, 0},  // 22 fields
      {"77 (init) S 1 x 0 0 -1 0 0 0 0 0 0 0 0 0 20 0 1 0 5 0 1 0", false, 0, 0, 0, 0},
  };
  for (const auto& [text, ok, utime, stime, starttime, rss] : rows) {
    ProcessStat s{};
    ASSERT_EQ(parseProcessStat(text, s), ok) << text;
    if (!ok) continue;
    EXPECT_EQ(std::make_tuple(s.utime, s.stime, s.starttime, s.rss),
              std::make_tuple(utime, stime, starttime, rss)) << text;
  }
}

TEST(ProcessNameParserTest, CommLineOfOneToThirtyBytesWithAWord) {
  const std::pair<std::string, std::string> rows[] = {  // comm line, name ("-": false)
      {std::string(29, 'x') + "\n", std::string(29, 'x')},  {std::string(30, 'x') + "\n", "-"},
      {std::string(30, 'x'), std::string(30, 'x')},         {"\n", "-"},  {"   \n", "-"},
      {"", "-"},  {"  surfaceflinger\n", "surfaceflinger"},  {"MediaCodec loop\n", "MediaCodec"},
      {"a\0b\n"s, "a"},
  };
  for (const auto& [line, expected] : rows) {
    char name[kProcessNameSize] = "-";
    parseProcessComm(line, name);
    EXPECT_EQ(name, expected) << line;
  }
}

TEST(ProcessNameParserTest, BinderThreadsTakeTheirProgramsName) {
  EXPECT_TRUE(isBinderThreadName("Binder:77_1"));
  EXPECT_TRUE(isBinderThreadName("HwBinder:77_2"));
  EXPECT_FALSE(isBinderThreadName("binder:77_1"));
  const std::string path12k =
      "/data/app/" + std::string(11960, 'a') + "/system/bin/hw/vendor.sensors-svc";
  const std::pair<std::string, std::string> rows[] = {  // raw command line ("-": unread), name
      {"/system/bin/my daemon\0--x\0"s, "/system/bin/mydaemon"},
      {"/vendor/bin/a\tb c", "/vendor/bin/abc"},
      {"/vendor/bin/hw/vendor.sensors-svc-abcdef", "in/hw/vendor.sensors-svc-abcdef"},  // last 31
      {"/system/bin/Binder", "unknown"},  {"/x\0Binder\0"s, "/x"},  {"a\nBinder", "a\n"},
      {"\0/x\0"s, ""},  {"-", "unknown"},
      {path12k + "\0"s + std::string(9000, 'z'), "ystem/bin/hw/vendor.sensors-svc"},
      {std::string(12000, ' ') + "/system/bin/x" + std::string(12000, '\t'), "/system/bin/x"},
  };
  for (size_t pieceBytes : {size_t{1}, std::string::npos}) {  // a byte at a time, and whole
    for (const auto& [raw, expected] : rows) {
      FirstArgumentTail tail;
      size_t at = 0;
      while (at < raw.size() && parseCmdlinePiece(raw.substr(at, pieceBytes), tail)) at += pieceBytes;
      EXPECT_EQ(binderProcessName(raw != "-" ? &tail : nullptr), expected) << raw.substr(0, 40);
    }
  }
}

TEST(ProcessCmdlineParserTest, FirstArgumentAndTheFourKiBBound) {
  const std::pair<std::string, const char*> rows[] = {  // raw bytes, first argument (null: false)
      {"/system/bin/init\0--second-stage\0"s, "/system/bin/init"},  {"\0/x\0"s, ""},
      {"a\nb\0"s, "a\n"},  {"", nullptr},
  };
  for (const auto& [raw, expected] : rows) {
    std::string cmdline = "untouched";
    EXPECT_EQ(parseProcessCmdline(raw, cmdline), expected != nullptr) << raw;
    EXPECT_EQ(cmdline, expected != nullptr ? expected : "untouched") << raw;
  }
  std::string cmdline;
  ScratchFile longArgument(std::string(kMaxCmdlineBytes + 5000, 'a'));
  ASSERT_TRUE(StatUtil::getProcessCmdlineFromFile(longArgument.path(), cmdline));
  EXPECT_EQ(cmdline, std::string(kMaxCmdlineBytes, 'a'));
}

TEST(PerfinfoParserTest, FigureOfAPssAnswer) {
  const std::pair<const char*, long long> rows[] = {  // answer, kB (-1: false)
      {"Pss: 83412 kB\n", 83412},  {"Pss:7kB", 7},  {"Pss: -5 kB", -1},  {" Pss: 5 kB", -1},
      {"Pss: 18446744073709551616 kB", -1},  {"Rss: 5 kB", -1},  {"", -1},
  };
  for (const auto& [line, kb] : rows) {
    unsigned long value = 99;
    EXPECT_EQ(parsePerfinfoPss(line, value), kb >= 0) << line;
    EXPECT_EQ(value, kb >= 0 ? static_cast<unsigned long>(kb) : 99ul) << line;
  }
}

TEST(SmapsRollupParserTest, OnlyAWholePssLineGivesAFigure) {
  const std::string head = "00400000-7ffff000 ---p 00000000 00:00 0 [rollup]\nRss: 900 kB\n";
  const std::pair<std::string, long long> rows[] = {  // text after head, kB (-1: false)
      {"Pss:  183000 kB\nPss_Anon: 7 kB\n", 183000},
      {"Pss_Anon: 7 kB\nPss: 5 kB\n", 5},  // a longer key is another line
      {"Pss_Anon: 7 kB\n", -1},             // no Pss line at all
      {"Pss: 183", -1},                     // cut short: the figure may be a prefix
      {"Pss: 183 kB", -1},                  // cut before its newline
      {"Pss: 18446744073709551616 kB\n", -1},  {"Pss: -5 kB\n", -1},
      {"Pss: 5 MB\n", -1},  {"Pss: 5 kB x\n", -1},  {"Pss: 5 kB\nPss: 6 kB\n", 5},
  };
  for (const auto& [tail, kb] : rows) {
    unsigned long value = 99;
    EXPECT_EQ(parseSmapsRollupPss(head + tail, value), kb >= 0) << tail;
    EXPECT_EQ(value, kb >= 0 ? static_cast<unsigned long>(kb) : 99ul) << tail;
  }
}

TEST(PressureParserTest, TwoDecimalAveragesUpToAHundredAndWholeLinesOnly) {
  const std::string some = "some avg10=12.34 avg60=0.05 avg300=100.00 total=18446744073709551615\n";
  const std::string full = "full avg10=0.00 avg60=1.00 avg300=2.00 total=7\n";
  // text, then some's avg10, avg60, avg300, total and full's avg60 (-1: false)
  using Row = std::tuple<std::string, int, int, int, uint64_t, int>;
  const Row rows[] = {
      {some + full, 1234, 5, 10000, kMax, 100},
      {some, 1234, 5, 10000, kMax, -1},  // no "full" line (cpu before 5.13)
      {full + some, 1234, 5, 10000, kMax, 100},
      {full, -1, 0, 0, 0, 0},  {"", -1, 0, 0, 0, 0},  {some + some, -1, 0, 0, 0, 0},
      {some + "half avg10=0.00 avg60=0.00 avg300=0.00 total=0\n", -1, 0, 0, 0, 0},
      {some + full.substr(0, 30), -1, 0, 0, 0, 0},          // cut short
      {some.substr(0, some.size() - 1), -1, 0, 0, 0, 0},    // cut before the newline
      {"some avg10=100.01 avg60=0.00 avg300=0.00 total=0\n", -1, 0, 0, 0, 0},
      {"some avg10=101.00 avg60=0.00 avg300=0.00 total=0\n", -1, 0, 0, 0, 0},
      {"some avg10=99999999999999999999.00 avg60=0.00 avg300=0.00 total=0\n", -1, 0, 0, 0, 0},
      // x 100 + 16 is 2^64, which would wrap to 0.00
      {"some avg10=184467440737095516.16 avg60=0.00 avg300=0.00 total=0\n", -1, 0, 0, 0, 0},
      {"some avg10=1.5 avg60=0.00 avg300=0.00 total=0\n", -1, 0, 0, 0, 0},
      {"some avg10=.50 avg60=0.00 avg300=0.00 total=0\n", -1, 0, 0, 0, 0},
      {"some avg10=-1.00 avg60=0.00 avg300=0.00 total=0\n", -1, 0, 0, 0, 0},
      {"some avg10=1.-5 avg60=0.00 avg300=0.00 total=0\n", -1, 0, 0, 0, 0},
      {"some avg60=0.00 avg10=1.00 avg300=0.00 total=0\n", -1, 0, 0, 0, 0},
      {"some avg10=1.00 avg60=0.00 avg300=0.00 total=18446744073709551616\n", -1, 0, 0, 0, 0},
      {"some avg10=1.00 avg60=0.00 avg300=0.00 total=-1\n", -1, 0, 0, 0, 0},
      {"some avg10=1.00 avg60=0.00 avg300=0.00\n", -1, 0, 0, 0, 0},
      {"some avg10=1.00 avg60=0.00 avg300=0.00 total=5 more\n", -1, 0, 0, 0, 0},
  };
  for (const auto& [text, avg10, avg60, avg300, total, fullAvg60] : rows) {
    PressureStall p;
    ASSERT_EQ(parsePressure(text, p), avg10 >= 0) << text;
    if (avg10 < 0) continue;
    EXPECT_EQ(std::make_tuple(p.some.avg10, p.some.avg60, p.some.avg300, p.some.totalUs),
              std::make_tuple(avg10, avg60, avg300, total)) << text;
    EXPECT_EQ(p.full.present ? static_cast<int>(p.full.avg60) : -1, fullAvg60) << text;
  }
}

// A file that never ends (a device where a kernel file belongs) gives each
// reader a bounded reading; the command line's bound is pinned exactly above.
TEST(EndlessKernelFileTest, ReadersStopAtTheirBound) {
  const char* endless = "/dev/zero";
  EXPECT_EQ(StatUtil::getUptimeFromFile(endless), 0);
  EXPECT_TRUE(StatUtil::getCpuTimesFromFile(endless).empty());
  SysMeminfoKb m;
  EXPECT_TRUE(StatUtil::getMeminfoFromFile(endless, m));
  std::map<std::string, unsigned long> lmk{{"Fg", 9}};
  EXPECT_FALSE(StatUtil::getLmkStatsFromFile(endless, lmk));
  ProcessStat stat{};
  EXPECT_FALSE(StatUtil::getProcessStatFromFile(endless, stat));
  unsigned long value = 7;
  EXPECT_TRUE(StatUtil::getUintValueFromFile(value, endless));
  EXPECT_EQ(value, 0u);
  EXPECT_FALSE(StatUtil::getSmapsRollupPssFromFile(endless, value));
  PressureStall pressure;
  EXPECT_EQ(StatUtil::getPressureFromFile(endless, pressure), EBADMSG);
  // A file that opens but fails to read (as one of a kernel with pressure
  // stall information switched off does) says why.
  EXPECT_EQ(StatUtil::getPressureFromFile("/", pressure), EISDIR);
  EXPECT_EQ(StatUtil::getPressureFromFile("/nonexistent/pressure", pressure), ENOENT);
}

}  // namespace
}  // namespace halvexd
