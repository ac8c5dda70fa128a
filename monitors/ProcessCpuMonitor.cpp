#include "monitors/ProcessCpuMonitor.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <utility>
#include <vector>

#include "config/HalvexConfig.h"
#include "metrics/PublishNames.h"
#include "metrics/RecordVocabulary.h"
#include "platform/LogBuffers.h"

namespace halvexd::processcpumonitor {
namespace {

constexpr const char* kTag = "halvexd:ProcessCpuMonitor";

// Plain and structured metrics name this many of the busiest processes; the
// system-health record carries the first kSystemHealthReported of them.
constexpr int kMetricsReported = 11;
constexpr int kSystemHealthReported = 3;
// The log table leaves out processes at or below this share of a CPU.
constexpr double kTableThresholdPercent = 0.1;

uint32_t ticksToMs(uint32_t msPerTick, uint32_t ticks) {
  // 32-bit arithmetic, wrapping, like the counters it is applied to.
  return msPerTick * ticks;
}

}  // namespace

bool CpuUsageCompare(ProcessListEntry* a, ProcessListEntry* b) {
  return a->cpuUsagePercent > b->cpuUsagePercent;
}

ProcessCpuMonitor::ProcessCpuMonitor(monitor_config config) : MonitorInterface(config) {
  long ticksPerSecond = sysconf(_SC_CLK_TCK);
  msPerClockTick = ticksPerSecond > 0 ? static_cast<uint32_t>(1000 / ticksPerSecond) : 0;
  // Asked once: the number of configured CPUs is fixed while the system
  // runs, and the C library answers it by reading a sysfs file, which would
  // be a third file per process on every snapshot.
  configuredCpus = sysconf(_SC_NPROCESSORS_CONF);
}

bool ProcessCpuMonitor::init() {
  return MonitorInterface::init();
}

void ProcessCpuMonitor::setUptimeClockForTesting(std::function<uint64_t()> clock) {
  uptimeMillis = std::move(clock);
}

bool ProcessCpuMonitor::check(unsigned long tick, bool force) {
  if (!sampleDue(tick, force, tickOffset)) return true;
  __android_log_buf_print(kSystemLogBuffer, ANDROID_LOG_DEBUG, kTag, "Running ProcessCPUMonitor");
  if (!getNewSnapshot()) {
    return false;
  }
  log();
  return true;
}

bool ProcessCpuMonitor::getNewSnapshot() {
  std::vector<int> pids;
  if (!StatUtil::getProcessList(pids)) {
    return false;
  }
  if (processList.empty()) {
    for (int pid : pids) {
      ProcessStat stat{};
      if (StatUtil::getProcessStat(pid, stat)) {
        addEntry(stat);
      }
    }
    return true;
  }
  for (auto& [pid, entry] : processList) {
    entry->remove = true;
  }
  for (int pid : pids) {
    ProcessStat stat{};
    bool read = StatUtil::getProcessStat(pid, stat);
    auto known = processList.find(pid);
    if (known != processList.end()) {
      // An unreadable process stays marked and goes with the compaction.
      if (read) updateEntry(known->second.get(), stat);
    } else if (read) {
      addEntry(stat);
    }
  }
  compactProcessList();
  return true;
}

void ProcessCpuMonitor::addEntry(const ProcessStat& stat) {
  auto entry = std::make_unique<ProcessListEntry>();
  entry->pid = stat.pid;
  StatUtil::getProcessName(stat.pid, entry->name);
  entry->utimeMs = ticksToMs(msPerClockTick, stat.utime);
  entry->stimeMs = ticksToMs(msPerClockTick, stat.stime);
  entry->sampleTimeMs = uptimeMillis();
  processList[stat.pid] = std::move(entry);
}

void ProcessCpuMonitor::updateEntry(ProcessListEntry* entry, const ProcessStat& stat) {
  StatUtil::getProcessName(entry->pid, entry->name);
  uint32_t utimeMs = ticksToMs(msPerClockTick, stat.utime);
  uint32_t stimeMs = ticksToMs(msPerClockTick, stat.stime);

  uint64_t now = uptimeMillis();
  entry->elapsedMs = static_cast<int64_t>(now - entry->sampleTimeMs);
  entry->utimeDeltaMs = utimeMs - static_cast<uint32_t>(entry->utimeMs);
  entry->stimeDeltaMs = stimeMs - static_cast<uint32_t>(entry->stimeMs);
  // The sum is read as signed: a counter that went backwards (a reused pid)
  // gives a negative figure rather than a huge one.
  int32_t busyMs = static_cast<int32_t>(entry->utimeDeltaMs + entry->stimeDeltaMs);
  entry->cpuUsagePercent =
      static_cast<float>(busyMs) / static_cast<float>(entry->elapsedMs) * 100.0f;

  entry->utimeMs = utimeMs;
  entry->stimeMs = stimeMs;
  entry->sampleTimeMs = now;
  entry->isNew = false;
  entry->remove = false;

  // One process cannot keep more than every CPU busy; a figure above that
  // (two samples in the same millisecond, a counter that jumped) is dropped.
  if (configuredCpus >= 0 &&
      entry->cpuUsagePercent > static_cast<float>(configuredCpus * 100)) {
    __android_log_buf_print(kSystemLogBuffer, ANDROID_LOG_ERROR, kTag,
                            "Cpu usage percent value %f is invalid, delete it",
                            static_cast<double>(entry->cpuUsagePercent));
    entry->remove = true;
  }
}

void ProcessCpuMonitor::compactProcessList() {
  std::vector<int32_t> ended;
  for (auto& [pid, entry] : processList) {
    if (entry->remove) {
      entry.reset();
      ended.push_back(pid);
    }
  }
  for (int32_t pid : ended) {
    processList.erase(pid);
  }
}

void ProcessCpuMonitor::log() {
  std::vector<ProcessListEntry*> sorted;
  sorted.reserve(processList.size());
  for (auto& [pid, entry] : processList) {
    sorted.push_back(entry.get());
  }
  if (sorted.empty()) {
    return;
  }
  // An idle process sampled twice in one millisecond has no figure (0 / 0).
  // Such entries compare neither above nor below any other, which the sort
  // cannot be given; they are put last, unordered, and the rest sorted.
  auto figures = std::partition(sorted.begin(), sorted.end(),
                                [](ProcessListEntry* e) { return !std::isnan(e->cpuUsagePercent); });
  std::sort(sorted.begin(), figures, CpuUsageCompare);

  const bool structured = HalvexConfig::instance().vedrixConfig.enabled;
  int reported = 0;
  bool anyFigure = false;
  for (ProcessListEntry* entry : sorted) {
    if (entry->isNew) continue;
    anyFigure = true;
    if (reported >= kMetricsReported) break;
    metricLogger.emitMetricDouble(entry->name, entry->cpuUsagePercent);
    if (structured) {
      metricLogger.emitVedrixMetricDouble(entry->name, entry->cpuUsagePercent);
      if (reported < kSystemHealthReported) {
        sysHealthMetricLogger.appendStringToVec(
            publishnames::kProcessCpuHealth.valuesField,
            std::string(entry->name) + records::kFieldSeparator + std::to_string(entry->cpuUsagePercent),
            records::kItemSeparator);
      }
    }
    ++reported;
  }
  // The first run after start-up has no figures: nothing to report yet.
  if (!anyFigure) {
    return;
  }

  publishWithSystemHealth(publishnames::kProcessCpuMonitor, sampleIntervalTicks);

  __android_log_buf_print(kSystemLogBuffer, ANDROID_LOG_INFO, kTag, "\n%-20s %-5s : %-5s \n\n",
                          "Process Name", "PID", "CPU %");
  for (ProcessListEntry* entry : sorted) {
    double percent = entry->cpuUsagePercent;
    if (!entry->isNew && percent > kTableThresholdPercent) {
      __android_log_buf_print(kSystemLogBuffer, ANDROID_LOG_INFO, kTag, "%-20s %-5i : %2.2f%% \n",
                              entry->name, entry->pid, percent);
    }
  }
}

}  // namespace halvexd::processcpumonitor
