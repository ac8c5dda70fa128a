// The record parser on records at the edges of the grammar: what it reads
// out of good ones, and the exact reason it gives for each bad one.
#include <gtest/gtest.h>

#include "config/HalvexConfig.h"
#include "tests/support/MetricRecords.h"
#include "tools/decode/MetricRecordParser.h"

namespace halvexd {
namespace {

using testing::kDeviceTail;
using tools::DecodedRecord;
using tools::MetricRecordParser;
using tools::StructuredForm;

// One value as "metric=value<type>[key|valueTag]" for compact rows.
std::string describe(const DecodedRecord& record) {
  std::string out;
  for (const auto& v : record.values) {
    out += (out.empty() ? "" : " ") + v.metric + "=" + v.value + "<" + v.typeTag + ">[" +
           v.keyTag + "|" + v.valueTag + "]";
  }
  return out;
}

TEST(MetricRecordParserTest, GoodRecordsGiveEveryValueWithItsLabels) {
  struct Row {
    const char* proves;
    std::string message;
    std::string prefix, publish, group, schema, region;
    StructuredForm form;
    bool trailingComma;
    std::string values;
  };
  const Row rows[] = {
      {"a plain record: store order kept, doubles as written",
       "CpuUsageMonitorTablet:cpu_usage:cpu_p50=12.5;CT;1,cpu_total=42;CT;1:NR",
       "CpuUsageMonitorTablet", "cpu_usage", "", "", "", StructuredForm::None, false,
       "cpu_p50=12.5<CT>[|] cpu_total=42<CT>[|]"},
      {"the empty owner name leaves the bare suffix; names may hold '=' and ','",
       "Tablet:CpuUsage:a,b=c=1.23457e+06;CT;1,x=-nan;CT;1:NR", "Tablet", "CpuUsage", "", "", "",
       StructuredForm::None, false, "a,b=c=1.23457e+06<CT>[|] x=-nan<CT>[|]"},
      {"a single-value record with a region",
       "grpA:sch7:100:metric=cpu_total;SY,value=42;IN" + kDeviceTail + ":eu", "", "", "grpA",
       "sch7", "eu", StructuredForm::SingleValue, false, "cpu_total=42<IN>[metric|value]"},
      {"no region and an empty group id: the header begins with ':'",
       ":sch7:100:metric=CPUUtilization.P50;SY,value=0.123457;FL" + kDeviceTail, "", "", "",
       "sch7", "", StructuredForm::SingleValue, false,
       "CPUUtilization.P50=0.123457<FL>[metric|value]"},
      {"a value without \";IN\" or \";FL\" is no single value: the body reads as FIELDs",
       "g:s:100:metric=m;SY,value=3" + kDeviceTail, "", "", "g", "s", "",
       StructuredForm::Fields, false, "metric=m<SY>[|metric] value=3<>[|value]"},
      {"FIELDs keep values holding ',' and '|', split only after a type tag",
       "hx_health:cpu:100:metricKeys=AppName|percentage;SY,metricValues=a,b|12.500000 c|1;SY,"
       "period=120;IN" + kDeviceTail + ":eu",
       "", "", "hx_health", "cpu", "eu", StructuredForm::Fields, false,
       "metricKeys=AppName|percentage<SY>[|metricKeys] metricValues=a,b|12.500000 c|1<SY>[|metricValues] "
       "period=120<IN>[|period]"},
      {"a left-out last FIELD leaves a trailing comma, read and marked",
       "g:s:100:A=1;IN," + kDeviceTail, "", "", "g", "s", "", StructuredForm::Fields, true,
       "A=1<IN>[|A]"},
      {"FIELDs of a type without a tag split at ','",
       "g:s:100:A=x,B=y" + kDeviceTail, "", "", "g", "s", "", StructuredForm::Fields, false,
       "A=x<>[|A] B=y<>[|B]"},
      {"a string value in the second place makes it FIELDs, not one value",
       "g:s:100:partition=/data;SY,path=/x;SY" + kDeviceTail, "", "", "g", "s", "",
       StructuredForm::Fields, false, "partition=/data<SY>[|partition] path=/x<SY>[|path]"},
  };
  MetricRecordParser parser;
  for (const Row& row : rows) {
    SCOPED_TRACE(row.proves);
    DecodedRecord record;
    std::string error;
    ASSERT_TRUE(parser.parse(row.message, record, error)) << error;
    EXPECT_EQ(record.prefix, row.prefix);
    EXPECT_EQ(record.publishName, row.publish);
    EXPECT_EQ(record.group, row.group);
    EXPECT_EQ(record.schema, row.schema);
    EXPECT_EQ(record.region, row.region);
    EXPECT_EQ(record.form, row.form);
    EXPECT_EQ(record.trailingComma, row.trailingComma);
    EXPECT_EQ(describe(record), row.values);
  }
}

TEST(MetricRecordParserTest, BadRecordsAreRefusedWithWhatIsWrong) {
  struct Row {
    const char* proves;
    std::string message;
    std::string error;
  };
  const Row rows[] = {
      {"no ending of either kind", "CpuUsageMonitorTablet:CpuUsage:a=1;CT;1",
       "neither a plain record (ending in \":NR\") nor a structured record (ending in the device "
       "fields)"},
      {"a device field missing",
       "g:s:100:metric=m;SY,value=1;IN,_softwareVersion=;SY,_deviceType=;SY:eu",
       "structured record whose device fields are incomplete or out of order"},
      {"one colon only", "CpuUsageMonitorTablet:NR", "plain record without \"<prefix>:<publish name>:\" before its entries"},
      {"prefix without the device suffix", "CpuUsageMonitor:CpuUsage:a=1;CT;1:NR",
       "record prefix \"CpuUsageMonitor\" does not end in the device suffix \"Tablet\""},
      {"empty publish name", "XTablet::a=1;CT;1:NR", "empty publish name"},
      {"no entries", "XTablet:P::NR", "plain record without entries"},
      {"a ':' the emit step would have replaced", "XTablet:P:a:b=1;CT;1:NR",
       "':' inside the entries (metric names are written without it)"},
      {"entry without its tag", "XTablet:P:a=1;CT;1,b=2:NR",
       "entry 2 \"b=2\" does not end in \";CT;1\""},
      {"entry without '='", "XTablet:P:a1;CT;1:NR", "entry 1 \"a1\" has no '='"},
      {"empty metric name", "XTablet:P:=1;CT;1:NR", "entry 1 has an empty metric name"},
      {"a ';' inside a name", "XTablet:P:a;b=1;CT;1:NR",
       "entry 1: metric name \"a;b\" holds ';'"},
      {"a value that is no number", "XTablet:P:a=1;CT;1,b=12 kB;CT;1:NR",
       "entry 2 (b): value \"12 kB\" is not a number"},
      {"entries run together", "XTablet:P:a=1;CT;1b=2;CT;1:NR",
       "entry 1 (a) is followed by \"b=2;CT;1\" instead of ','"},
      {"a comma after the last entry", "XTablet:P:a=1;CT;1,:NR", "',' after the last entry"},
      {"text after the device fields", "g:s:100:A=1;IN" + kDeviceTail + "eu",
       "text \"eu\" after the device fields (only \":<region>\" may follow)"},
      {"a ':' without a region", "g:s:100:A=1;IN" + kDeviceTail + ":",
       "':' after the device fields without a region"},
      {"no header", "metric=m;SY,value=1;IN" + kDeviceTail,
       "structured record without the header \"<group>:<schema>:100:\""},
      {"the header's 100 missing", "g:s:metric=m;SY,value=1;IN" + kDeviceTail,
       "structured record without the header \"<group>:<schema>:100:\""},
      {"empty body", "g:s:100:" + kDeviceTail, "structured record with an empty body"},
      {"two commas between FIELDs", "g:s:100:A=1;IN,,B=2;IN" + kDeviceTail,
       "field 2 is empty"},
      {"a FIELD without '='", "g:s:100:A=1;IN,B;IN" + kDeviceTail, "field 2 \"B;IN\" has no '='"},
      {"a FIELD without a tag", "g:s:100:=1;IN" + kDeviceTail, "field 1 \"=1;IN\" has an empty tag"},
      {"long pieces are cut in the message",
       "XTablet:P:" + std::string(70, 'n') + "1;CT;1:NR",
       "entry 1 \"" + std::string(60, 'n') + "...\" has no '='"},
  };
  MetricRecordParser parser;
  for (const Row& row : rows) {
    SCOPED_TRACE(row.proves);
    DecodedRecord record;
    std::string error;
    EXPECT_FALSE(parser.parse(row.message, record, error));
    EXPECT_EQ(error, row.error);
  }
}

TEST(MetricRecordParserTest, NumbersAsTheRecordsWriteThem) {
  struct Row {
    const char* text;
    bool number;
  };
  const Row rows[] = {
      {"0", true},           {"18446744073709551615", true}, {"-3", true},
      {"12.3457", true},     {"1.23457e+06", true},          {"1e-05", true},
      {"nan", true},         {"-nan", true},                 {"inf", true},
      {"-inf", true},        {"", false},                    {"-", false},
      {"1.", false},         {".5", false},                  {"1e5", false},
      {"1e+5", false},       {"12 kB", false},               {"0x10", false},
      {"+1", false},         {"1.2.3", false},               {"nanx", false},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(MetricRecordParser::isRecordNumber(row.text), row.number) << row.text;
  }
}

TEST(MetricRecordParserTest, AConfigurationNamesThePublishNameAndTheFields) {
  HalvexConfig config;
  config.vedrixConfig.defaultGroupId = "hx_tablet";
  auto& disk = config.monitorConfigs["PercentageUsed"];
  disk.metricName = "PercentageUsed";
  disk.vedrixMetricInterface.schemaId = "hx_disk_v1";
  disk.vedrixMetricInterface.metrics = {{"partition_path", "partition", "str"},
                                        {"percent_used", "percentUsed", "int"}};
  auto& cpu = config.monitorConfigs["CpuUsageMonitor"];
  cpu.metricName = "CpuUsageMonitor";
  cpu.vedrixMetricInterface.schemaId = "hx_cpu_sys_v1";
  cpu.vedrixMetricInterface.metricKey.dimensionTag = "metric";
  cpu.vedrixMetricInterface.metricValue.dimensionTag = "value";
  // Two records with one group and schema: neither can be told.
  for (const char* name : {"A", "B"}) {
    config.monitorConfigs[name].metricName = name;
    config.monitorConfigs[name].vedrixMetricInterface.groupId = "shared";
    config.monitorConfigs[name].vedrixMetricInterface.schemaId = "twice";
  }
  tools::StructuredRecordAttributor attributor(config);
  MetricRecordParser parser(&attributor);

  struct Row {
    const char* proves;
    std::string message;
    std::string publish;
    StructuredForm form;
    std::string values;
  };
  const Row rows[] = {
      {"the disk's pair record is FIELDs named after their descriptors",
       "hx_tablet:hx_disk_v1:100:partition=/data;SY,percentUsed=42;IN" + kDeviceTail,
       "PercentageUsed", StructuredForm::Fields,
       "partition_path=/data<SY>[|partition] percent_used=42<IN>[|percentUsed]"},
      {"the configured key and value tags make it one value",
       "hx_tablet:hx_cpu_sys_v1:100:metric=CPUUtilization.P50;SY,value=7;IN" + kDeviceTail,
       "CpuUsageMonitor", StructuredForm::SingleValue, "CPUUtilization.P50=7<IN>[metric|value]"},
      {"a group and schema two records share: no publish name",
       "shared:twice:100:metric=m;SY,value=1;IN" + kDeviceTail, "", StructuredForm::SingleValue,
       "m=1<IN>[metric|value]"},
      {"a group and schema no record has: no publish name",
       "other:x:100:metric=m;SY,value=1;IN" + kDeviceTail, "", StructuredForm::SingleValue,
       "m=1<IN>[metric|value]"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.proves);
    DecodedRecord record;
    std::string error;
    ASSERT_TRUE(parser.parse(row.message, record, error)) << error;
    EXPECT_EQ(record.publishName, row.publish);
    EXPECT_EQ(record.form, row.form);
    EXPECT_EQ(describe(record), row.values);
  }
}

}  // namespace
}  // namespace halvexd
