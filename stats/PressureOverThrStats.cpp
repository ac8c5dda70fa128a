#include "stats/PressureOverThrStats.h"

#include <algorithm>
#include <cstdio>

#include "platform/LogBuffers.h"

namespace halvexd {

std::string formatHundredths(uint64_t hundredths) {
  char text[32];
  std::snprintf(text, sizeof(text), "%llu.%02llu",
                static_cast<unsigned long long>(hundredths / 100),
                static_cast<unsigned long long>(hundredths % 100));
  return text;
}

PressureOverThrStats::PressureOverThrStats(std::string statName, uint32_t thresholdHundredths,
                                           const char* logTag)
    : name(std::move(statName)), threshold(thresholdHundredths), tag(logTag) {}

void PressureOverThrStats::startSpan(uint64_t tick, uint32_t hundredths) {
  spanStartTick = tick;
  minimum = maximum = hundredths;
  sum = hundredths;
  samples = 1;
}

void PressureOverThrStats::addSample(uint64_t tick, uint32_t hundredths) {
  const std::string limit = formatHundredths(threshold);
  const std::string current = formatHundredths(hundredths);
  if (hundredths < threshold) {
    if (above) {
      __android_log_buf_print(kSystemLogBuffer, ANDROID_LOG_INFO, tag,
                              "%s now below %s%%. Current - %s%%. Ticks above threshold - %llu",
                              name.c_str(), limit.c_str(), current.c_str(),
                              static_cast<unsigned long long>(tick - crossedTick));
      above = false;
    }
    return;
  }
  if (!above) {
    above = true;
    crossedTick = tick;
    startSpan(tick, hundredths);
    __android_log_buf_print(kSystemLogBuffer, ANDROID_LOG_INFO, tag,
                            "%s crossed %s%%. Current - %s%%", name.c_str(), limit.c_str(),
                            current.c_str());
    return;
  }
  if (tick - spanStartTick < kSpanTicks) {
    minimum = std::min(minimum, hundredths);
    maximum = std::max(maximum, hundredths);
    sum += hundredths;
    ++samples;
    return;
  }
  __android_log_buf_print(kSystemLogBuffer, ANDROID_LOG_INFO, tag,
                          "%s still above %s%%. Current - %s%% Last %llu ticks stats: Min - %s%% "
                          "Max - %s%% Avg - %s%%",
                          name.c_str(), limit.c_str(), current.c_str(),
                          static_cast<unsigned long long>(tick - spanStartTick),
                          formatHundredths(minimum).c_str(), formatHundredths(maximum).c_str(),
                          formatHundredths(sum / samples).c_str());
  startSpan(tick, hundredths);
}

}  // namespace halvexd
