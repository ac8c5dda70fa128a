// How many samples of a report period fell between two percentages.
#pragma once

#include <memory>

#include "stats/DistributionHistogram.h"

namespace halvexd {

class BucketDistributionCalculator final
    : public DistributionHistogram<BucketDistributionCalculator> {
 public:
  ~BucketDistributionCalculator() = default;

  // The number of samples v with low <= v < high; a bucket whose upper bound
  // is 100 also counts the samples of exactly 100, so the top bucket is
  // closed. Answers 101 when there are no samples, low >= high, low > 99 or
  // high > 100. A count of exactly 101 looks the same as that answer.
  unsigned int getBucketValue(unsigned char low, unsigned char high);

 private:
  friend class DistributionHistogram<BucketDistributionCalculator>;
  BucketDistributionCalculator() = default;
};

}  // namespace halvexd
