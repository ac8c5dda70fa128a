// The decoder over whole logs: its JSON and CSV lines, check mode's report,
// and its exit status when records cannot be read.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <sstream>

#include "config/HalvexConfig.h"
#include "tests/support/MetricRecords.h"
#include "tests/support/TestSupport.h"
#include "tools/decode/DecodeCommand.h"
#include "tools/decode/DecodedValueWriter.h"
#include "tools/decode/RecordDecoder.h"
#include "tools/decode/StructuredRecordAttributor.h"

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

Outcome decode(RecordDecoder::Mode mode, const std::string& log, size_t maxLineBytes = 1024,
               const HalvexConfig* config = nullptr) {
  std::unique_ptr<tools::StructuredRecordAttributor> attributor;
  if (config != nullptr) attributor = std::make_unique<tools::StructuredRecordAttributor>(*config);
  MetricRecordParser parser(attributor.get());
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

// The records of one configuration: a single-value name, a multi-field name
// with an untagged descriptor before a tagged one, a system-health name and
// a name whose schema id is "100".
void fillRecordsConfig(HalvexConfig& config) {
  config.vedrixConfig.enabled = true;
  auto single = [&](const std::string& name, const std::string& schema) {
    auto& record = config.monitorConfigs[name];
    record.metricName = name;
    record.vedrixMetricInterface.active = true;
    record.vedrixMetricInterface.groupId = "g";
    record.vedrixMetricInterface.schemaId = schema;
    record.vedrixMetricInterface.metricKey.dimensionTag = "metric";
    record.vedrixMetricInterface.metricValue.dimensionTag = "value";
  };
  single("CpuUsageMonitor", "cpu");
  single("MemoryUsageMonitor", "100");
  auto& disk = config.monitorConfigs["PercentageUsed"];
  disk.metricName = "PercentageUsed";
  disk.vedrixMetricInterface.groupId = "g";
  disk.vedrixMetricInterface.schemaId = "disk";
  disk.vedrixMetricInterface.metrics = {{"partition_path", "A", "path"},
                                        {"percent_used", "B", "str"}};
  auto& health = config.monitorConfigs["SysHealthCpuUsage"];
  health.metricName = "SysHealthCpuUsage";
  health.vedrixMetricInterface.groupId = "g";
  health.vedrixMetricInterface.schemaId = "health";
  // Written in field-name order: values before the period.
  health.vedrixMetricInterface.metrics = {{"cpu_sys_aggregation_period", "P", "int"},
                                          {"cpu_metric_values", "V", "str"}};
}

std::string threadtime(const std::string& message) {
  return "11-23 03:27:03.123  4711  4711 I metrics.halvexd: " + message + "\n";
}

TEST(RecordDecoderTest, DescriptorsSplitBodiesWhoseValuesHoldSeparators) {
  HalvexConfig config;
  fillRecordsConfig(config);
  struct Row {
    const char* proves;
    std::string body;
    std::string withConfig;     // CSV rows without the header, or the check line
    std::string withoutConfig;  // what the best-effort split makes of it
  };
  const Row rows[] = {
      {"an untagged FIELD before a tagged one ends at the ',' its descriptor puts there",
       "g:disk:100:A=1,B=x;SY",
       "1,structured,fields,,PercentageUsed,partition_path,1,,g,disk,,A,\n"
       "1,structured,fields,,PercentageUsed,percent_used,x,SY,g,disk,,B,\n",
       "1,structured,fields,,,A,\"1,B=x\",SY,g,disk,,A,\n"},
      {"a system-health value holding ',' and \";IN,\" is read whole",
       "g:health:100:V=x;IN,y|12.500000;SY,P=120;IN",
       "1,structured,fields,,SysHealthCpuUsage,cpu_metric_values,\"x;IN,y|12.500000\",SY,g,"
       "health,,V,\n"
       "1,structured,fields,,SysHealthCpuUsage,cpu_sys_aggregation_period,120,IN,g,health,,P,\n",
       "1,structured,fields,,,V,\"x;IN,y|12.500000\",SY,g,health,,V,\n"
       "1,structured,fields,,,P,120,IN,g,health,,P,\n"},
  };
  const std::string header =
      "line,kind,form,prefix,publish,metric,value,type,group,schema,key_tag,value_tag,region\n";
  for (const Row& row : rows) {
    SCOPED_TRACE(row.proves);
    const std::string log = threadtime(row.body + kDeviceTail);
    Outcome configured = decode(RecordDecoder::Mode::Csv, log, 1024, &config);
    EXPECT_EQ(configured.status, 0) << configured.err;
    EXPECT_EQ(configured.out, header + row.withConfig);
    Outcome bare = decode(RecordDecoder::Mode::Csv, log);
    EXPECT_EQ(bare.out, header + row.withoutConfig);
    // Neither reading is called malformed.
    EXPECT_EQ(decode(RecordDecoder::Mode::Check, log, 1024, &config).out,
              "1 metric records checked, 0 malformed\n");
    EXPECT_EQ(decode(RecordDecoder::Mode::Check, log).out,
              "1 metric records checked, 0 malformed\n");
  }
}

TEST(RecordDecoderTest, BriefLogcatAndJsonlLinesAreDecoded) {
  const std::string log =
      "I/metrics.halvexd( 4711): XTablet:P:a=12.5;CT;1:NR\n"
      "{\"buf\":8,\"prio\":4,\"tag\":\"metrics.halvexd\",\"msg\":\"g:cpu:100:metric=m;SY,"
      "value=3;IN" + kDeviceTail + ":eu\"}\n";
  Outcome run = decode(RecordDecoder::Mode::Csv, log);
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.err, "");
  EXPECT_EQ(run.out,
            "line,kind,form,prefix,publish,metric,value,type,group,schema,key_tag,value_tag,region\n"
            "1,plain,,XTablet,P,a,12.5,CT,,,,,\n"
            "2,structured,single,,,m,3,IN,g,cpu,metric,value,eu\n");
}

