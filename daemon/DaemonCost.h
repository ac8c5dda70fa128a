// What the daemon itself costs the device: the engine times every monitor's
// check, and every interval this writes, from the daemon's own /proc
// entries, its CPU time and voluntary context switches since the last
// report, the mean and longest tick, the longest check and whose it was, its
// resident, proportional and private dirty memory and its open descriptors.
// A tick over the configured budget logs one warning per interval.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "config/ExtensionConfig.h"
#include "metrics/MetricLogger.h"
#include "metrics/PublishNames.h"

namespace halvexd::daemoncost {

class DaemonCost {
 public:
  // Reads the daemon's CPU time and switches: the base of the first report.
  explicit DaemonCost(const ExtensionConfig::DaemonCost& settings);

  // Monotonic microseconds.
  uint64_t now() const { return clock(); }

  // The engine's calls around one tick: each check's duration, then the end
  // of the tick (which reports when an interval ends there).
  void tickBegins();
  void checkDone(const std::string& monitor, uint64_t micros);
  void tickDone(uint64_t tick);

  // Replaces the monotonic clock, so that tests set every duration.
  void setClockForTesting(std::function<uint64_t()> replacement) { clock = std::move(replacement); }

 private:
  // The daemon's own figures at one moment; `has...` false where the file
  // would not answer (smaps_rollup needs a 4.14 kernel).
  struct Own {
    uint64_t cpuTicks = 0;
    uint64_t voluntarySwitches = 0;
    uint64_t rssKb = 0;
    uint64_t pssKb = 0;
    uint64_t privateDirtyKb = 0;
    bool hasRollup = false;
    uint64_t openFds = 0;
  };
  static Own readOwn();
  void warnOverBudget(uint64_t tick, uint64_t tickMicros);
  void report();

  ExtensionConfig::DaemonCost settings;
  std::function<uint64_t()> clock;
  uint64_t msPerClockTick = 10;
  Own last;
  MetricLogger metricLogger;

  // This tick.
  uint64_t tickStart = 0;
  std::string tickLongestCheck;
  uint64_t tickLongestMicros = 0;
  // This interval.
  uint64_t ticks = 0;
  uint64_t tickMicrosSum = 0;
  uint64_t tickMicrosMax = 0;
  std::string longestCheck;
  uint64_t longestCheckMicros = 0;
  bool warned = false;
};

}  // namespace halvexd::daemoncost
