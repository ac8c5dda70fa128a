// The host side of the platform interfaces: log record formats, properties
// and the sysroot mapping.
#include <android/log.h>
#include <cutils/properties.h>
#include <gtest/gtest.h>
#include <memtrack/memtrack.h>

#include "platform/LogBuffers.h"
#include "platform/Sysroot.h"
#include "platform/host/HostLog.h"
#include "tests/support/TestSupport.h"

namespace halvexd {
namespace {

using hostlog::formatJsonLine;
using hostlog::formatTextLines;
using testing::LogCapture;
using testing::LogRecord;
using testing::ScopedEnv;
using testing::ScopedSysroot;
using testing::TempDir;

TEST(HostLogTest, JsonLineKeepsKeyOrderAndEscapesOnlyWhatJsonNeeds) {
  struct Case {
    LogRecord record;
    std::string expected;
  };
  const Case cases[] = {
      {{3, 4, "halvexd", "Exiting"}, R"({"buf":3,"prio":4,"tag":"halvexd","msg":"Exiting"})"},
      {{3, 4, "halvexd", "Starting daemon\nSample interval = 120 ticks\n"},
       R"({"buf":3,"prio":4,"tag":"halvexd","msg":"Starting daemon\nSample interval = 120 ticks\n"})"},
      {{8, 4, "metrics.halvexd", "a\"b\\c\td"},
       R"({"buf":8,"prio":4,"tag":"metrics.halvexd","msg":"a\"b\\c\td"})"},
      {{3, 3, "t", std::string("x\x01y\x1f", 4)}, R"({"buf":3,"prio":3,"tag":"t","msg":"x\u0001y\u001f"})"},
      {{3, 6, "t", "caf\xc3\xa9 100%"}, "{\"buf\":3,\"prio\":6,\"tag\":\"t\",\"msg\":\"caf\xc3\xa9 100%\"}"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(formatJsonLine(c.record), c.expected + "\n");
  }
}

TEST(HostLogTest, TextLinesFollowLogcatLayout) {
  // 2026-11-22 03:04:05.067 in whatever zone the host uses: check the parts
  // that do not depend on it.
  long long millis = 1795316645067LL;
  std::string line = formatTextLines({3, ANDROID_LOG_WARN, "halvexd", "WARN: x"}, millis, 42);
  EXPECT_EQ(line.substr(5, 1), " ");
  EXPECT_EQ(line.substr(14, 5), ".067 ");
  EXPECT_EQ(line.substr(19), "   42    42 W halvexd: WARN: x\n");

  std::string metric = formatTextLines({8, ANDROID_LOG_INFO, "metrics.halvexd", "r:1"}, millis, 7);
  EXPECT_EQ(metric.rfind("[metrics] ", 0), 0u);
  EXPECT_EQ(metric.substr(10 + 19), "    7     7 I metrics.halvexd: r:1\n");
}

TEST(HostLogTest, TextLinesSplitEmbeddedNewlinesLikeLogcat) {
  std::string text = formatTextLines({3, ANDROID_LOG_INFO, "halvexd", "a\nb\n\n"}, 0, 1);
  size_t firstEnd = text.find('\n');
  ASSERT_NE(firstEnd, std::string::npos);
  std::string header = text.substr(0, text.find("a\n"));
  EXPECT_EQ(text, header + "a\n" + header + "b\n");
  EXPECT_EQ(header.substr(header.size() - 11), "I halvexd: ");
}

TEST(HostLogTest, EveryPriorityReachesTheHookWithItsBuffer) {
  LogCapture capture;
  __android_log_buf_print(kSystemLogBuffer, ANDROID_LOG_DEBUG, "t", "debug %d", 1);
  __android_log_buf_print(kMetricsLogBuffer, ANDROID_LOG_INFO, "m", "%s", "rec");
  __android_log_buf_print(kSystemLogBuffer, ANDROID_LOG_ERROR, "t", "%s", "");
  EXPECT_EQ(capture.records(), (std::vector<LogRecord>{{3, ANDROID_LOG_DEBUG, "t", "debug 1"},
                                                       {8, ANDROID_LOG_INFO, "m", "rec"},
                                                       {3, ANDROID_LOG_ERROR, "t", ""}}));
}

TEST(HostPropertiesTest, TruthWordsAndDefaults) {
  TempDir dir;
  std::string file = dir.write("props",
                               "# comment=1\n"
                               "a.one=1\na.y=y\na.yes=yes\na.on=on\na.true=true\n"
                               "b.zero=0\nb.n=n\nb.no=no\nb.off=off\nb.false=false\n"
                               "c.odd=TRUE\nc.empty=\nc.spaced= 1\n"
                               "d.twice=0\nd.twice=1\n"
                               "halvex.config.override=true\r\n");
  ScopedEnv properties("HALVEXD_PROPERTIES", file);
  struct Case {
    const char* key;
    int8_t defaultValue;
    int8_t expected;
  };
  const Case cases[] = {
      {"a.one", false, true},       {"a.y", false, true},        {"a.yes", false, true},
      {"a.on", false, true},        {"a.true", false, true},     {"b.zero", true, false},
      {"b.n", true, false},         {"b.no", true, false},       {"b.off", true, false},
      {"b.false", true, false},     {"c.odd", false, false},     {"c.odd", true, true},
      {"c.empty", true, true},      {"c.spaced", false, false},  {"missing", true, true},
      {"missing", false, false},    {"a", true, true},           {"d.twice", false, true},
      {"halvex.config.override", false, true},
      // The default comes back as given, not folded to 0 or 1.
      {"missing", -1, -1},          {"c.odd", 7, 7},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(static_cast<int>(property_get_bool(c.key, c.defaultValue)), c.expected)
        << c.key << " default " << static_cast<int>(c.defaultValue);
  }
}

TEST(HostPropertiesTest, NoPropertyFileGivesDefaults) {
  ScopedEnv properties("HALVEXD_PROPERTIES", "/nonexistent/halvexd.props");
  EXPECT_TRUE(property_get_bool("halvex.config.override", true));
  EXPECT_FALSE(property_get_bool("halvex.config.override", false));
}

TEST(HostMemtrackTest, ReportsZeroWithoutFailing) {
  memtrack_proc* handle = memtrack_proc_new();
  ASSERT_NE(handle, nullptr);
  EXPECT_EQ(memtrack_proc_get(handle, 1), 0);
  EXPECT_EQ(memtrack_proc_graphics_pss(handle), 0);
  EXPECT_EQ(memtrack_proc_gl_pss(handle), 0);
  EXPECT_EQ(memtrack_proc_other_pss(handle), 0);
  memtrack_proc_destroy(handle);
}

TEST(SysrootTest, MapsAbsolutePathsUnderTheRoot) {
  struct Case {
    const char* root;
    const char* path;
    std::string expected;
  };
  const Case cases[] = {
      {"/tmp/dev", "/proc/meminfo", "/tmp/dev/proc/meminfo"},
      {"/tmp/dev/", "/proc/uptime", "/tmp/dev/proc/uptime"},
      {"/tmp/dev//", "/data", "/tmp/dev/data"},
      {"/", "/system", "/system"},
      {"", "/proc/stat", "/proc/stat"},
  };
  for (const auto& c : cases) {
    ScopedSysroot root(c.root);
    EXPECT_EQ(sysrootPath(c.path), c.expected) << "root '" << c.root << "'";
  }
}

}  // namespace
}  // namespace halvexd
