#include "stats/PercentageDistributionCalculator.h"

#include <cstdint>
#include <string>

namespace halvexd {
namespace {
const std::string kClassName = "PercentageDistributionCalculator";
}  // namespace

unsigned char PercentageDistributionCalculator::getTopPercentileValue(unsigned char percentile) {
  if (isEmpty()) {
    return kNoDistributionAnswer;
  }
  // Above 100 the walk would run past the last counter; nothing configures
  // such a percentile, so it is refused rather than answered.
  if (percentile > 100) {
    return kNoDistributionAnswer;
  }
  std::lock_guard<std::mutex> guard(lock);
  // The product is taken in 32 bits and divided as a signed number, as the
  // reported values have always been computed.
  uint32_t product = total.load(std::memory_order_relaxed) * static_cast<uint32_t>(percentile);
  int32_t target = static_cast<int32_t>(product) / 100;
  if (target == 0) {
    return 0;
  }
  uint32_t sum = 0;
  for (unsigned index = 0; index < kSlots; ++index) {
    sum += counts[index];
    if (static_cast<int64_t>(sum) >= target) {
      return static_cast<unsigned char>(index + 1);
    }
  }
  // Not reachable for a percentile of at most 100: the sum ends at the total,
  // which is never below the target.
  return kNoDistributionAnswer;
}

}  // namespace halvexd
