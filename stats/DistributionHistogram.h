// The histogram shared by the percentile and bucket calculators: one counter
// per whole percentage 0..100, the number of samples, and the extremes, all
// guarded by the calculator's own mutex. The two calculators differ only in
// the question they ask of it.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>

namespace halvexd {

// 101 is one above the largest valid percentage: it marks an unset extreme
// and is the calculators' "no answer".
constexpr unsigned char kNoDistributionAnswer = 101;

template <typename Self>
class DistributionHistogram {
 public:
  // An empty calculator: every counter and the total 0, both extremes unset.
  static std::shared_ptr<Self> create() {
    std::shared_ptr<Self> calculator(new Self());
    calculator->resetValues();
    return calculator;
  }

  DistributionHistogram(const DistributionHistogram&) = delete;
  DistributionHistogram& operator=(const DistributionHistogram&) = delete;

  // Counts one sample. A value above 100 is not a percentage and is dropped
  // without touching the histogram.
  void addMeasurement(unsigned char value) {
    if (value >= kSlots) {
      return;
    }
    std::lock_guard<std::mutex> guard(lock);
    counts[value] += 1;
    total.store(total.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
    if (maximum == kNoDistributionAnswer || maximum < value) {
      maximum = value;
    }
    if (minimum == kNoDistributionAnswer || minimum > value) {
      minimum = value;
    }
  }

  // Forgets every sample; the queries answer 101 until the next one.
  void resetValues() {
    std::lock_guard<std::mutex> guard(lock);
    for (auto& count : counts) {
      count = 0;
    }
    total.store(0, std::memory_order_relaxed);
    maximum = kNoDistributionAnswer;
    minimum = kNoDistributionAnswer;
  }

 protected:
  static constexpr unsigned kSlots = 101;

  DistributionHistogram() = default;
  ~DistributionHistogram() = default;

  // The queries look at the total first without the lock, to answer an empty
  // histogram cheaply; it is atomic so that this early look is not a race
  // with a writer on another thread.
  bool isEmpty() const { return total.load(std::memory_order_relaxed) == 0; }

  uint32_t counts[kSlots] = {};
  std::atomic<uint32_t> total{0};
  // The extremes belong to the histogram's record of its samples and are kept
  // up to date with it; neither query reads them.
  uint8_t maximum = kNoDistributionAnswer;
  uint8_t minimum = kNoDistributionAnswer;
  std::mutex lock;
};

}  // namespace halvexd
