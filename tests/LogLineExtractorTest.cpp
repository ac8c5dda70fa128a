// Picking metric records out of log lines in every form they are read in,
// and reading a stream line by line within a bound.
#include <gtest/gtest.h>

#include <sstream>

#include "tools/decode/LogLineExtractor.h"
#include "tools/decode/LogLineReader.h"

namespace halvexd {
namespace {

using tools::LogLineExtractor;
using tools::LogLineReader;

TEST(LogLineExtractorTest, RecordsOfTheMetricsTagInEveryForm) {
  struct Row {
    const char* proves;
    std::string line;
    bool isRecord;
    std::string message;
  };
  const Row rows[] = {
      {"host jsonl", R"({"buf":8,"prio":4,"tag":"metrics.halvexd","msg":"a=1"})", true, "a=1"},
      {"jsonl escapes are undone", R"({"buf":8,"prio":4,"tag":"metrics.halvexd","msg":"a\"b\\c\u00e9"})",
       true, "a\"b\\c\xc3\xa9"},
      {"jsonl of another tag", R"({"buf":3,"prio":4,"tag":"halvexd","msg":"Exiting"})", false, ""},
      {"jsonl cut short", R"({"buf":8,"prio":4,"tag":"metrics.halvexd","msg":"a=)", false, ""},
      {"jsonl with text after it", R"({"tag":"metrics.halvexd","msg":"a"} x)", false, ""},
      {"jsonl whose msg is no string", R"({"tag":"metrics.halvexd","msg":5})", false, ""},
      {"jsonl with a NUL inside", std::string("{\"tag\":\"metrics.halvexd\",\"msg\":\"a\"}\0x", 38),
       false, ""},
      {"host text of the metrics buffer",
       "[metrics] 11-23 03:27:03.123  4711  4711 I metrics.halvexd: XTablet:P:a=1;CT;1:NR", true,
       "XTablet:P:a=1;CT;1:NR"},
      {"logcat threadtime", "11-23 03:27:03.123  4711  4718 I metrics.halvexd: a b: c", true,
       "a b: c"},
      {"threadtime with the tag padded", "11-23 03:27:03.123 4711 4718 I metrics.halvexd   : x",
       true, "x"},
      {"threadtime with an empty message", "11-23 03:27:03.123  4711  4718 I metrics.halvexd:",
       true, ""},
      {"threadtime of a tag holding ':'",
       "11-23 03:27:03.123  4711  4711 E halvexd:MonitorEngine: Error while running X", false, ""},
      {"threadtime of a longer tag with our tag as its start",
       "11-23 03:27:03.123  4711  4711 I metrics.halvexdx: a", false, ""},
      {"threadtime without a tid", "11-23 03:27:03.123  4711 I metrics.halvexd: a", false, ""},
      {"threadtime with a letter no priority has", "11-23 03:27:03.123  4711  4711 Q metrics.halvexd: a",
       false, ""},
      {"logcat brief", "I/metrics.halvexd( 4711): XTablet:P:a=1;CT;1:NR", true,
       "XTablet:P:a=1;CT;1:NR"},
      {"brief of another tag", "I/halvexd( 4711): Exiting", false, ""},
      {"brief without the pid's ')'", "I/metrics.halvexd( 4711: a", false, ""},
      {"the -b all separator", "--------- beginning of main", false, ""},
      {"an empty line", "", false, ""},
      {"a line of nothing in particular", "metrics.halvexd: a=1", false, ""},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.proves);
    std::string message = "unchanged";
    EXPECT_EQ(LogLineExtractor::extract(row.line, message), row.isRecord);
    EXPECT_EQ(message, row.isRecord ? row.message : "unchanged");
  }
}

TEST(LogLineReaderTest, LinesWithinTheBoundAndPastIt) {
  // The bound is 8 bytes here: line 2 has exactly 8, line 3 one more.
  std::istringstream in("a\r\n12345678\n123456789\n\nlast");
  LogLineReader reader(in, 8);
  struct Expected {
    size_t number;
    std::string text;
    bool tooLong;
  };
  const Expected expected[] = {
      {1, "a", false}, {2, "12345678", false}, {3, "", true}, {4, "", false}, {5, "last", false}};
  LogLineReader::Line line;
  for (const Expected& e : expected) {
    ASSERT_TRUE(reader.next(line));
    EXPECT_EQ(line.number, e.number);
    EXPECT_EQ(line.text, e.text);
    EXPECT_EQ(line.tooLong, e.tooLong);
    EXPECT_LE(line.text.capacity(), 64u) << "line " << e.number << " kept more than its bound";
  }
  EXPECT_FALSE(reader.next(line));
}

TEST(LogLineReaderTest, AHugeLineIsPassedOverWithoutBeingHeld) {
  std::string huge(8 * 1024 * 1024, 'x');
  std::istringstream in(huge + "\nafter\n");
  LogLineReader reader(in, 1024);
  LogLineReader::Line line;
  ASSERT_TRUE(reader.next(line));
  EXPECT_TRUE(line.tooLong);
  EXPECT_LE(line.text.capacity(), 1024u + 64u);
  ASSERT_TRUE(reader.next(line));
  EXPECT_EQ(line.text, "after");
  EXPECT_EQ(line.number, 2u);
}

}  // namespace
}  // namespace halvexd
