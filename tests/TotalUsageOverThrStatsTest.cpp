#include "stats/TotalUsageOverThrStats.h"

#include <gtest/gtest.h>

#include "platform/LogBuffers.h"
#include "tests/support/TestSupport.h"

namespace halvexd {
namespace {

using testing::LogCapture;
using testing::LogRecord;

LogRecord statLine(const std::string& message) {
  return {kSystemLogBuffer, ANDROID_LOG_INFO, "halvexd:StatUtil", message};
}

// A logcat interval no test tick reaches, so only tick 0 would print "is at".
constexpr unsigned long kQuiet = 100000;

TEST(TotalUsageOverThrStatsTest, CrossingSixtyTickSummariesAndFallingBack) {
  TotalUsageOverThrStats stats;
  stats.initTotalUsageOverThrStats(-1);
  LogCapture capture;
  stats.printUsageStats(10, kQuiet, 96, 95, "cpu");
  for (unsigned long tick = 11; tick <= 69; ++tick)
    stats.printUsageStats(tick, kQuiet, 97, 95, "cpu");
  stats.printUsageStats(70, kQuiet, 98, 95, "cpu");
  for (unsigned long tick = 71; tick <= 129; ++tick)
    stats.printUsageStats(tick, kQuiet, 99, 95, "cpu");
  stats.printUsageStats(130, kQuiet, 95, 95, "cpu");
  stats.printUsageStats(135, kQuiet, 50, 95, "cpu");
  stats.printUsageStats(136, kQuiet, 50, 95, "cpu");

  // Tick 70: sum of ticks 10..69 = 96 + 59 * 97 = 5819; 5819 / 60 narrowed to
  // float prints 96.983330 (as a double it would be 96.983333). Tick 130: the
  // span restarted at tick 70 with 98, then 59 samples of 99: 5939 / 60.
  // The fall at tick 135 is 125 ticks after the crossing, reported as
  // "seconds"; the sample at tick 136 is already below and prints nothing.
  EXPECT_EQ(capture.records(),
            (std::vector<LogRecord>{
                statLine("cpu crossed 95%. Current - 96%"),
                statLine("cpu still above 95%. Current - 98% Last 60 ticks stats: Min - 96% "
                         "Max - 97% Avg - 96.983330%"),
                statLine("cpu still above 95%. Current - 95% Last 60 ticks stats: Min - 98% "
                         "Max - 99% Avg - 98.983330%"),
                statLine("cpu now below 95%. Usage - 50%. Total seconds above threshold - 125"),
            }));
}

TEST(TotalUsageOverThrStatsTest, AverageAlwaysDividesBySixtyTicks) {
  // One sample every other tick: 30 samples of 96 in the span, sum 2880.
  TotalUsageOverThrStats stats;
  LogCapture capture;
  for (unsigned long tick = 10; tick <= 70; tick += 2)
    stats.printUsageStats(tick, kQuiet, 96, 95, "m");
  ASSERT_EQ(capture.records().size(), 2u);
  EXPECT_EQ(capture.records()[1],
            statLine("m still above 95%. Current - 96% Last 60 ticks stats: Min - 96% Max - 96% "
                     "Avg - 48.000000%"));
}

TEST(TotalUsageOverThrStatsTest, SampleTicksOffTheSixtyTickGridNeverSummarise) {
  TotalUsageOverThrStats stats;
  LogCapture capture;
  for (unsigned long tick = 10; tick <= 400; tick += 7)
    stats.printUsageStats(tick, kQuiet, 99, 95, "m");
  EXPECT_EQ(capture.messages("halvexd:StatUtil"),
            std::vector<std::string>{"m crossed 95%. Current - 99%"});
}

TEST(TotalUsageOverThrStatsTest, ZeroSumCountsAsBelowSoEverySampleCrossesAgain) {
  TotalUsageOverThrStats stats;
  LogCapture capture;
  stats.printUsageStats(1, kQuiet, 0, 0, "z");
  stats.printUsageStats(2, kQuiet, 0, 0, "z");
  EXPECT_EQ(capture.messages("halvexd:StatUtil"),
            (std::vector<std::string>{"z crossed 0%. Current - 0%", "z crossed 0%. Current - 0%"}));
}

TEST(TotalUsageOverThrStatsTest, InitWithAValueStartsAboveAndMinusOneClears) {
  struct Row {
    const char* proves;
    int initValue;
    std::vector<std::string> expected;
  } rows[] = {
      {"a value other than -1 is taken as above since tick 0",
       50,
       {"u still above 95%. Current - 97% Last 60 ticks stats: Min - 50% Max - 50% Avg - "
        "0.833333%",
        "u now below 95%. Usage - 10%. Total seconds above threshold - 61"}},
      {"-1 is not above: the first sample crosses",
       -1,
       {"u crossed 95%. Current - 97%",
        "u now below 95%. Usage - 10%. Total seconds above threshold - 1"}},
  };
  for (const auto& row : rows) {
    TotalUsageOverThrStats stats;
    stats.initTotalUsageOverThrStats(row.initValue);
    LogCapture capture;
    stats.printUsageStats(60, kQuiet, 97, 95, "u");
    stats.printUsageStats(61, kQuiet, 10, 95, "u");
    EXPECT_EQ(capture.messages("halvexd:StatUtil"), row.expected) << row.proves;
  }
}

TEST(TotalUsageOverThrStatsTest, IsAtLineFollowsTheLogcatIntervalWhateverTheThreshold) {
  struct Row {
    const char* proves;
    unsigned long interval;
    std::vector<unsigned long> ticksPrinted;
  } rows[] = {
      {"every 20 ticks from 0", 20, {0, 20, 40}},
      {"interval 0 prints on tick 0 only", 0, {0}},
      {"interval 40: ticks 0 and 40", 40, {0, 40}},
  };
  for (const auto& row : rows) {
    TotalUsageOverThrStats stats;
    LogCapture capture;
    std::vector<LogRecord> expected;
    for (unsigned long tick = 0; tick <= 41; ++tick) {
      // Above the threshold from tick 20 on: the "is at" line comes after the
      // threshold line of the same sample.
      int usage = tick >= 20 ? 99 : 5;
      stats.printUsageStats(tick, row.interval, usage, 95, "cpu");
      if (tick == 20) expected.push_back(statLine("cpu crossed 95%. Current - 99%"));
      for (unsigned long printed : row.ticksPrinted) {
        if (printed == tick)
          expected.push_back(statLine("cpu is at " + std::to_string(usage) + "%"));
      }
    }
    EXPECT_EQ(capture.records(), expected) << row.proves;
  }
}

}  // namespace
}  // namespace halvexd
