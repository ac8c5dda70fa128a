#include "monitors/PressureMonitor.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <string>

#include "config/HalvexConfig.h"
#include "metrics/PublishNames.h"
#include "platform/LogBuffers.h"
#include "stats/StatUtil.h"

namespace halvexd::pressuremonitor {
namespace {

constexpr const char* kTag = "halvexd:PressureMonitor";

monitor_config configOf(const ExtensionConfig::Pressure& settings) {
  monitor_config config;
  config.name = publishnames::kPressureMonitor.monitor;
  config.active = true;
  config.sampleIntervalTicks = settings.sampleIntervalTicks;
  config.metricReportIntervalTicks = settings.reportIntervalTicks;
  config.metricLogcatIntervalTicks = settings.logcatIntervalTicks;
  return config;
}

// The configured thresholds are percentages with two decimals.
uint32_t toHundredths(double percent) { return static_cast<uint32_t>(std::lround(percent * 100)); }

double toPercent(uint64_t hundredths) { return static_cast<double>(hundredths) / 100; }

}  // namespace

PressureMonitor::PressureMonitor(const ExtensionConfig::Pressure& settings)
    : MonitorInterface(configOf(settings)),
      resources{{"memory", "Memory", true, {}, {}},
                {"cpu", "Cpu", true, {}, {}},
                {"io", "Io", true, {}, {}}},
      memorySome("MemorySomeAvg10", toHundredths(settings.memorySomeAvg10Threshold), kTag),
      memoryFull("MemoryFullAvg10", toHundredths(settings.memoryFullAvg10Threshold), kTag) {}

bool PressureMonitor::init() {
  MonitorInterface::init();
  std::string missing;
  size_t left = 0;
  for (Resource& resource : resources) {
    PressureStall stall;
    const int error = StatUtil::getPressure(resource.file, stall);
    // A file that is there but unreadable this once is still sampled.
    resource.available = error == 0 || error == EBADMSG;
    if (resource.available) {
      ++left;
      continue;
    }
    missing += std::string(missing.empty() ? "" : ", ") + "/proc/pressure/" + resource.file + ": " +
               std::strerror(error);
  }
  if (left == 0) {
    __android_log_buf_print(kSystemLogBuffer, ANDROID_LOG_WARN, kTag,
                            "No pressure stall information on this kernel (%s): pressure is not "
                            "monitored",
                            missing.c_str());
  } else if (!missing.empty()) {
    __android_log_buf_print(kSystemLogBuffer, ANDROID_LOG_WARN, kTag,
                            "Pressure stall information partly missing (%s): the rest is monitored",
                            missing.c_str());
  }
  return true;
}

bool PressureMonitor::check(unsigned long tick, bool force) {
  if (sampleDue(tick, force, 0)) {
    sample(tick);
  }
  if (force || tickRemainder(tick + 1, metricReportIntervalTicks) == 0) {
    log();
  }
  return true;
}

void PressureMonitor::sample(unsigned long tick) {
  const bool logLevelsNow = tickRemainder(tick, metricLogcatIntervalTicks) == 0;
  for (Resource& resource : resources) {
    if (!resource.available) continue;
    PressureStall stall;
    const int error = StatUtil::getPressure(resource.file, stall);
    if (error != 0) {
      // A parse failure has its own line from the reader.
      if (error != EBADMSG) {
        __android_log_buf_print(kSystemLogBuffer, ANDROID_LOG_ERROR, kTag,
                                "Failed to read /proc/pressure/%s: %s", resource.file,
                                std::strerror(error));
      }
      continue;
    }
    addToSeries(resource.some, stall.some);
    if (stall.full.present) addToSeries(resource.full, stall.full);
    if (&resource == &resources.front()) {
      memorySome.addSample(tick, stall.some.avg10);
      if (stall.full.present) memoryFull.addSample(tick, stall.full.avg10);
    }
    if (logLevelsNow) logLevels(resource, stall);
  }
}

void PressureMonitor::addToSeries(Series& series, const PressureLine& line) {
  if (!series.haveStart) {
    series.startTotalUs = line.totalUs;
    series.haveStart = true;
  }
  ++series.samples;
  series.maxAvg10 = std::max(series.maxAvg10, line.avg10);
  series.sumAvg10 += line.avg10;
  series.last = line;
}

void PressureMonitor::logLevels(const Resource& resource, const PressureStall& stall) const {
  std::string text = resource.file;
  for (const auto& [kind, line] :
       {std::make_pair("some", &stall.some), std::make_pair("full", &stall.full)}) {
    if (!line->present) continue;
    text += std::string(" ") + kind + " avg10=" + formatHundredths(line->avg10) +
            " avg60=" + formatHundredths(line->avg60) +
            " avg300=" + formatHundredths(line->avg300) + " total=" + std::to_string(line->totalUs);
  }
  __android_log_buf_print(kSystemLogBuffer, ANDROID_LOG_INFO, kTag, "%s", text.c_str());
}

void PressureMonitor::log() {
  bool any = false;
  for (Resource& resource : resources) {
    any = any || resource.some.samples != 0 || resource.full.samples != 0;
  }
  if (!any) return;
  for (Resource& resource : resources) {
    reportSeries(std::string(resource.metric) + ".Some.", resource.some);
    reportSeries(std::string(resource.metric) + ".Full.", resource.full);
  }
  metricLogger.publish(publishnames::kPressureMonitor.plainName);
}

void PressureMonitor::reportSeries(const std::string& prefix, Series& series) {
  if (series.samples == 0) return;
  const bool structured = HalvexConfig::instance().vedrixConfig.enabled;
  const std::pair<std::string, double> percentages[] = {
      {prefix + "Avg10Max", toPercent(series.maxAvg10)},
      {prefix + "Avg10Mean", toPercent(series.sumAvg10 / series.samples)},
      {prefix + "Avg60", toPercent(series.last.avg60)},
      {prefix + "Avg300", toPercent(series.last.avg300)},
  };
  for (const auto& [name, value] : percentages) {
    metricLogger.emitMetricDouble(name, value);
    if (structured) metricLogger.emitVedrixMetricDouble(name, value);
  }
  // A total that went back (the kernel never does that) gives no stall time
  // rather than a wrapped one.
  if (series.last.totalUs >= series.startTotalUs) {
    const unsigned long stallMs = (series.last.totalUs - series.startTotalUs) / 1000;
    metricLogger.emitMetricUint64(prefix + "StallMs", stallMs);
    if (structured) metricLogger.emitVedrixMetricUint64(prefix + "StallMs", stallMs);
  }
  // The next interval's stall time counts from where this one ended.
  const uint64_t endTotalUs = series.last.totalUs;
  series = Series{};
  series.startTotalUs = endTotalUs;
  series.haveStart = true;
}

}  // namespace halvexd::pressuremonitor
