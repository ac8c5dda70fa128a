#include "stats/TotalUsageOverThrStats.h"

#include <algorithm>

#include "stats/TickRemainder.h"
#include "platform/LogBuffers.h"

namespace halvexd {
namespace {
const char* const kTag = "halvexd:StatUtil";
}  // namespace

void TotalUsageOverThrStats::initTotalUsageOverThrStats(int value) {
  minimum = value;
  maximum = value;
  if (value == -1) {
    sum = 0;
    startTick = 0;
  } else {
    sum = value;
  }
}

void TotalUsageOverThrStats::printUsageStats(unsigned long tick, unsigned long logcatInterval,
                                             int usage, int threshold, std::string name) {
  event = Event::None;
  if (usage >= threshold) {
    if (sum == 0) {
      event = Event::Crossed;
      startTick = tick;
      initTotalUsageOverThrStats(usage);
      __android_log_buf_print(kSystemLogBuffer, ANDROID_LOG_INFO, kTag,
                              "%s crossed %d%%. Current - %d%%", name.c_str(), threshold, usage);
    } else if ((tick - startTick) % kSpanTicks != 0) {
      minimum = std::min(minimum, usage);
      maximum = std::max(maximum, usage);
      sum += usage;
    } else {
      event = Event::StillAbove;
      float average = static_cast<float>(sum / static_cast<double>(kSpanTicks));
      __android_log_buf_print(kSystemLogBuffer, ANDROID_LOG_INFO, kTag,
                              "%s still above %d%%. Current - %d%% Last %d ticks stats: Min - "
                              "%d%% Max - %d%% Avg - %f%%",
                              name.c_str(), threshold, usage, kSpanTicks, minimum, maximum,
                              static_cast<double>(average));
      // A new span starts with this sample; the start tick stays at the
      // crossing so the summary recurs every 60 ticks after it.
      initTotalUsageOverThrStats(usage);
    }
  } else if (sum != 0) {
    event = Event::Below;
    // The count is in ticks; the line has always said seconds.
    __android_log_buf_print(kSystemLogBuffer, ANDROID_LOG_INFO, kTag,
                            "%s now below %d%%. Usage - %d%%. Total seconds above threshold - %llu",
                            name.c_str(), threshold, usage,
                            static_cast<unsigned long long>(tick - startTick));
    initTotalUsageOverThrStats(-1);
  }

  if (tickRemainder(tick, logcatInterval) == 0) {
    __android_log_buf_print(kSystemLogBuffer, ANDROID_LOG_INFO, kTag, "%s is at %d%%", name.c_str(),
                            usage);
  }
}

}  // namespace halvexd
