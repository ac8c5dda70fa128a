// Which percentage a given share of the samples of a report period reaches.
#pragma once

#include <memory>

#include "stats/DistributionHistogram.h"

namespace halvexd {

class PercentageDistributionCalculator final
    : public DistributionHistogram<PercentageDistributionCalculator> {
 public:
  ~PercentageDistributionCalculator() = default;

  // One above the smallest value v for which the samples at or below v make
  // up at least `percentile` percent of all samples (target computed as
  // total * percentile / 100, truncated); 0 when that target is 0. Answers
  // 101 when there are no samples or the percentile is above 100. The offset
  // by one is what the metrics have always carried: all samples at 50 report
  // a 50th percentile of 51, all samples at 100 report 101, which the monitor
  // base leaves out as an empty answer.
  unsigned char getTopPercentileValue(unsigned char percentile);

 private:
  friend class DistributionHistogram<PercentageDistributionCalculator>;
  PercentageDistributionCalculator() = default;
};

}  // namespace halvexd
