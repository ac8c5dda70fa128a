// The decoder over whole logs: its JSON and CSV lines, check mode's report,
// and its exit status when records cannot be read.
#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

#include "tests/support/MetricRecords.h"
#include "tools/DecodedValueWriter.h"
#include "tools/RecordDecoder.h"

namespace halvexd {
namespace {

using testing::kDeviceTail;
using tools::DecodedValueWriter;
using tools::MetricRecordParser;
using tools::RecordDecoder;

const std::string kLog =
    "--------- beginning of main\n"
    "11-23 03:27:03.120  4711  4711 I halvexd: Load JSON config done\n"
    "--------- beginning of metrics\n"
    "11-23 03:27:03.123  4711  4711 I metrics.halvexd: PssKBTablet:PssKB:a\"b=7;CT;1:NR\n"
    "11-23 03:27:03.124  4711  4711 I metrics.halvexd: g:s:100:metric=x,y;SY,value=1.5;FL" +
    kDeviceTail + ":eu\n";

struct Outcome {
  int status;
  std::string out;
  std::string err;
};

Outcome decode(RecordDecoder::Mode mode, const std::string& log, size_t maxLineBytes = 1024) {
  MetricRecordParser parser;
  RecordDecoder decoder(mode, parser, maxLineBytes);
  std::istringstream in(log);
  std::ostringstream out, err;
  int status = decoder.run(in, out, err);
  return {status, out.str(), err.str()};
}

TEST(RecordDecoderTest, JsonLinesOneValueEach) {
  Outcome run = decode(RecordDecoder::Mode::JsonLines, kLog);
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.err, "");
  EXPECT_EQ(run.out,
            "{\"line\":4,\"kind\":\"plain\",\"form\":\"\",\"prefix\":\"PssKBTablet\",\"publish\":"
            "\"PssKB\",\"metric\":\"a\\\"b\",\"value\":\"7\",\"type\":\"CT\",\"group\":\"\","
            "\"schema\":\"\",\"key_tag\":\"\",\"value_tag\":\"\",\"region\":\"\"}\n"
            "{\"line\":5,\"kind\":\"structured\",\"form\":\"single\",\"prefix\":\"\",\"publish\":"
            "\"\",\"metric\":\"x,y\",\"value\":\"1.5\",\"type\":\"FL\",\"group\":\"g\",\"schema\":"
            "\"s\",\"key_tag\":\"metric\",\"value_tag\":\"value\",\"region\":\"eu\"}\n");
}

TEST(RecordDecoderTest, CsvWithAHeaderAndQuotedFields) {
  Outcome run = decode(RecordDecoder::Mode::Csv, kLog);
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out,
            "line,kind,form,prefix,publish,metric,value,type,group,schema,key_tag,value_tag,region\n"
            "4,plain,,PssKBTablet,PssKB,\"a\"\"b\",7,CT,,,,,\n"
            "5,structured,single,,,\"x,y\",1.5,FL,g,s,metric,value,eu\n");
}

TEST(RecordDecoderTest, CheckNamesEveryMalformedRecordByItsLine) {
  const std::string log = kLog +
                          "I/metrics.halvexd( 4711): XTablet:P:a=1;CT;1,:NR\n"
                          "I/halvexd( 4711): not a record at all\n"
                          "{\"tag\":\"metrics.halvexd\",\"msg\":\"g:s:100:" + kDeviceTail + "\"}\n" +
                          "11-23 03:27:03.125  4711  4711 I metrics.halvexd: " +
                          std::string(2000, 'z') + "\n";
  Outcome check = decode(RecordDecoder::Mode::Check, log);
  EXPECT_EQ(check.status, 1);
  EXPECT_EQ(check.err, "");
  EXPECT_EQ(check.out,
            "line 6: ',' after the last entry\n"
            "line 8: structured record with an empty body\n"
            "line 9: longer than 1024 bytes, not read\n"
            "4 metric records checked, 2 malformed, 1 line too long to read\n");

  // Decoding goes on past them, each named on the error stream.
  Outcome decoded = decode(RecordDecoder::Mode::JsonLines, log);
  EXPECT_EQ(decoded.status, 1);
  EXPECT_EQ(decoded.err,
            "line 6: ',' after the last entry\n"
            "line 8: structured record with an empty body\n"
            "line 9: longer than 1024 bytes, not read\n");
  EXPECT_EQ(std::count(decoded.out.begin(), decoded.out.end(), '\n'), 2);
}

TEST(RecordDecoderTest, CheckOfAGoodLogAndOfOneWithoutRecords) {
  Outcome good = decode(RecordDecoder::Mode::Check, kLog);
  EXPECT_EQ(good.status, 0);
  EXPECT_EQ(good.out, "2 metric records checked, 0 malformed\n");
  Outcome none = decode(RecordDecoder::Mode::Check, "");
  EXPECT_EQ(none.status, 0);
  EXPECT_EQ(none.out, "0 metric records checked, 0 malformed\n");
}

TEST(RecordDecoderTest, JsonStringsStayValidForAnyBytes) {
  struct Row {
    const char* proves;
    std::string text;
    std::string json;
  };
  const Row rows[] = {
      {"quote and backslash", "a\"b\\", "\"a\\\"b\\\\\""},
      {"control bytes and DEL", std::string("\x01\n\x7f", 3), "\"\\u0001\\u000a\\u007f\""},
      {"valid UTF-8 passes", "caf\xc3\xa9 \xe2\x82\xac \xf0\x9f\x98\x80",
       "\"caf\xc3\xa9 \xe2\x82\xac \xf0\x9f\x98\x80\""},
      {"a lone continuation byte", "a\x80" "b", "\"a\\u0080b\""},
      {"a sequence cut short at the end", "a\xe2\x82", "\"a\\u00e2\\u0082\""},
      {"an overlong form", "\xc0\xaf", "\"\\u00c0\\u00af\""},
      {"a surrogate", "\xed\xa0\x80", "\"\\u00ed\\u00a0\\u0080\""},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(DecodedValueWriter::jsonString(row.text), row.json) << row.proves;
  }
}

}  // namespace
}  // namespace halvexd
