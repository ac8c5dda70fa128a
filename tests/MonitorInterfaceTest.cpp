#include "daemon/MonitorInterface.h"

#include <gtest/gtest.h>

namespace halvexd {
namespace {

using Metrics = std::list<std::pair<std::string, unsigned long>>;

// The smallest concrete monitor: the base's shared behaviour only.
class BareMonitor : public MonitorInterface {
 public:
  explicit BareMonitor(const std::string& baseName) { metricBaseName = baseName; }
  bool init() override { return MonitorInterface::init(); }
  bool check(unsigned long, bool) override { return true; }
  void log() override {}
};

TEST(MonitorInterfaceTest, EmptyDistributionGivesOnlyBucketsOfNoAnswer) {
  BareMonitor monitor("X");
  Metrics expected;
  for (const char* bucket : {"0-9", "10-19", "20-29", "30-39", "40-49", "50-59", "60-69", "70-79",
                             "80-89", "90-100"}) {
    expected.emplace_back(std::string("X.B") + bucket, 101);
  }
  EXPECT_EQ(monitor.getPeriodicMetrics(), expected);
}

TEST(MonitorInterfaceTest, PercentilesThenBucketsNamedFromTheirLists) {
  BareMonitor monitor("CPUUtilization");
  monitor.percentiles = {50, 75, 90, 99, 100};
  monitor.bucketBoundaries = {0, 50, 100};
  for (unsigned char sample : {10, 20, 60, 100}) {
    monitor.percentageCalculator->addMeasurement(sample);
    monitor.bucketCalculator->addMeasurement(sample);
  }
  // Four samples: P50 needs 2 of them (stops at 20, answers 21), P75..P99 need
  // 3 (stops at 60), P100 needs all 4 and answers 101, so it is left out.
  EXPECT_EQ(monitor.getPeriodicMetrics(), (Metrics{{"CPUUtilization.P50", 21},
                                                   {"CPUUtilization.P75", 61},
                                                   {"CPUUtilization.P90", 61},
                                                   {"CPUUtilization.P99", 61},
                                                   {"CPUUtilization.B0-49", 2},
                                                   {"CPUUtilization.B50-100", 2}}));

  monitor.resetMetricDistribution();
  EXPECT_EQ(monitor.getPeriodicMetrics(),
            (Metrics{{"CPUUtilization.B0-49", 101}, {"CPUUtilization.B50-100", 101}}));
}

TEST(MonitorInterfaceTest, BucketNamesCloseOnlyTheTopAtOneHundred) {
  BareMonitor monitor("M");
  struct Case {
    unsigned char low;
    unsigned char high;
    const char* expected;
  };
  const Case cases[] = {
      {0, 10, "M.B0-9"},   {90, 100, "M.B90-100"}, {0, 1, "M.B0-0"},
      {99, 100, "M.B99-100"}, {0, 0, "M.B0--1"},  {95, 101, "M.B95-100"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(monitor.getBucketMetricName(c.low, c.high), c.expected);
  }
  EXPECT_EQ(monitor.getPercentileMetricName(5), "M.P5");
  EXPECT_EQ(monitor.getPercentileMetricName(255), "M.P255");
}

TEST(MonitorInterfaceTest, FewerThanTwoBoundariesGiveNoBuckets) {
  BareMonitor monitor("M");
  monitor.percentiles = {};
  monitor.bucketBoundaries = {50};
  EXPECT_TRUE(monitor.getPeriodicMetrics().empty());
  monitor.bucketBoundaries = {};
  EXPECT_TRUE(monitor.getPeriodicMetrics().empty());
}

}  // namespace
}  // namespace halvexd
