// Pressure stall information: the share of time tasks waited for memory,
// CPU or I/O, from /proc/pressure/memory, cpu and io. Built only when the
// "Pressure" extension is on. Samples on its own interval, writes threshold
// lines for memory's 10-second averages and, every report interval, the
// interval's statistics as records.
#pragma once

#include <cstdint>
#include <vector>

#include "config/ExtensionConfig.h"
#include "daemon/MonitorInterface.h"
#include "stats/PressureOverThrStats.h"
#include "stats/SystemFileParsers.h"

namespace halvexd::pressuremonitor {

class PressureMonitor : public MonitorInterface {
 public:
  explicit PressureMonitor(const ExtensionConfig::Pressure& settings);

  // Names the logger and reads each file once: a file that cannot be read
  // (a kernel without pressure stall information, or with it switched off)
  // is left out from then on, and one line says so. Always true.
  bool init() override;
  // Samples on ticks that are multiples of the sample interval (or when
  // forced) and reports on the last tick of each report interval.
  bool check(unsigned long tick, bool force) override;
  // The report interval's figures as records; nothing when no sample was
  // taken since the last report.
  void log() override;

 private:
  // One line ("some" or "full") of one file over the current report interval.
  struct Series {
    uint64_t samples = 0;
    uint32_t maxAvg10 = 0;
    uint64_t sumAvg10 = 0;
    PressureLine last;
    // The stall total when the interval began (the first sample's, at first).
    uint64_t startTotalUs = 0;
    bool haveStart = false;
  };
  struct Resource {
    const char* file;    // "memory"
    const char* metric;  // "Memory"
    bool available = true;
    Series some;
    Series full;
  };

  void sample(unsigned long tick);
  static void addToSeries(Series& series, const PressureLine& line);
  void reportSeries(const std::string& prefix, Series& series);
  void logLevels(const Resource& resource, const PressureStall& stall) const;

  std::vector<Resource> resources;
  PressureOverThrStats memorySome;
  PressureOverThrStats memoryFull;
};

}  // namespace halvexd::pressuremonitor
