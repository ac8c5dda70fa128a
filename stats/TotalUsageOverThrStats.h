// Follows one usage percentage sample by sample and writes status lines to
// the system log when it crosses a threshold upwards, every 60 ticks while it
// stays above, when it falls back below, and at the logcat interval.
#pragma once

#include <cstdint>
#include <string>

namespace halvexd {

class TotalUsageOverThrStats {
 public:
  // Which threshold line the last sample wrote, if any.
  enum class Event { None, Crossed, StillAbove, Below };

  // Not above the threshold, nothing recorded.
  TotalUsageOverThrStats() = default;

  // Minimum and maximum become `value`; the sum becomes `value`, except that
  // -1 means "not above": sum 0 and start tick 0. Otherwise the start tick
  // is left as it is.
  void initTotalUsageOverThrStats(int value);

  // Feeds the sample `usage` taken on `tick`. Writes (INFO, system buffer,
  // tag "halvexd:StatUtil") the crossing, the 60-tick "still above" summary
  // and the falling-back line as they happen, and the "is at" line on every
  // tick that is a multiple of `logcatInterval`.
  void printUsageStats(unsigned long tick, unsigned long logcatInterval, int usage, int threshold,
                       std::string name);

  // The threshold line written by the last printUsageStats ("is at" aside).
  Event lastEvent() const { return event; }

 private:
  // Length of one "still above" span, in ticks; the average divides by it
  // whatever number of samples the span held.
  static constexpr int kSpanTicks = 60;

  int32_t minimum = -1;
  int32_t maximum = -1;
  // Non-zero while the usage is above the threshold: being above is not kept
  // apart from the sum, so a span whose samples add up to 0 counts as below.
  int32_t sum = 0;
  uint64_t startTick = 0;
  Event event = Event::None;
};

}  // namespace halvexd
