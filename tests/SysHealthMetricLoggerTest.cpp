#include "metrics/SysHealthMetricLogger.h"

#include <gtest/gtest.h>

#include "tests/support/MetricConfigFixture.h"
#include "tests/support/TestSupport.h"

namespace halvexd {
namespace {

using testing::kDeviceTail;
using testing::LogCapture;
using testing::metricRecords;

using SysHealthMetricLoggerTest = testing::MetricConfigTest;
using Fields = MetricLogger::FieldVector;

TEST_F(SysHealthMetricLoggerTest, PercentileNamesAreRecognisedOnlyByTheirEnding) {
  const Fields appended = {{"k", "P.P90"}, {"v", "7"}};
  struct Row {
    const char* proves;
    const char* percentileName;
    Fields expected;
  } rows[] = {
      {"lower-case ending", "usage.p90", appended},
      {"upper-case ending, stored upper case", "CPU.P50", {{"k", "P.P50"}, {"v", "7"}}},
      {"last suffix of the list", "x.p99", {{"k", "P.P99"}, {"v", "7"}}},
      {"the suffix alone", ".p90", appended},
      {"an earlier other suffix does not matter", "x.P90.p50", {{"k", "P.P50"}, {"v", "7"}}},
      {"no dot before the suffix", "usage_p90", {}},
      {"empty name", "", {}},
      {"shorter than any suffix", "p90", {}},
      {"the suffix also occurs earlier", "x.p50.p50", {}},
      {"not a reported percentile", "x.p95", {}},
      {"suffix not at the end", "x.p90x", {}},
  };
  for (const auto& row : rows) {
    SysHealthMetricLogger logger;
    logger.appendPercentileToVec("k", "P", row.percentileName, "v", "7");
    EXPECT_EQ(logger.buildVector(), row.expected) << row.proves;
  }
}

TEST_F(SysHealthMetricLoggerTest, FieldsAccumulateInKeyOrder) {
  SysHealthMetricLogger logger;
  logger.appendPercentileToVec("cpu_metric_keys", "CpuSys", "CPUUtilization.P50",
                               "cpu_metric_values", "12");
  logger.appendPercentileToVec("cpu_metric_keys", "CpuSys", "CPUUtilization.B0-9",
                               "cpu_metric_values", "3");
  logger.appendPercentileToVec("cpu_metric_keys", "CpuSys", "CPUUtilization.P90",
                               "cpu_metric_values", "40");
  logger.appendPercentileToVec("cpu_metric_keys", "CpuSys", "CPUUtilization.P99",
                               "cpu_metric_values", "87");
  logger.appendStringToVec("apps", "a", "|");
  logger.appendStringToVec("apps", "b", "|");
  logger.appendStringToVec("apps", "c", ", ");
  logger.appendUint64ToVec("n", 4);
  logger.appendUint64ToVec("n", 5);
  logger.appendUint64ToVec("big", 18446744073709551615ul);
  logger.appendStringToVec("Z", "upper", "|");
  EXPECT_EQ(logger.buildVector(), (Fields{{"Z", "upper"},
                                          {"apps", "a|b, c"},
                                          {"big", "18446744073709551615"},
                                          {"cpu_metric_keys", "CpuSys.P50|CpuSys.P90|CpuSys.P99"},
                                          {"cpu_metric_values", "12|40|87"},
                                          {"n", "5"}}));
}

TEST_F(SysHealthMetricLoggerTest, BodyMatchesFieldsToDescriptorsByName) {
  auto& record = configure("SysHealth", false, true);
  record.vedrixMetricInterface.metrics = {{"cpu_metric_values", "V", "str"},
                                          {"cpu_metric_keys", "K", "str"}};
  struct Row {
    const char* proves;
    Fields fields;
    std::string expected;
  } rows[] = {
      {"descriptor order does not matter",
       {{"cpu_metric_keys", "a|b"}, {"cpu_metric_values", "1|2"}},
       "K=a|b;SY,V=1|2;SY"},
      {"an unknown last field leaves a trailing comma",
       {{"cpu_metric_keys", "a|b"}, {"zzz", "q"}},
       "K=a|b;SY,"},
      {"an unknown first field writes nothing",
       {{"aaa", "q"}, {"cpu_metric_values", "1"}},
       "V=1;SY"},
      {"no count check: more fields than descriptors",
       {{"cpu_metric_keys", "a"}, {"cpu_metric_values", "1"}, {"zzz", "q"}},
       "K=a;SY,V=1;SY,"},
      {"no fields", {}, ""},
  };
  SysHealthMetricLogger logger;
  for (auto& row : rows) {
    EXPECT_EQ(logger.buildVedrixMetricVecBodyString(row.fields, "SysHealth"), row.expected)
        << row.proves;
  }

  Fields one = {{"cpu_metric_keys", "a"}};
  record.vedrixMetricInterface.metrics.push_back({"cpu_metric_keys", "K2", "int"});
  EXPECT_EQ(logger.buildVedrixMetricVecBodyString(one, "SysHealth"), "K2=a;IN")
      << "a later descriptor of the same name wins";
  EXPECT_EQ(logger.buildVedrixMetricVecBodyString(one, "Other"), "") << "no record";
  record.vedrixMetricInterface.active = false;
  EXPECT_EQ(logger.buildVedrixMetricVecBodyString(one, "SysHealth"), "") << "inactive";
}

TEST_F(SysHealthMetricLoggerTest, CpuStyleReportWritesOneRecordWithFieldsInKeyOrder) {
  enableVedrix();
  configure("SysHealthCpuUsage", false, true).vedrixMetricInterface.metrics = {
      {"cpu_sys_aggregation_period", "period", "int"},
      {"cpu_metric_values", "values", "str"},
      {"cpu_metric_type", "type", "str"},
      {"cpu_metric_keys", "keys", "str"}};
  SysHealthMetricLogger logger;
  logger.init("CpuUsageMonitor");
  LogCapture capture;
  logger.appendPercentileToVec("cpu_metric_keys", "CpuSys", "CPUUtilization.P50",
                               "cpu_metric_values", "12");
  logger.appendPercentileToVec("cpu_metric_keys", "CpuSys", "CPUUtilization.P90",
                               "cpu_metric_values", "40");
  logger.appendStringToVec("cpu_metric_type", "System", "|");
  logger.appendUint64ToVec("cpu_sys_aggregation_period", 120);
  logger.emitVedrixMetricPairVec("cpu_metric_keys");
  EXPECT_TRUE(logger.buildVector().empty()) << "storing the sample starts a new collection";
  logger.publish("SysHealthCpuUsage");
  EXPECT_EQ(capture.records(),
            metricRecords({"grpA:sch7:100:keys=CpuSys.P50|CpuSys.P90;SY,type=System;SY,"
                           "values=12|40;SY,period=120;IN" +
                           kDeviceTail + ":eu"}));
}

TEST_F(SysHealthMetricLoggerTest, ActivePlainInterfaceHoldsTheSampleBackUntilItIsSwitchedOff) {
  enableVedrix();
  auto& record = configure("SysHealthMemoryUsage", true, true);
  record.vedrixMetricInterface.metrics = {{"mem_metric_type", "T", "str"}};
  SysHealthMetricLogger logger;
  LogCapture capture;

  logger.appendStringToVec("mem_metric_type", "first", "|");
  logger.emitVedrixMetricPairVec("mem_metric_keys");
  logger.publish("SysHealthMemoryUsage");
  EXPECT_TRUE(capture.records().empty()) << "no plain values: the publish returns early";

  logger.appendStringToVec("mem_metric_type", "second", "|");
  logger.emitVedrixMetricPairVec("mem_metric_keys");         // replaces the waiting sample
  logger.appendStringToVec("mem_metric_type", "next", "|");  // after the emit: kept for later
  record.trazMetricInterface.active = false;
  logger.publish("SysHealthMemoryUsage");
  EXPECT_EQ(capture.records(), metricRecords({"grpA:sch7:100:T=second;SY" + kDeviceTail + ":eu"}));
  EXPECT_EQ(logger.buildVector(), (Fields{{"mem_metric_type", "next"}}));
}

}  // namespace
}  // namespace halvexd
