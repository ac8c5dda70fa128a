// The host stand-ins whose output other programs read back: the log formats
// the decoding tools parse, and the property file.
#include <android/log.h>
#include <cutils/properties.h>
#include <gtest/gtest.h>

#include "platform/host/HostLog.h"
#include "tests/support/TestSupport.h"

namespace halvexd {
namespace {

using hostlog::LogRecord;

TEST(HostLogTest, JsonLineKeepsKeyOrderAndEscapesOnlyWhatJsonNeeds) {
  const std::pair<LogRecord, std::string> rows[] = {
      {{3, 4, "halvexd", "a\nb\n"}, R"({"buf":3,"prio":4,"tag":"halvexd","msg":"a\nb\n"})"},
      {{8, 4, "metrics.halvexd", "a\"b\\c\td"},
       R"({"buf":8,"prio":4,"tag":"metrics.halvexd","msg":"a\"b\\c\td"})"},
      {{3, 3, "t", std::string("x\x01y\x1f", 4)}, R"({"buf":3,"prio":3,"tag":"t","msg":"x\u0001y\u001f"})"},
      {{3, 6, "t", "caf\xc3\xa9 100%"}, "{\"buf\":3,\"prio\":6,\"tag\":\"t\",\"msg\":\"caf\xc3\xa9 100%\"}"},
  };
  for (const auto& [record, expected] : rows) EXPECT_EQ(hostlog::formatJsonLine(record), expected + "\n");
}

TEST(HostLogTest, TextLinesFollowTheLogcatLayoutOneLinePerMessageLine) {
  const long long millis = 1795316645067LL;  // .067 seconds past, in any time zone
  std::string text = hostlog::formatTextLines({3, ANDROID_LOG_WARN, "halvexd", "a\nb\n\n"}, millis, 42);
  const std::string head = text.substr(0, 19);
  EXPECT_EQ(head.substr(14), ".067 ");
  EXPECT_EQ(text, head + "   42    42 W halvexd: a\n" + head + "   42    42 W halvexd: b\n");
  EXPECT_EQ(hostlog::formatTextLines({8, ANDROID_LOG_INFO, "metrics.halvexd", "r:1"}, millis, 7),
            "[metrics] " + head + "    7     7 I metrics.halvexd: r:1\n");
}

TEST(HostPropertiesTest, TruthWordsLastLineWinsAndDefaults) {
  testing::TempDir dir;
  testing::ScopedEnv properties(
      "HALVEXD_PROPERTIES",
      dir.write("props", "# a.one=0\na.one=1\na.y=y\na.yes=yes\na.on=on\na.true=true\n"
                         "b.n=n\nb.no=no\nb.off=off\nb.false=false\nc.odd=TRUE\nc.spaced= 1\n"
                         "d.twice=0\nd.twice=1\nhalvex.config.override=true\r\n"));
  const std::tuple<const char*, int8_t, int8_t> rows[] = {  // key, default, answer
      {"a.one", 0, 1},   {"a.y", 0, 1},      {"a.yes", 0, 1},     {"a.on", 0, 1},
      {"a.true", 0, 1},  {"b.n", 1, 0},      {"b.no", 1, 0},      {"b.off", 1, 0},
      {"b.false", 1, 0}, {"c.odd", 7, 7},    {"c.spaced", 0, 0},  {"missing", -1, -1},
      {"a", 1, 1},       {"d.twice", 0, 1},  {"halvex.config.override", 0, 1},
  };
  for (const auto& [key, fallback, expected] : rows) {
    EXPECT_EQ(property_get_bool(key, fallback), expected) << key;
  }
}

}  // namespace
}  // namespace halvexd
