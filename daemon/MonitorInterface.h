// What the engine and start-up know of a monitor: the record it is built
// from, the tick gating rule, and its three operations.
#pragma once

#include <cstdint>
#include <string>

namespace halvexd {

struct monitor_config {
  std::string name;
  bool active = false;
  uint64_t sampleIntervalTicks = 0;
  uint64_t metricReportIntervalTicks = 0;
  uint64_t metricLogcatIntervalTicks = 0;
  uint64_t tickOffset = 0;
};

// `tick` modulo `interval`, where an interval of 0 leaves the tick itself: a
// gate on an interval of 0 is met once, on the tick equal to the gate value.
inline uint64_t tickRemainder(uint64_t tick, uint64_t interval) {
  uint64_t quotient = interval == 0 ? 0 : tick / interval;
  return tick - quotient * interval;
}

class MonitorInterface {
 public:
  virtual ~MonitorInterface() = default;

  // Prepares the monitor's loggers; false stops the daemon's start-up.
  virtual bool init() = 0;

  // Called by the engine on every tick; the monitor decides from the tick
  // whether it samples or reports. `force` runs it whatever its gates say.
  // False is logged by the engine and the loop goes on.
  virtual bool check(unsigned long tick, bool force) = 0;

  // Writes the monitor's report; called by the monitor itself from check().
  virtual void log() = 0;

  std::string name;
  bool active = false;
  uint64_t sampleIntervalTicks = 0;
  uint64_t metricReportIntervalTicks = 0;
  uint64_t metricLogcatIntervalTicks = 0;
  uint64_t tickOffset = 0;

 protected:
  MonitorInterface() = default;
  explicit MonitorInterface(const monitor_config& config)
      : name(config.name),
        active(config.active),
        sampleIntervalTicks(config.sampleIntervalTicks),
        metricReportIntervalTicks(config.metricReportIntervalTicks),
        metricLogcatIntervalTicks(config.metricLogcatIntervalTicks),
        tickOffset(config.tickOffset) {}
};

}  // namespace halvexd
