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

using Samples = std::vector<unsigned char>;

TEST(PercentileTest, AnswersOneAboveTheValueWhereTheCumulativeCountReachesTheTarget) {
  const std::tuple<Samples, unsigned char, unsigned char> rows[] = {
      {{}, 50, 101},                                // no samples: no answer
      {{30}, 50, 0},                                // target 1*50/100 = 0 answers 0
      {{10, 20}, 50, 11},  {{5, 5, 60, 70}, 50, 6}, // the target reached exactly
      {{10, 20}, 99, 11},                           // 2*99/100 truncates to 1
      {{10, 20}, 100, 21},  {Samples(3, 0), 50, 1},
      {Samples(4, 100), 50, 101},                   // all at 100 read as no answer
      {Samples(150, 40), 1, 41},  {Samples(99, 40), 1, 0},  {{10, 20}, 0, 0},
      {{10, 20}, 101, 101},                         // not a percentile
      {{10, 101, 255}, 100, 11},                    // samples above 100 are dropped
  };
  for (const auto& [samples, percentile, expected] : rows) {
    auto calculator = PercentageDistributionCalculator::create();
    for (unsigned char sample : samples) calculator->addMeasurement(sample);
    EXPECT_EQ(calculator->getTopPercentileValue(percentile), expected)
        << samples.size() << " samples, P" << int(percentile);
  }
}

TEST(PercentileTest, TargetProductWrapsInThirtyTwoBits) {
  // 42949673 * 100 = 2^32 + 4 wraps to 4: target 0, answer 0 (a wide product: 51).
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
  const std::tuple<int, int, unsigned> rows[] = {  // low, high, count
      {0, 10, 2},  {0, 9, 1},  {90, 100, 4},  {90, 99, 1},  {99, 100, 3},  {0, 100, 8},
      {10, 90, 2},  {100, 100, 101},  {10, 5, 101},  {0, 101, 101},  {100, 101, 101},
  };
  for (const auto& [low, high, count] : rows) {
    EXPECT_EQ(calculator->getBucketValue(low, high), count) << low << "-" << high;
  }
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
  monitor.resetMetricDistribution();  // forgets every sample, the count of them too
  EXPECT_EQ(monitor.getPeriodicMetrics(),
            (Metrics{{"CPUUtilization.B0-49", 101}, {"CPUUtilization.B50-100", 101}}));
  monitor.percentageCalculator->addMeasurement(70);
  EXPECT_EQ(monitor.getPeriodicMetrics().front(), Metrics::value_type("CPUUtilization.P50", 0));
}

}  // namespace
}  // namespace halvexd