TEST(RecordDecoderTest, CheckAcceptsOnlyValuesTheDaemonCanWrite) {
  HalvexConfig config;
  fillRecordsConfig(config);
  struct Row {
    const char* proves;
    std::string message;
    std::string error;  // empty: accepted
  };
  auto single = [](const std::string& value) {
    return "g:cpu:100:metric=m;SY,value=" + value + kDeviceTail;
  };
  const Row rows[] = {
      {"an integer store's zero", single("0;IN"), ""},
      {"the largest uint64", single("18446744073709551615;IN"), ""},
      {"a double rounded to six digits", single("0.123457;FL"), ""},
      {"a double's trailing zeros dropped", single("12.5;FL"), ""},
      {"a whole double without a point", single("3;FL"), ""},
      {"a large double in exponent form", single("1.23457e+06;FL"), ""},
      {"a small double in exponent form", single("1e-05;FL"), ""},
      {"nan", single("nan;FL"), ""},
      {"negative nan", single("-nan;FL"), ""},
      {"infinity", single("inf;FL"), ""},
      {"negative infinity", single("-inf;FL"), ""},
      {"a string type tag on a single value", single("1;SY"),
       "single value \"m\" has the type tag \";SY\" (the daemon writes \";IN\" or \";FL\")"},
      {"a single value without a type tag", single("1"),
       "single value \"m\" has no type tag (the daemon writes \";IN\" or \";FL\")"},
      {"a sign on an integer", single("+1;IN"),
       "single value \"m\": \";IN\" value \"+1\" is not an unsigned decimal as the daemon writes "
       "it"},
      {"a negative integer", single("-1;IN"),
       "single value \"m\": \";IN\" value \"-1\" is not an unsigned decimal as the daemon writes "
       "it"},
      {"leading zeros on an integer", single("007;IN"),
       "single value \"m\": \";IN\" value \"007\" is not an unsigned decimal as the daemon writes "
       "it"},
      {"a point in an integer", single("1.0;IN"),
       "single value \"m\": \";IN\" value \"1.0\" is not an unsigned decimal as the daemon writes "
       "it"},
      {"one above the largest uint64", single("18446744073709551616;IN"),
       "single value \"m\": \";IN\" value \"18446744073709551616\" is not an unsigned decimal as "
       "the daemon writes it"},
      {"a trailing \".0\" on a double", single("1.0;FL"),
       "single value \"m\": \";FL\" value \"1.0\" is not a double as the daemon writes it (six "
       "significant digits, shortest form)"},
      {"trailing zeros on a double", single("12.50000;FL"),
       "single value \"m\": \";FL\" value \"12.50000\" is not a double as the daemon writes it "
       "(six significant digits, shortest form)"},
      {"leading zeros on a double", single("007;FL"),
       "single value \"m\": \";FL\" value \"007\" is not a double as the daemon writes it (six "
       "significant digits, shortest form)"},
      {"a three-digit exponent", single("1.23e+006;FL"),
       "single value \"m\": \";FL\" value \"1.23e+006\" is not a double as the daemon writes it "
       "(six significant digits, shortest form)"},
      {"a schema id of \"100\" is read as the schema",
       "g:100:100:metric=m;SY,value=5;IN" + kDeviceTail, ""},
      {"tags the record's configuration does not have",
       "g:cpu:100:m=x;SY,v=7;IN" + kDeviceTail,
       "configuration record \"CpuUsageMonitor\" has no descriptors, so no multi-field body fits "
       "it"},
      {"FIELDs out of their descriptor order",
       "g:disk:100:B=x;SY,A=1" + kDeviceTail,
       "body \"B=x;SY,A=1\" does not fit the descriptors of \"PercentageUsed\" (FIELDs "
       "\"<tag>=<value><type tag>\" in descriptor order)"},
      {"plain entries hold integers and doubles as stored",
       "XTablet:P:a=18446744073709551615;CT;1,b=1.23457e+06;CT;1,c=-nan;CT;1:NR", ""},
      {"a plain entry with leading zeros", "XTablet:P:a=007;CT;1:NR",
       "entry 1 (a): value \"007\" is not a number"},
      {"a plain entry with a trailing \".0\"", "XTablet:P:a=1.0;CT;1:NR",
       "entry 1 (a): value \"1.0\" is not a number"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.proves);
    Outcome check = decode(RecordDecoder::Mode::Check, threadtime(row.message), 1024, &config);
    if (row.error.empty()) {
      EXPECT_EQ(check.status, 0);
      EXPECT_EQ(check.out, "1 metric records checked, 0 malformed\n");
    } else {
      EXPECT_EQ(check.status, 1);
      EXPECT_EQ(check.out, "line 1: " + row.error + "\n1 metric records checked, 1 malformed\n");
    }
  }
  // The schema "100" record is the memory record's, found by its labels.
  Outcome decoded = decode(RecordDecoder::Mode::Csv,
                           threadtime("g:100:100:metric=m;SY,value=5;IN" + kDeviceTail), 1024,
                           &config);
  EXPECT_EQ(decoded.out.substr(decoded.out.find('\n') + 1),
            "1,structured,single,,MemoryUsageMonitor,m,5,IN,g,100,metric,value,\n");
}

TEST(RecordDecoderTest, ADirectoryIsRefusedAsArgumentAndAsStandardInput) {
  struct Row {
    const char* proves;
    std::vector<std::string> args;
    std::string err;
  };
  const Row rows[] = {
      {"a directory named", {"--check", "/"}, "halvex-decode: cannot read /: it is a directory\n"},
      {"a directory on standard input", {"--check"},
       "halvex-decode: cannot read standard input: it is a directory\n"},
      {"a directory on standard input named \"-\"", {"-"},
       "halvex-decode: cannot read standard input: it is a directory\n"},
  };
  const int directory = open("/", O_RDONLY | O_DIRECTORY);
  ASSERT_GE(directory, 0);
  for (const Row& row : rows) {
    SCOPED_TRACE(row.proves);
    std::istringstream in;
    std::ostringstream out, err;
    EXPECT_EQ(tools::runDecode(row.args, in, directory, out, err), 2);
    EXPECT_EQ(out.str(), "");
    EXPECT_EQ(err.str(), row.err);
  }
  close(directory);
}

}  // namespace
}  // namespace halvexd
