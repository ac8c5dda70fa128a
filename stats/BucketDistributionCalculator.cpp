#include "stats/BucketDistributionCalculator.h"

#include <string>

namespace halvexd {
namespace {
const std::string kClassName = "BucketDistributionCalculator";
}  // namespace

unsigned int BucketDistributionCalculator::getBucketValue(unsigned char low, unsigned char high) {
  if (isEmpty() || low >= high || low > 99 || high > 100) {
    return kNoDistributionAnswer;
  }
  std::lock_guard<std::mutex> guard(lock);
  unsigned last = high == 100 ? 100 : high - 1u;
  unsigned int sum = 0;
  for (unsigned index = low; index <= last; ++index) {
    sum += counts[index];
  }
  return sum;
}

}  // namespace halvexd
