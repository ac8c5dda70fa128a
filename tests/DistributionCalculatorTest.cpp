#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "stats/BucketDistributionCalculator.h"
#include "stats/PercentageDistributionCalculator.h"

namespace halvexd {
namespace {

template <typename Calculator>
std::shared_ptr<Calculator> filledWith(const std::vector<unsigned char>& samples) {
  auto calculator = Calculator::create();
  for (unsigned char sample : samples) calculator->addMeasurement(sample);
  return calculator;
}

std::vector<unsigned char> repeated(unsigned char value, size_t times) {
  return std::vector<unsigned char>(times, value);
}

struct PercentileRow {
  const char* proves;
  std::vector<unsigned char> samples;
  unsigned char percentile;
  unsigned char expected;
};

TEST(PercentageDistributionCalculatorTest, AnswersOneAboveTheValueWhereTheTargetIsReached) {
  const PercentileRow rows[] = {
      {"no samples: no answer", {}, 50, 101},
      {"target 1*50/100 = 0 answers 0", {30}, 50, 0},
      {"target 1: stop at 10, answer one above", {10, 20}, 50, 11},
      {"target 2*99/100 truncates to 1", {10, 20}, 99, 11},
      {"target 2 walks to the second sample", {10, 20}, 100, 21},
      {"samples at 0 answer 1, not 0", repeated(0, 3), 50, 1},
      {"all at 50: the 50th percentile reads 51", repeated(50, 4), 50, 51},
      {"all at 100: 101, the empty answer", repeated(100, 4), 50, 101},
      {"150 samples: target 1 at 1 percent", repeated(40, 150), 1, 41},
      {"99 samples: target 0 at 1 percent", repeated(40, 99), 1, 0},
      {"stops at the first value whose cumulative count reaches the target", {5, 5, 60, 70}, 50, 6},
      {"percentile 0 has target 0", {10, 20}, 0, 0},
      {"percentiles above 100 are refused", {10, 20}, 101, 101},
  };
  for (const auto& row : rows) {
    auto calculator = filledWith<PercentageDistributionCalculator>(row.samples);
    EXPECT_EQ(calculator->getTopPercentileValue(row.percentile), row.expected) << row.proves;
  }
}

TEST(PercentageDistributionCalculatorTest, TargetProductWrapsInThirtyTwoBits) {
  // 42949673 * 100 = 2^32 + 4: the product wraps to 4, so the target is 0
  // and the answer 0, where a wide product would have answered 51.
  auto calculator = PercentageDistributionCalculator::create();
  for (uint32_t i = 0; i < 42949673u; ++i) calculator->addMeasurement(50);
  EXPECT_EQ(calculator->getTopPercentileValue(100), 0);
  calculator->addMeasurement(50);  // product 104: target 1
  EXPECT_EQ(calculator->getTopPercentileValue(100), 51);
}

TEST(BucketDistributionCalculatorTest, CountsHalfOpenBucketsWithAClosedTop) {
  auto calculator = filledWith<BucketDistributionCalculator>({0, 9, 10, 89, 90, 99, 100, 100});
  struct Row {
    const char* proves;
    unsigned char low, high;
    unsigned expected;
  } rows[] = {
      {"low bound included, high excluded", 0, 10, 2},
      {"9 is outside [0, 9)", 0, 9, 1},
      {"a top bucket ending at 100 counts the samples of 100", 90, 100, 4},
      {"a bucket ending at 99 does not", 90, 99, 1},
      {"narrowest top bucket", 99, 100, 3},
      {"everything", 0, 100, 8},
      {"inner bucket", 10, 90, 2},
      {"empty range low == high", 100, 100, 101},
      {"low above high", 10, 5, 101},
      {"high above 100", 0, 101, 101},
      {"low above 99", 100, 101, 101},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(calculator->getBucketValue(row.low, row.high), row.expected) << row.proves;
  }
}

TEST(DistributionCalculatorTest, OutOfRangeSamplesAreDroppedAndResetEmpties) {
  auto percentiles = PercentageDistributionCalculator::create();
  auto buckets = BucketDistributionCalculator::create();
  for (unsigned char dropped : {101, 255}) {
    percentiles->addMeasurement(dropped);
    buckets->addMeasurement(dropped);
  }
  EXPECT_EQ(percentiles->getTopPercentileValue(100), 101);
  EXPECT_EQ(buckets->getBucketValue(0, 100), 101u);

  percentiles->addMeasurement(20);
  buckets->addMeasurement(20);
  buckets->addMeasurement(200);
  EXPECT_EQ(percentiles->getTopPercentileValue(100), 21);
  EXPECT_EQ(buckets->getBucketValue(0, 100), 1u);

  percentiles->resetValues();
  buckets->resetValues();
  EXPECT_EQ(percentiles->getTopPercentileValue(100), 101);
  EXPECT_EQ(buckets->getBucketValue(0, 100), 101u);

  // Counting restarts from nothing after a reset.
  percentiles->addMeasurement(70);
  buckets->addMeasurement(70);
  EXPECT_EQ(percentiles->getTopPercentileValue(100), 71);
  EXPECT_EQ(buckets->getBucketValue(0, 100), 1u);
  EXPECT_EQ(buckets->getBucketValue(0, 70), 0u);
}

TEST(DistributionCalculatorTest, EachCreateGivesItsOwnHistogram) {
  auto first = BucketDistributionCalculator::create();
  auto second = BucketDistributionCalculator::create();
  first->addMeasurement(5);
  EXPECT_EQ(first->getBucketValue(0, 10), 1u);
  EXPECT_EQ(second->getBucketValue(0, 10), 101u);
}

TEST(DistributionCalculatorTest, ConcurrentWritersLoseNoSample) {
  auto buckets = BucketDistributionCalculator::create();
  auto writer = [&buckets](unsigned char value) {
    for (int i = 0; i < 20000; ++i) buckets->addMeasurement(value);
  };
  std::thread a(writer, 10), b(writer, 60);
  a.join();
  b.join();
  EXPECT_EQ(buckets->getBucketValue(0, 50), 20000u);
  EXPECT_EQ(buckets->getBucketValue(50, 100), 20000u);
}

}  // namespace
}  // namespace halvexd
