// Follows one pressure average (hundredths of a percent) sample by sample and
// writes status lines to the system log as the usage monitors' threshold
// statistics do: when it reaches the threshold, every 60 ticks while it stays
// there (with the span's minimum, maximum and mean), and when it falls back.
// Unlike those, the span is measured in ticks between samples, so it holds
// for any sample interval, and the mean is over the samples taken.
#pragma once

#include <cstdint>
#include <string>

namespace halvexd {

class PressureOverThrStats {
 public:
  // `name` starts every line ("MemorySomeAvg10"); `tag` is the writer's.
  PressureOverThrStats(std::string name, uint32_t thresholdHundredths, const char* tag);

  // Feeds the average `hundredths` sampled on `tick`.
  void addSample(uint64_t tick, uint32_t hundredths);

 private:
  static constexpr uint64_t kSpanTicks = 60;

  void startSpan(uint64_t tick, uint32_t hundredths);

  std::string name;
  uint32_t threshold;
  const char* tag;
  bool above = false;
  uint64_t crossedTick = 0;
  uint64_t spanStartTick = 0;
  uint32_t minimum = 0;
  uint32_t maximum = 0;
  uint64_t sum = 0;
  uint64_t samples = 0;
};

// "12.34" for 1234.
std::string formatHundredths(uint64_t hundredths);

}  // namespace halvexd
