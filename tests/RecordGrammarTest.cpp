// The records the two metric loggers write: which publishes write what under
// each switch, and the exact bytes of plain, structured single-value,
// multi-field and system-health records.
#include <gtest/gtest.h>

#include "config/HalvexConfig.h"
#include "metrics/SysHealthMetricLogger.h"
#include "tests/support/TestSupport.h"

namespace halvexd {
namespace {

using testing::LogCapture;
using testing::LogRecord;
using Fields = MetricLogger::FieldVector;

const std::string kTail =
    ",_softwareVersion=;SY,_deviceType=;SY,_platform=;SY,_model=;SY,_buildType=;SY,"
    "_marketPlaceId=;SY,_countryOfResidence=;SY,_deviceLanguage=;SY,_otaGroupName=;SY,"
    "_timeZone=;SY,_deviceId=;SY,_customerId=;SY,_hardware=;SY";
std::string s(const std::string& body) { return "grpA:sch7:100:" + body + kTail + ":eu"; }

// Every record goes to the metrics buffer (8) at info priority under one tag.
std::vector<LogRecord> records(const std::vector<std::string>& messages) {
  std::vector<LogRecord> out;
  for (const auto& m : messages) out.push_back({8, 4, "metrics.halvexd", m});
  return out;
}

// Structured service `on`, region "eu", default group "grp0", no records.
void reset(bool on) {
  HalvexConfig::instance().resetConfig();
  HalvexConfig::instance().vedrixConfig = {on, "eu", "grp0"};
}

// The record of `name`: group "grpA", schema "sch7", tags "metric"/"value".
HalvexConfig::VedrixMetricInterface& configure(const std::string& name, bool plain, bool vedrix) {
  auto& r = HalvexConfig::instance().monitorConfigs[name];
  r = HalvexConfig::MonitorConfig();
  r.metricName = name;
  r.trazMetricInterface.active = plain;
  r.vedrixMetricInterface = {"sch7", "grpA", vedrix, {"", "metric", ""}, {"", "value", ""}, {}};
  return r.vedrixMetricInterface;
}

class RecordGrammarTest : public ::testing::Test {
  void SetUp() override { reset(true); }
  void TearDown() override { HalvexConfig::instance().resetConfig(); }
};

enum Plain { kNoRecord, kOff, kOn };

TEST_F(RecordGrammarTest, PublishSwitchesDecideWhatIsWrittenAndWhatWaits) {
  const std::string pA = "CpuUsageMonitorTablet:Mon:cpu_p50=12.5;CT;1,total=42;CT;1:NR";
  const std::string pB = "CpuUsageMonitorTablet:Mon:total=43;CT;1:NR";
  const std::string pZ = "CpuUsageMonitorTablet:Mon:zz=1;CT;1:NR";
  const std::string kAB = "CpuUsageMonitorTablet:Mon:cpu_p50=12.5;CT;1,total=43;CT;1,zz=1;CT;1:NR";
  const std::string kA = "CpuUsageMonitorTablet:Mon:cpu_p50=12.5;CT;1,total=42;CT;1,zz=1;CT;1:NR";
  const std::string s42 = s("metric=total;SY,value=42;IN"), s43 = s("metric=total;SY,value=43;IN");
  const std::string sLoad = s("metric=load;SY,value=0.123457;FL");
  // Report A: plain cpu:p50 and total=42, structured total=42 and load.
  // Report B: structured total=43, plain total=43 when bPlain. The reveal
  // switches everything on and adds plain zz=1: it shows what was kept.
  struct Row {
    Plain plain;
    bool service, vedrix, keyTag, bPlain;
    std::vector<std::string> a, b, reveal;
  };
  const Row rows[] = {
      {kOn, true, true, true, true, {pA, s42, sLoad}, {pB, s43}, {pZ}},
      {kOn, true, false, true, true, {pA}, {pB}, {pZ, s43, sLoad}},
      {kOn, false, true, true, true, {pA}, {pB}, {pZ, s43, sLoad}},
      {kOn, true, true, true, false, {pA, s42, sLoad}, {}, {pZ, s43}},
      {kOff, true, true, true, true, {s42, sLoad}, {s43}, {kAB}},
      {kOff, true, true, true, false, {s42, sLoad}, {s43}, {kA}},
      {kOff, false, true, true, true, {}, {}, {kAB, s43, sLoad}},
      {kOff, true, false, true, true, {}, {}, {kAB, s43, sLoad}},
      {kNoRecord, true, true, true, true, {}, {}, {kAB, s43, sLoad}},
      {kOn, true, true, false, true, {pA}, {pB}, {pZ}},
      {kOff, true, true, false, true, {}, {}, {kAB}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE("row " + std::to_string(&row - rows));
    reset(row.service);
    if (row.plain != kNoRecord) {
      auto& v = configure("Mon", row.plain == kOn, row.vedrix);
      if (!row.keyTag) v.metricKey.dimensionTag.clear();
    }
    MetricLogger logger;
    logger.init("CpuUsageMonitor");
    LogCapture log;
    auto publish = [&](const std::vector<std::string>& expected) {
      logger.publish("Mon");
      EXPECT_EQ(log.records(), records(expected));
      log.clear();
    };
    logger.emitMetricDouble("cpu:p50", 12.5);
    logger.emitMetricUint64("total", 42);
    logger.emitVedrixMetricUint64("total", 42);
    logger.emitVedrixMetricDouble("load", 0.1234567);
    publish(row.a);
    if (row.bPlain) logger.emitMetricUint64("total", 43);
    logger.emitVedrixMetricUint64("total", 43);
    publish(row.b);
    reset(true);
    configure("Mon", true, true);
    logger.emitMetricUint64("zz", 1);
    publish(row.reveal);
  }
}

// One stored value: 'u'/'d' plain integer/double, 'U'/'D' structured.
struct Emit { char store; std::string name; uint64_t u; double d; };

TEST_F(RecordGrammarTest, PlainAndStructuredSingleValueRecordsByteForByte) {
  const uint64_t kMax = 18446744073709551615ul;
  enum Change { kNone, kNoRegion, kNoGroupId, kNoGroups, kNoValueTag };
  struct Row { Change change; std::vector<Emit> emits; std::vector<std::string> expected; };
  const Row rows[] = {
      // Doubles before integers, each in byte order; ':' and ';' become '_'.
      {kNone, {{'u', "b", 1, 0}, {'u', "a:b;c", 5, 0}, {'u', "B", kMax, 0}, {'d', "x=y,z", 0, 0.5}},
       {"OwnTablet:Mon:x=y,z=0.5;CT;1,B=18446744073709551615;CT;1,a_b_c=5;CT;1,b=1;CT;1:NR"}},
      // Names that sanitise alike share one entry; six significant digits.
      {kNone, {{'u', "a:b", 1, 0}, {'u', "a;b", 2, 0}, {'d', "p", 0, 12.345678},
               {'d', "q", 0, 1234567.0}, {'d', "r", 0, 3.0}, {'d', "s", 0, 0.00001},
               {'d', "t", 0, 0.0001}, {'d', "v", 0, -2.5}},
       {"OwnTablet:Mon:p=12.3457;CT;1,q=1.23457e+06;CT;1,r=3;CT;1,s=1e-05;CT;1,t=0.0001;CT;1,"
        "v=-2.5;CT;1,a_b=2;CT;1:NR"}},
      // Structured: integers then doubles, each in byte order, names sanitised.
      {kNone, {{'D', "c", 0, 2.0}, {'D', "a:x", 0, 0.1234567}, {'U', "b;y", kMax, 0}},
       {s("metric=b_y;SY,value=18446744073709551615;IN"), s("metric=a_x;SY,value=0.123457;FL"),
        s("metric=c;SY,value=2;FL")}},
      {kNoRegion, {{'U', "v", 7, 0}}, {"grpA:sch7:100:metric=v;SY,value=7;IN" + kTail}},
      {kNoGroupId, {{'U', "v", 7, 0}}, {"grp0:sch7:100:metric=v;SY,value=7;IN" + kTail + ":eu"}},
      {kNoGroups, {{'U', "v", 7, 0}}, {"::100:metric=v;SY,value=7;IN" + kTail + ":eu"}},
      {kNoValueTag, {{'U', "v", 7, 0}}, {}},
  };
  for (const Row& row : rows) {
    // A plain row keeps the structured interface off and the other way round:
    // a publish without plain values under an active plain interface writes nothing.
    bool plainRow = row.emits.front().store == 'u' || row.emits.front().store == 'd';
    reset(true);
    auto& v = configure("Mon", plainRow, !plainRow);
    if (row.change == kNoRegion) HalvexConfig::instance().vedrixConfig.region.clear();
    if (row.change == kNoGroupId || row.change == kNoGroups) v.groupId.clear();
    if (row.change == kNoGroups) v.schemaId = HalvexConfig::instance().vedrixConfig.defaultGroupId = "";
    if (row.change == kNoValueTag) v.metricValue.dimensionTag.clear();
    MetricLogger logger;
    logger.init("Own");
    LogCapture log;
    for (const Emit& e : row.emits) {
      if (e.store == 'u') logger.emitMetricUint64(e.name, e.u);
      if (e.store == 'd') logger.emitMetricDouble(e.name, e.d);
      if (e.store == 'U') logger.emitVedrixMetricUint64(e.name, e.u);
      if (e.store == 'D') logger.emitVedrixMetricDouble(e.name, e.d);
    }
    logger.publish("Mon");
    EXPECT_EQ(log.records(), records(row.expected)) << row.emits.front().name;
  }
}

TEST_F(RecordGrammarTest, MultiFieldBodiesByPositionAndSystemHealthBodiesByName) {
  configure("Mon", false, true).metrics = {{"a", "A", "int"}, {"b", "B", "str"}};
  struct Row { Fields fields; std::string positional, byName; };
  Row rows[] = {
      {{{"a", "1"}, {"b", "x"}}, "A=1;IN,B=x;SY", "A=1;IN,B=x;SY"},
      {{{"a", "1"}, {"c", "x"}}, "A=1;IN,", "A=1;IN,"},
      {{{"c", "1"}, {"b", "x"}}, "B=x;SY", "B=x;SY"},
      {{{"b", "x"}, {"a", "1"}}, "", "B=x;SY,A=1;IN"},
      {{{"a", "1"}}, "", "A=1;IN"},
      {{{"a", "1"}, {"b", "x"}, {"c", "y"}}, "", "A=1;IN,B=x;SY,"},
      {{}, "", ""},
      {{{"a", "1:2;3"}, {"b", "x=y"}}, "A=1:2;3;IN,B=x=y;SY", "A=1:2;3;IN,B=x=y;SY"},
  };
  MetricLogger positional;
  SysHealthMetricLogger byName;
  for (auto& row : rows) {
    EXPECT_EQ(positional.buildVedrixMetricVecBodyString(row.fields, "Mon"), row.positional);
    EXPECT_EQ(byName.buildVedrixMetricVecBodyString(row.fields, "Mon"), row.byName);
    EXPECT_EQ(byName.buildVedrixMetricVecBodyString(row.fields, "Other"), "");
  }
}

TEST_F(RecordGrammarTest, SystemHealthFieldsPercentileKeysAndTheirRecord) {
  // Type tags as configured: "bool" ";BO", "ts" ";TI", none for "INT".
  configure("SysHealthCpuUsage", false, true).metrics = {
      {"cpu_sys_aggregation_period", "period", "int"}, {"cpu_metric_values", "values", "bool"},
      {"cpu_metric_keys", "keys", "ts"}, {"apps", "apps", "INT"}};
  SysHealthMetricLogger logger;
  logger.init("CpuUsageMonitor");
  // Only a name ending in .P50/.P90/.P99 (any case, not also earlier) counts.
  for (const char* name : {"CPUUtilization.P50", "x.p90", "CPUUtilization.B0-9", "usage_p90", "p90",
                           "x.p50.p50", "x.p95", "x.p90x", "", "x.P90.p99"}) {
    logger.appendPercentileToVec("cpu_metric_keys", "CpuSys", name, "cpu_metric_values", "7");
  }
  logger.appendStringToVec("apps", "a", "|");
  logger.appendStringToVec("apps", "b", " ");
  logger.appendUint64ToVec("cpu_sys_aggregation_period", 119);
  logger.appendUint64ToVec("cpu_sys_aggregation_period", 120);
  logger.emitVedrixMetricPairVec("cpu_metric_keys");
  EXPECT_TRUE(logger.buildVector().empty());
  LogCapture log;
  logger.publish("SysHealthCpuUsage");
  EXPECT_EQ(log.records(), records({s("apps=a b,keys=CpuSys.P50|CpuSys.P90|CpuSys.P99;TI,"
                                      "values=7|7|7;BO,period=120;IN")}));
}

}  // namespace
}  // namespace halvexd
