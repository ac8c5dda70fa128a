#include "metrics/MetricLogger.h"

#include <gtest/gtest.h>

#include <functional>
#include <limits>

#include "tests/support/MetricConfigFixture.h"
#include "tests/support/TestSupport.h"

namespace halvexd {
namespace {

using testing::kDeviceTail;
using testing::LogCapture;
using testing::LogRecord;
using testing::metricRecords;

using MetricLoggerTest = testing::MetricConfigTest;

const std::string kHeader = "grpA:sch7:100:";
const std::string kTail = kDeviceTail + ":eu";

std::string structured(const std::string& body) { return kHeader + body + kTail; }

enum class Plain { kNoRecord, kInactive, kActive };

// One row of the publish table: the switches, then the exact records of
// three publishes in a row.
struct PublishRow {
  Plain plain;           // the publish name's record and its plain interface
  bool vedrixEnabled;    // the structured service as a whole
  bool vedrixActive;     // the record's structured interface
  bool keyTagSet;        // the record's key dimension tag (the header still forms without it)
  bool reportBHasPlain;  // whether the second report stores a plain value
  std::vector<std::string> afterA, afterB, afterReveal;
  const char* proves;
};

TEST_F(MetricLoggerTest, PublishDrainsWaitsAndOverwritesUnderEachSwitchCombination) {
  const std::string pA = "CpuUsageMonitorTablet:Mon:cpu_p50=12.5;CT;1,total=42;CT;1:NR";
  const std::string pB = "CpuUsageMonitorTablet:Mon:total=43;CT;1:NR";
  const std::string pZ = "CpuUsageMonitorTablet:Mon:zz=1;CT;1:NR";
  const std::string pKeptAB = "CpuUsageMonitorTablet:Mon:cpu_p50=12.5;CT;1,total=43;CT;1,zz=1;CT;1:NR";
  const std::string pKeptA = "CpuUsageMonitorTablet:Mon:cpu_p50=12.5;CT;1,total=42;CT;1,zz=1;CT;1:NR";
  const std::string s42 = structured("metric=total;SY,value=42;IN");
  const std::string s43 = structured("metric=total;SY,value=43;IN");
  const std::string sLoad = structured("metric=load;SY,value=0.123457;FL");

  // Report A stores two plain values (cpu:p50, total=42), a structured
  // integer (total=42) and a structured double (load). Report B stores a
  // structured total=43 and, when the row says so, a plain total=43. The
  // reveal then switches everything on and stores one plain marker zz=1, so
  // its records show what the stores had kept.
  // clang-format off
  const PublishRow rows[] = {
    // plain           enab.  active keyTag B-plain after A            after B     after reveal
    {Plain::kActive,   true,  true,  true,  true,  {pA, s42, sLoad}, {pB, s43}, {pZ},
     "all on: every report drains both families"},
    {Plain::kActive,   true,  false, true,  true,  {pA},             {pB},      {pZ, s43, sLoad},
     "structured interface inactive: structured values wait, one per name, latest wins"},
    {Plain::kActive,   false, true,  true,  true,  {pA},             {pB},      {pZ, s43, sLoad},
     "structured service disabled: structured values wait"},
    {Plain::kActive,   false, false, true,  true,  {pA},             {pB},      {pZ, s43, sLoad},
     "service disabled and interface inactive"},
    {Plain::kActive,   true,  true,  true,  false, {pA, s42, sLoad}, {},        {pZ, s43},
     "active plain interface, no plain values: the publish returns early, structured waits"},
    {Plain::kInactive, true,  true,  true,  true,  {s42, sLoad},     {s43},     {pKeptAB},
     "plain inactive: structured still written, plain values kept and overwritten"},
    {Plain::kInactive, true,  true,  true,  false, {s42, sLoad},     {s43},     {pKeptA},
     "plain inactive: a report without plain values still writes structured"},
    {Plain::kInactive, false, true,  true,  true,  {},               {},        {pKeptAB, s43, sLoad},
     "plain inactive, service disabled: nothing written, everything kept"},
    {Plain::kInactive, true,  false, true,  true,  {},               {},        {pKeptAB, s43, sLoad},
     "both interfaces inactive: nothing written, everything kept"},
    {Plain::kNoRecord, true,  true,  true,  true,  {},               {},        {pKeptAB, s43, sLoad},
     "no configuration record, service on: no header, nothing written, everything kept"},
    {Plain::kNoRecord, false, true,  true,  true,  {},               {},        {pKeptAB, s43, sLoad},
     "no configuration record, service off"},
    {Plain::kActive,   true,  true,  false, true,  {pA},             {pB},      {pZ},
     "no key tag: structured bodies empty, records dropped, stores still drained"},
    {Plain::kInactive, true,  true,  false, true,  {},               {},        {pKeptAB},
     "no key tag, plain inactive: nothing written, structured stores drained"},
  };
  // clang-format on

  for (const auto& row : rows) {
    clearConfig();
    enableVedrix(row.vedrixEnabled);
    if (row.plain != Plain::kNoRecord) {
      auto& record = configure("Mon", row.plain == Plain::kActive, row.vedrixActive);
      if (!row.keyTagSet) record.vedrixMetricInterface.metricKey.dimensionTag.clear();
    }
    MetricLogger logger;
    logger.init("CpuUsageMonitor");
    LogCapture capture;

    logger.emitMetricDouble("cpu:p50", 12.5);
    logger.emitMetricUint64("total", 42);
    logger.emitVedrixMetricUint64("total", 42);
    logger.emitVedrixMetricDouble("load", 0.1234567);
    logger.publish("Mon");
    EXPECT_EQ(capture.records(), metricRecords(row.afterA)) << row.proves << " [report A]";
    capture.clear();

    if (row.reportBHasPlain) logger.emitMetricUint64("total", 43);
    logger.emitVedrixMetricUint64("total", 43);
    logger.publish("Mon");
    EXPECT_EQ(capture.records(), metricRecords(row.afterB)) << row.proves << " [report B]";
    capture.clear();

    enableVedrix(true);
    configure("Mon", true, true);
    logger.emitMetricUint64("zz", 1);
    logger.publish("Mon");
    EXPECT_EQ(capture.records(), metricRecords(row.afterReveal)) << row.proves << " [reveal]";
  }
}

struct PlainRow {
  const char* proves;
  std::string owner;
  std::function<void(MetricLogger&)> emit;
  std::string expected;
};

TEST_F(MetricLoggerTest, PlainRecordFormat) {
  const PlainRow rows[] = {
      {"stores in order double then uint64, comma across stores", "CpuUsageMonitor",
       [](MetricLogger& l) {
         l.emitMetricUint64("a", 7);
         l.emitMetricDouble("b", 0.5);
       },
       "CpuUsageMonitorTablet:Mon:b=0.5;CT;1,a=7;CT;1:NR"},
      {"an empty owner name still gets the device suffix", "",
       [](MetricLogger& l) { l.emitMetricUint64("a", 1); }, "Tablet:Mon:a=1;CT;1:NR"},
      {"':' and ';' become '_', '=' and ',' are kept", "M",
       [](MetricLogger& l) {
         l.emitMetricUint64("a:b;c", 5);
         l.emitMetricUint64("x=y,z", 6);
       },
       "MTablet:Mon:a_b_c=5;CT;1,x=y,z=6;CT;1:NR"},
      {"names that sanitise alike share one entry, the later value wins", "M",
       [](MetricLogger& l) {
         l.emitMetricUint64("a:b", 1);
         l.emitMetricUint64("a;b", 2);
         l.emitMetricDouble("d", 1.0);
         l.emitMetricDouble("d", 2.25);
       },
       "MTablet:Mon:d=2.25;CT;1,a_b=2;CT;1:NR"},
      {"byte-wise key order: upper case before lower case", "M",
       [](MetricLogger& l) {
         l.emitMetricUint64("b", 1);
         l.emitMetricUint64("B", 2);
         l.emitMetricUint64("a", 3);
       },
       "MTablet:Mon:B=2;CT;1,a=3;CT;1,b=1;CT;1:NR"},
      {"doubles print with six significant digits, %g style", "M",
       [](MetricLogger& l) {
         l.emitMetricDouble("d1", 12.345678);
         l.emitMetricDouble("d2", 1234567.0);
         l.emitMetricDouble("d3", 3.0);
         l.emitMetricDouble("d4", 0.00001);
         l.emitMetricDouble("d5", 0.0001);
         l.emitMetricDouble("d6", -2.5);
         l.emitMetricDouble("d7", 123456.0);
       },
       "MTablet:Mon:d1=12.3457;CT;1,d2=1.23457e+06;CT;1,d3=3;CT;1,d4=1e-05;CT;1,d5=0.0001;CT;1,"
       "d6=-2.5;CT;1,d7=123456;CT;1:NR"},
      {"unsigned 64-bit values print in full", "M",
       [](MetricLogger& l) {
         l.emitMetricUint64("max", std::numeric_limits<unsigned long>::max());
         l.emitMetricUint64("zero", 0);
       },
       "MTablet:Mon:max=18446744073709551615;CT;1,zero=0;CT;1:NR"},
  };
  configure("Mon", true, false);
  for (const auto& row : rows) {
    MetricLogger logger;
    EXPECT_TRUE(logger.init(row.owner));
    LogCapture capture;
    row.emit(logger);
    logger.publish("Mon");
    EXPECT_EQ(capture.records(), metricRecords({row.expected})) << row.proves;
  }
}

struct StructuredRow {
  const char* proves;
  std::function<void(HalvexConfig&)> adjust;
  std::function<void(MetricLogger&)> emit;
  std::vector<std::string> expected;
};

TEST_F(MetricLoggerTest, StructuredSingleValueRecordFormat) {
  auto total42 = [](MetricLogger& l) { l.emitVedrixMetricUint64("cpu_total", 42); };
  auto noChange = [](HalvexConfig&) {};
  const StructuredRow rows[] = {
      {"the reference record, byte for byte",
       noChange,
       total42,
       {"grpA:sch7:100:metric=cpu_total;SY,value=42;IN,_softwareVersion=;SY,_deviceType=;SY,"
        "_platform=;SY,_model=;SY,_buildType=;SY,_marketPlaceId=;SY,_countryOfResidence=;SY,"
        "_deviceLanguage=;SY,_otaGroupName=;SY,_timeZone=;SY,_deviceId=;SY,_customerId=;SY,"
        "_hardware=;SY:eu"}},
      {"no region: no ':' after the device fields",
       [](HalvexConfig& c) { c.vedrixConfig.region.clear(); },
       total42,
       {"grpA:sch7:100:metric=cpu_total;SY,value=42;IN" + kDeviceTail}},
      {"an empty group id takes the default group",
       [](HalvexConfig& c) { c.monitorConfigs["Mon"].vedrixMetricInterface.groupId.clear(); },
       total42,
       {"grp0:sch7:100:metric=cpu_total;SY,value=42;IN" + kTail}},
      {"no group at all: the header starts with ':'",
       [](HalvexConfig& c) {
         c.monitorConfigs["Mon"].vedrixMetricInterface.groupId.clear();
         c.vedrixConfig.defaultGroupId.clear();
       },
       total42,
       {":sch7:100:metric=cpu_total;SY,value=42;IN" + kTail}},
      {"an empty schema id is written as it is",
       [](HalvexConfig& c) { c.monitorConfigs["Mon"].vedrixMetricInterface.schemaId.clear(); },
       total42,
       {"grpA::100:metric=cpu_total;SY,value=42;IN" + kTail}},
      {"no value tag: no record",
       [](HalvexConfig& c) {
         c.monitorConfigs["Mon"].vedrixMetricInterface.metricValue.dimensionTag.clear();
       },
       total42,
       {}},
      {"integers first, then doubles, each in key order; names sanitised; %g doubles",
       noChange,
       [](MetricLogger& l) {
         l.emitVedrixMetricDouble("c", 2.0);
         l.emitVedrixMetricDouble("a:x", 0.1234567);
         l.emitVedrixMetricUint64("b;y", 18446744073709551615ul);
       },
       {structured("metric=b_y;SY,value=18446744073709551615;IN"),
        structured("metric=a_x;SY,value=0.123457;FL"), structured("metric=c;SY,value=2;FL")}},
  };
  for (const auto& row : rows) {
    clearConfig();
    enableVedrix();
    configure("Mon", false, true);
    row.adjust(HalvexConfig::instance());
    MetricLogger logger;
    LogCapture capture;
    row.emit(logger);
    logger.publish("Mon");
    EXPECT_EQ(capture.records(), metricRecords(row.expected)) << row.proves;
  }
}

TEST_F(MetricLoggerTest, TypeTagsAreExactAndCaseSensitive) {
  configure("Mon", false, true);
  MetricLogger logger;
  ASSERT_EQ(logger.buildVedrixMetricHeaderString("Mon"), "grpA:sch7:100:");
  const std::pair<const char*, const char*> rows[] = {
      {"str", ";SY"}, {"int", ";IN"}, {"float", ";FL"}, {"bool", ";BO"},
      {"ts", ";TI"},  {"double", ""}, {"INT", ""},      {"", ""},
  };
  for (const auto& [type, tag] : rows) {
    EXPECT_EQ(logger.buildVedrixMetricBodyString<uint64_t>("n", 7, type),
              std::string("metric=n;SY,value=7") + tag)
        << type;
  }
  EXPECT_EQ(logger.buildVedrixMetricBodyString<double>("n", 1234567.0, "float"),
            "metric=n;SY,value=1.23457e+06;FL");
}

TEST_F(MetricLoggerTest, HeaderIsEmptyWithoutAnActiveRecordAndLeavesTheTagsAlone) {
  configure("Mon", false, true);
  configure("Off", true, false).vedrixMetricInterface.metricKey.dimensionTag = "other";
  MetricLogger logger;
  EXPECT_EQ(logger.buildVedrixMetricHeaderString("Missing"), "");
  EXPECT_EQ(logger.buildVedrixMetricBodyString<uint64_t>("n", 1, "int"), "")
      << "no tags loaded yet";
  EXPECT_EQ(logger.buildVedrixMetricHeaderString("Mon"), "grpA:sch7:100:");
  EXPECT_EQ(logger.buildVedrixMetricHeaderString("Off"), "");
  EXPECT_EQ(logger.buildVedrixMetricBodyString<uint64_t>("n", 1, "int"), "metric=n;SY,value=1;IN")
      << "the inactive record's tags must not have been loaded";
}

TEST_F(MetricLoggerTest, PositionalMultiFieldBody) {
  auto& record = configure("Mon", false, true);
  record.vedrixMetricInterface.metrics = {{"a", "A", "int"}, {"b", "B", "str"}};
  using Fields = MetricLogger::FieldVector;
  struct Row {
    const char* proves;
    Fields fields;
    std::string expected;
  } rows[] = {
      {"fields in configured order", {{"a", "1"}, {"b", "x"}}, "A=1;IN,B=x;SY"},
      {"a mismatched last field leaves a trailing comma", {{"a", "1"}, {"c", "x"}}, "A=1;IN,"},
      {"a mismatched first field writes no comma of its own", {{"c", "1"}, {"b", "x"}}, "B=x;SY"},
      {"matched by position, not searched by name", {{"b", "x"}, {"a", "1"}}, ""},
      {"fewer fields than descriptors", {{"a", "1"}}, ""},
      {"more fields than descriptors", {{"a", "1"}, {"b", "x"}, {"c", "y"}}, ""},
      {"no fields", {}, ""},
      {"values are not sanitised", {{"a", "1:2;3"}, {"b", "x=y"}}, "A=1:2;3;IN,B=x=y;SY"},
  };
  MetricLogger logger;
  for (auto& row : rows) {
    EXPECT_EQ(logger.buildVedrixMetricVecBodyString(row.fields, "Mon"), row.expected) << row.proves;
  }
  Fields matching = {{"a", "1"}, {"b", "x"}};
  EXPECT_EQ(logger.buildVedrixMetricVecBodyString(matching, "Other"), "") << "no record";
  record.vedrixMetricInterface.active = false;
  EXPECT_EQ(logger.buildVedrixMetricVecBodyString(matching, "Mon"), "") << "inactive";
}

TEST_F(MetricLoggerTest, MultiFieldSamplesFollowSingleValuesAndDrainEvenWhenOneIsDropped) {
  enableVedrix();
  configure("Mon", false, true).vedrixMetricInterface.metrics = {{"a", "A", "int"},
                                                                 {"b", "B", "str"}};
  MetricLogger logger;
  LogCapture capture;
  MetricLogger::FieldVector good = {{"a", "1"}, {"b", "x"}};
  MetricLogger::FieldVector wrongCount = {{"a", "2"}};
  MetricLogger::FieldVector later = {{"a", "3"}, {"b", "y"}};
  MetricLogger::FieldVector other = {{"a", "5"}, {"b", "z"}};
  // Sample names are not sanitised: "s:0" and "s_0" stay two samples.
  logger.emitVedrixMetricPairVec("s:0", other);
  logger.emitVedrixMetricPairVec("s1", wrongCount);
  logger.emitVedrixMetricPairVec("s_0", later);
  logger.emitVedrixMetricPairVec("s_0", good);  // replaces the earlier sample of that name
  logger.emitVedrixMetricDouble("d", 0.5);
  logger.emitVedrixMetricUint64("u", 9);
  logger.publish("Mon");
  EXPECT_EQ(
      capture.records(),
      metricRecords({structured("metric=u;SY,value=9;IN"), structured("metric=d;SY,value=0.5;FL"),
                     structured("A=5;IN,B=z;SY"), structured("A=1;IN,B=x;SY")}));
  capture.clear();
  logger.publish("Mon");
  EXPECT_TRUE(capture.records().empty()) << "the store is emptied once its samples are written";
}

TEST_F(MetricLoggerTest, TailIsCachedUntilAnUploadCannotFormARecord) {
  enableVedrix();
  auto& record = configure("Mon", false, true);
  MetricLogger logger;
  LogCapture capture;
  auto report = [&](uint64_t value) {
    logger.emitVedrixMetricUint64("v", value);
    logger.publish("Mon");
  };
  report(1);
  HalvexConfig::instance().vedrixConfig.region = "us";
  report(2);  // still the cached tail
  record.vedrixMetricInterface.active = false;
  report(3);  // no header: value kept, cached tail dropped
  record.vedrixMetricInterface.active = true;
  report(4);
  const std::string body = "grpA:sch7:100:metric=v;SY,value=";
  EXPECT_EQ(capture.records(),
            metricRecords({body + "1;IN" + kDeviceTail + ":eu", body + "2;IN" + kDeviceTail + ":eu",
                           body + "4;IN" + kDeviceTail + ":us"}));
}

TEST_F(MetricLoggerTest, EmptyStoresDoNotTouchTheCachedTail) {
  enableVedrix();
  auto& record = configure("Mon", false, true);
  MetricLogger logger;
  LogCapture capture;
  logger.emitVedrixMetricUint64("v", 1);
  logger.publish("Mon");
  record.vedrixMetricInterface.active = false;
  HalvexConfig::instance().vedrixConfig.region = "us";
  logger.publish("Mon");  // nothing stored: no attempt, the cache stays
  record.vedrixMetricInterface.active = true;
  logger.emitVedrixMetricUint64("v", 2);
  logger.publish("Mon");
  EXPECT_EQ(capture.records(), metricRecords({structured("metric=v;SY,value=1;IN"),
                                              structured("metric=v;SY,value=2;IN")}));
}

TEST_F(MetricLoggerTest, GetMonitorConfigSharesOneVmpressureRecord) {
  configure("VMPRESSURE", true, false);
  configure("vmpressure", true, false);
  configure("Cpu", true, false);
  auto& configs = HalvexConfig::instance().monitorConfigs;
  struct Row {
    const char* proves;
    const char* name;
    const HalvexConfig::MonitorConfig* expected;
  } rows[] = {
      {"exact name", "Cpu", &configs.at("Cpu")},
      {"contains VMPRESSURE at the start", "VMPRESSURE_low", &configs.at("VMPRESSURE")},
      {"contains VMPRESSURE in the middle", "lmk.VMPRESSURE.x", &configs.at("VMPRESSURE")},
      {"the substitution is case-sensitive", "vmpressure", &configs.at("vmpressure")},
      {"no record", "Unknown", nullptr},
      {"no substitution without the whole word", "VMPRESSUR", nullptr},
  };
  MetricLogger logger;
  for (const auto& row : rows)
    EXPECT_EQ(logger.getMonitorConfig(row.name), row.expected) << row.proves;
}

TEST_F(MetricLoggerTest,
       VmpressureNamesPublishPlainThroughTheSharedRecordButStructuredByExactName) {
  enableVedrix();
  configure("VMPRESSURE", true, true);
  MetricLogger logger;
  logger.init("Sys");
  LogCapture capture;
  logger.emitMetricUint64("p", 1);
  logger.emitVedrixMetricUint64("s", 2);
  logger.publish("VMPRESSURE_low");
  EXPECT_EQ(capture.records(), metricRecords({"SysTablet:VMPRESSURE_low:p=1;CT;1:NR"}));
  capture.clear();

  configure("VMPRESSURE_low", false, true).vedrixMetricInterface.groupId = "low";
  logger.emitMetricUint64("p", 3);
  logger.publish("VMPRESSURE_low");
  EXPECT_EQ(capture.records(), metricRecords({"SysTablet:VMPRESSURE_low:p=3;CT;1:NR",
                                              "low:sch7:100:metric=s;SY,value=2;IN" + kTail}));
}

}  // namespace
}  // namespace halvexd
