// The lines a usage percentage writes as it crosses a threshold, stays above
// it, falls back below it, and at the logcat interval.
#include <gtest/gtest.h>

#include "platform/LogBuffers.h"
#include "stats/TotalUsageOverThrStats.h"
#include "tests/support/TestSupport.h"

namespace halvexd {
namespace {

using testing::LogCapture;
using testing::LogRecord;

// Samples of `usage` on ticks from..to, every `step` ticks.
struct Samples {
  unsigned long from, to, step;
  int usage;
};

constexpr unsigned long kQuiet = 100000;  // a logcat interval no row reaches after tick 0

TEST(ThresholdStatisticsTest, LinesFollowTheUsageAcrossTheThreshold) {
  struct Row {
    const char* proves;
    int threshold;
    unsigned long logcatInterval;
    std::vector<Samples> samples;
    std::vector<std::string> lines;
  };
  const Row rows[] = {
      {"crossing, two 60-tick summaries (float average), fall back after 125 ticks", 95, kQuiet,
       {{10, 10, 1, 96}, {11, 69, 1, 97}, {70, 70, 1, 98}, {71, 129, 1, 99}, {130, 130, 1, 95},
        {135, 136, 1, 50}},
       {"cpu crossed 95%. Current - 96%",
        // (96 + 59 * 97) / 60 = 96.98333..., narrowed to float
        "cpu still above 95%. Current - 98% Last 60 ticks stats: Min - 96% Max - 97% "
        "Avg - 96.983330%",
        "cpu still above 95%. Current - 95% Last 60 ticks stats: Min - 98% Max - 99% "
        "Avg - 98.983330%",
        "cpu now below 95%. Usage - 50%. Total seconds above threshold - 125"}},
      {"the average divides by 60 whatever the number of samples", 95, kQuiet,
       {{10, 70, 2, 96}},
       {"cpu crossed 95%. Current - 96%",
        "cpu still above 95%. Current - 96% Last 60 ticks stats: Min - 96% Max - 96% "
        "Avg - 48.000000%"}},
      {"samples off the 60-tick grid never summarise", 95, kQuiet, {{10, 400, 7, 99}},
       {"cpu crossed 95%. Current - 99%"}},
      {"usage equal to the threshold is above it", 95, kQuiet,
       {{3, 3, 1, 95}, {4, 4, 1, 94}},
       {"cpu crossed 95%. Current - 95%",
        "cpu now below 95%. Usage - 94%. Total seconds above threshold - 1"}},
      {"a zero sum counts as below, so every sample crosses again", 0, kQuiet, {{1, 2, 1, 0}},
       {"cpu crossed 0%. Current - 0%", "cpu crossed 0%. Current - 0%"}},
      {"is-at lines every 20 ticks, after the sample's threshold line", 95, 20,
       {{0, 19, 1, 5}, {20, 41, 1, 99}},
       {"cpu is at 5%", "cpu crossed 95%. Current - 99%", "cpu is at 99%", "cpu is at 99%"}},
      {"a logcat interval of 0 prints on tick 0 only", 95, 0, {{0, 41, 1, 5}}, {"cpu is at 5%"}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.proves);
    TotalUsageOverThrStats stats;
    stats.initTotalUsageOverThrStats(-1);
    LogCapture capture;
    for (const Samples& s : row.samples) {
      for (unsigned long tick = s.from; tick <= s.to; tick += s.step) {
        stats.printUsageStats(tick, row.logcatInterval, s.usage, row.threshold, "cpu");
      }
    }
    std::vector<LogRecord> expected;
    for (const std::string& line : row.lines) {
      expected.push_back({kSystemLogBuffer, ANDROID_LOG_INFO, "halvexd:StatUtil", line});
    }
    EXPECT_EQ(capture.records(), expected);
  }
}

}  // namespace
}  // namespace halvexd
