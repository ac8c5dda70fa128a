// Percentiles, buckets and the metric names a monitor reports them under.
// Needs no fixture tree and no host log sink, so the device test module runs
// it too.
#include <gtest/gtest.h>

#include <vector>

#include "daemon/MonitorInterface.h"
#include "stats/BucketDistributionCalculator.h"
#include "stats/PercentageDistributionCalculator.h"

namespace halvexd {
namespace {

std::vector<unsigned char> times(size_t count, unsigned char value) {
  return std::vector<unsigned char>(count, value);
}

TEST(PercentileTest, AnswersOneAboveTheValueWhereTheCumulativeCountReachesTheTarget) {
  struct Row {
    std::vector<unsigned char> samples;
    unsigned char percentile;
    unsigned char expected;
  };
  const Row rows[] = {
      {{}, 50, 101},                  // no samples: no answer
      {{30}, 50, 0},                  // target 1*50/100 = 0 answers 0
      {{10, 20}, 50, 11},             // target 1 is reached at 10 itself
      {{10, 20}, 99, 11},             // 2*99/100 truncates to 1
      {{10, 20}, 100, 21},
      {{5, 5, 60, 70}, 50, 6},        // target 2 reached exactly at 5
      {times(3, 0), 50, 1},
      {times(4, 100), 50, 101},       // all at 100 read as no answer
      {times(150, 40), 1, 41},        // target 1
      {times(99, 40), 1, 0},          // target 0
      {{10, 20}, 0, 0},
      {{10, 20}, 101, 101},           // not a percentile
      {{10, 101, 255}, 100, 11},      // samples above 100 are dropped
  };
  for (const auto& row : rows) {
    auto calculator = PercentageDistributionCalculator::create();
    for (unsigned char sample : row.samples) calculator->addMeasurement(sample);
    EXPECT_EQ(calculator->getTopPercentileValue(row.percentile), row.expected)
        << row.samples.size() << " samples, P" << int(row.percentile);
  }
}

TEST(PercentileTest, TargetProductWrapsInThirtyTwoBits) {
  // 42949673 * 100 = 2^32 + 4 wraps to 4: target 0, answer 0, where a wide
  // product would answer 51.
  auto calculator = PercentageDistributionCalculator::create();
  for (uint32_t i = 0; i < 42949673u; ++i) calculator->addMeasurement(50);
  EXPECT_EQ(calculator->getTopPercentileValue(100), 0);
  calculator->addMeasurement(50);  // 104: target 1
  EXPECT_EQ(calculator->getTopPercentileValue(100), 51);
}

TEST(BucketTest, HalfOpenBucketsWithAClosedTop) {
  auto calculator = BucketDistributionCalculator::create();
  for (unsigned char sample : {0, 9, 10, 89, 90, 99, 100, 100, 101}) {
    calculator->addMeasurement(sample);
  }
  struct Row {
    unsigned char low, high;
    unsigned expected;
  };
  const Row rows[] = {
      {0, 10, 2},   {0, 9, 1},   {90, 100, 4},  {90, 99, 1},  {99, 100, 3},  {0, 100, 8},
      {10, 90, 2},  {100, 100, 101},  {10, 5, 101},  {0, 101, 101},  {100, 101, 101},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(calculator->getBucketValue(row.low, row.high), row.expected)
        << int(row.low) << "-" << int(row.high);
  }
}

TEST(DistributionResetTest, AResetForgetsEverySample) {
  auto percentiles = PercentageDistributionCalculator::create();
  auto buckets = BucketDistributionCalculator::create();
  for (unsigned char sample : {20, 30, 40}) {
    percentiles->addMeasurement(sample);
    buckets->addMeasurement(sample);
  }
  percentiles->resetValues();
  buckets->resetValues();
  EXPECT_EQ(percentiles->getTopPercentileValue(100), 101);
  EXPECT_EQ(buckets->getBucketValue(0, 100), 101u);
  percentiles->addMeasurement(70);
  buckets->addMeasurement(70);
  EXPECT_EQ(percentiles->getTopPercentileValue(50), 0);  // one sample: target 0
  EXPECT_EQ(percentiles->getTopPercentileValue(100), 71);
  EXPECT_EQ(buckets->getBucketValue(0, 100), 1u);
}

// The smallest concrete monitor: the base's shared behaviour only.
class BareMonitor : public MonitorInterface {
 public:
  explicit BareMonitor(const std::string& baseName) { metricBaseName = baseName; }
  bool init() override { return true; }
  bool check(unsigned long, bool) override { return true; }
  void log() override {}
};

using Metrics = std::list<std::pair<std::string, unsigned long>>;

TEST(DistributionMetricsTest, PercentilesWithAnAnswerThenEveryBucket) {
  BareMonitor monitor("CPUUtilization");
  Metrics empty;
  for (const char* bucket : {"0-9", "10-19", "20-29", "30-39", "40-49", "50-59", "60-69", "70-79",
                             "80-89", "90-100"}) {
    empty.emplace_back(std::string("CPUUtilization.B") + bucket, 101);
  }
  EXPECT_EQ(monitor.getPeriodicMetrics(), empty);  // default lists, no sample yet

  monitor.percentiles = {50, 75, 90, 99, 100};
  monitor.bucketBoundaries = {0, 50, 100};
  for (unsigned char sample : {10, 20, 60, 100}) {
    monitor.percentageCalculator->addMeasurement(sample);
    monitor.bucketCalculator->addMeasurement(sample);
  }
  // P50 needs 2 samples (stops at 20), P75..P99 need 3 (stop at 60), P100
  // needs all 4 and answers 101, so it is left out.
  EXPECT_EQ(monitor.getPeriodicMetrics(),
            (Metrics{{"CPUUtilization.P50", 21}, {"CPUUtilization.P75", 61},
                     {"CPUUtilization.P90", 61}, {"CPUUtilization.P99", 61},
                     {"CPUUtilization.B0-49", 2}, {"CPUUtilization.B50-100", 2}}));
  monitor.resetMetricDistribution();
  EXPECT_EQ(monitor.getPeriodicMetrics(),
            (Metrics{{"CPUUtilization.B0-49", 101}, {"CPUUtilization.B50-100", 101}}));
  monitor.bucketBoundaries = {50};
  EXPECT_TRUE(monitor.getPeriodicMetrics().empty());
}

TEST(DistributionMetricsTest, BucketNamesCloseOnlyTheTopAtOneHundred) {
  BareMonitor monitor("M");
  const std::pair<std::pair<int, int>, const char*> rows[] = {
      {{0, 10}, "M.B0-9"},     {{90, 100}, "M.B90-100"}, {{0, 1}, "M.B0-0"},
      {{99, 100}, "M.B99-100"}, {{0, 0}, "M.B0--1"},     {{95, 101}, "M.B95-100"},
  };
  for (const auto& [bounds, expected] : rows) {
    EXPECT_EQ(monitor.getBucketMetricName(bounds.first, bounds.second), expected);
  }
  EXPECT_EQ(monitor.getPercentileMetricName(5), "M.P5");
}

}  // namespace
}  // namespace halvexd
