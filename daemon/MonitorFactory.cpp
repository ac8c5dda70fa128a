#include "daemon/MonitorFactory.h"

#include <iterator>
#include <memory>
#include <new>

#include "config/HalvexConfig.h"
#include "metrics/PublishNames.h"
#include "monitors/CrossingSnapshot.h"
#include "monitors/CpuUsageMonitor.h"
#include "monitors/DiskUsageMonitor.h"
#include "monitors/MemoryUsageMonitor.h"
#include "monitors/ProcessCpuMonitor.h"
#include "monitors/PressureMonitor.h"
#include "monitors/ProcessMemMonitor.h"
#include "monitors/SystemMemMonitor.h"
#include "platform/LogBuffers.h"

namespace halvexd {
namespace {

constexpr const char* kTag = "halvexd";

const std::vector<unsigned char> kPercentiles{50, 75, 90, 99, 100};
const std::vector<unsigned char> kBucketBoundaries{0, 10, 20, 30, 40, 50, 60, 70, 80, 90, 100};

struct MonitorRow {
  // Names the monitor (its entry's `monitor`) and what it publishes.
  const MonitorPublishNames* publishes;
  uint64_t defaultSampleTicks;
  uint64_t reportTicks;
  uint64_t logcatTicks;
  uint64_t tickOffset;
  MonitorInterface* (*build)(const monitor_config& config);
};

// With 30-second ticks: 20 ticks are ten minutes, 120 an hour, 2880 a day.
// The offsets spread monitors of equal intervals over different ticks.
constexpr MonitorRow kMonitorTable[] = {
    {&publishnames::kProcessCpuMonitor, 120, 120, 120, 0,
     [](const monitor_config& c) -> MonitorInterface* {
       return new processcpumonitor::ProcessCpuMonitor(c);
     }},
    {&publishnames::kProcessMemMonitor, 120, 120, 120, 1,
     [](const monitor_config& c) -> MonitorInterface* {
       return new processmemmonitor::ProcessMemMonitor(c);
     }},
    {&publishnames::kSystemMemMonitor, 120, 120, 120, 2,
     [](const monitor_config& c) -> MonitorInterface* {
       return new systemmemmonitor::SystemMemMonitor(c);
     }},
    {&publishnames::kCpuUsageMonitor, 1, 2880, 20, 3,
     [](const monitor_config& c) -> MonitorInterface* {
       return new cpuusagemonitor::CpuUsageMonitor(c, kPercentiles, kBucketBoundaries);
     }},
    {&publishnames::kMemoryUsageMonitor, 1, 2880, 20, 4,
     [](const monitor_config& c) -> MonitorInterface* {
       return new memoryusagemonitor::MemoryUsageMonitor(c, kPercentiles, kBucketBoundaries);
     }},
    {&publishnames::kDiskUsageMonitor, 2880, 2880, 2880, 5,
     [](const monitor_config& c) -> MonitorInterface* {
       return new diskusagemonitor::DiskUsageMonitor(c);
     }},
};

// The table builds the monitors in the order the tools list them.
constexpr bool inPublishOrder() {
  if (std::size(kMonitorTable) != std::size(publishnames::kEveryMonitor)) return false;
  for (size_t i = 0; i < std::size(kMonitorTable); ++i) {
    if (kMonitorTable[i].publishes != publishnames::kEveryMonitor[i]) return false;
  }
  return true;
}
static_assert(inPublishOrder(), "kMonitorTable and publishnames::kEveryMonitor differ in order");

void logMonitorConfig(const monitor_config& config) {
  __android_log_buf_print(kSystemLogBuffer, ANDROID_LOG_INFO, kTag, "monitor name %s\n",
                          config.name.c_str());
  __android_log_buf_print(kSystemLogBuffer, ANDROID_LOG_INFO, kTag, "active %d\n",
                          config.active ? 1 : 0);
  __android_log_buf_print(kSystemLogBuffer, ANDROID_LOG_INFO, kTag, "sample interval in ticks %llu\n",
                          static_cast<unsigned long long>(config.sampleIntervalTicks));
  __android_log_buf_print(kSystemLogBuffer, ANDROID_LOG_INFO, kTag,
                          "metrics logcat interval in ticks %llu\n",
                          static_cast<unsigned long long>(config.metricLogcatIntervalTicks));
  __android_log_buf_print(kSystemLogBuffer, ANDROID_LOG_INFO, kTag,
                          "metrics report interval in ticks %llu\n",
                          static_cast<unsigned long long>(config.metricReportIntervalTicks));
}

// With the extension on, one snapshot writer serves both usage monitors:
// built with the CPU usage monitor (its counters go with that monitor's
// first sample), handed to the memory usage monitor after it in the table,
// and owned by the CPU usage monitor. Rows are told apart by their names,
// as the device build has no run-time type information.
void attachCrossingSnapshot(const MonitorRow& row, MonitorInterface* monitor,
                            crossingsnapshot::CrossingSnapshot*& snapshot) {
  const ExtensionConfig::CrossingSnapshot& settings =
      HalvexConfig::instance().extensions.crossingSnapshot;
  if (!settings.active) return;
  if (row.publishes == &publishnames::kCpuUsageMonitor) {
    auto owned = std::make_unique<crossingsnapshot::CrossingSnapshot>(settings);
    snapshot = owned.get();
    static_cast<cpuusagemonitor::CpuUsageMonitor*>(monitor)->setCrossingSnapshot(std::move(owned));
  } else if (row.publishes == &publishnames::kMemoryUsageMonitor) {
    static_cast<memoryusagemonitor::MemoryUsageMonitor*>(monitor)->setCrossingSnapshot(snapshot);
  }
}

}  // namespace

bool configureMonitors(unsigned long sampleInterval, bool optionsGiven,
                       std::vector<MonitorInterface*>& monitors, bool) {
  try {
    // Room first, so that appending a built monitor cannot throw and lose it
    // (one more for the pressure monitor).
    monitors.reserve(monitors.size() + std::size(kMonitorTable) + 1);
    crossingsnapshot::CrossingSnapshot* snapshot = nullptr;
    for (const MonitorRow& row : kMonitorTable) {
      monitor_config config;
      config.name = row.publishes->monitor;
      config.active = true;
      // Deliberately coarse: any option on the command line (even -d alone)
      // puts every monitor on the command line's sample interval.
      config.sampleIntervalTicks = optionsGiven ? sampleInterval : row.defaultSampleTicks;
      config.metricReportIntervalTicks = row.reportTicks;
      config.metricLogcatIntervalTicks = row.logcatTicks;
      config.tickOffset = row.tickOffset;
      logMonitorConfig(config);
      monitors.push_back(row.build(config));
      attachCrossingSnapshot(row, monitors.back(), snapshot);
    }
    const ExtensionConfig& extensions = HalvexConfig::instance().extensions;
    if (extensions.pressure.active) {
      monitors.push_back(new pressuremonitor::PressureMonitor(extensions.pressure));
    }
  } catch (const std::bad_alloc&) {
    // A monitor whose construction threw has already been freed by `new`;
    // those appended before stay, as the caller owns the vector.
    __android_log_buf_print(kSystemLogBuffer, ANDROID_LOG_ERROR, kTag,
                            "Failed to allocate a new monitor");
    return false;
  }
  return true;
}

}  // namespace halvexd
