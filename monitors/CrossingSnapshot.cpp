#include "monitors/CrossingSnapshot.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>

#include "config/HalvexConfig.h"
#include "platform/LogBuffers.h"

namespace halvexd::crossingsnapshot {
namespace {

constexpr const char* kTag = "halvexd:CrossingSnapshot";

uint32_t busyTicksOf(const ProcessStat& stat) {
  // 32-bit, wrapping like the counters the stat reader keeps.
  return stat.utime + stat.stime;
}

// Largest first; equal figures by ascending pid, so a snapshot does not
// depend on the order of a sort.
bool ranksBefore(double value, int32_t pid, double otherValue, int32_t otherPid) {
  return value != otherValue ? value > otherValue : pid < otherPid;
}

// "CPUUtilization.Top01.surfaceflinger.612": two digits keep a record's
// entries, which are written in name order, in rank order.
std::string entryName(const std::string& metric, size_t rank, const char* process, int32_t pid) {
  char text[128];
  std::snprintf(text, sizeof(text), "%s.Top%02zu.%s.%d", metric.c_str(), rank, process, pid);
  return text;
}

}  // namespace

CrossingSnapshot::CrossingSnapshot(const ExtensionConfig::CrossingSnapshot& settings)
    : settings(settings) {
  long pageBytes = sysconf(_SC_PAGESIZE);
  if (pageBytes >= 1024) pageKb = static_cast<uint64_t>(pageBytes) / 1024;
  metricLogger.init(publishnames::kCrossingSnapshot.plainName);
  cpuGrowth(0);
}

bool CrossingSnapshot::wanted(Event event) const {
  return event == Event::Crossed || (event == Event::StillAbove && settings.onStillAbove);
}

std::vector<ProcessStat> CrossingSnapshot::readProcesses() {
  std::vector<int> pids;
  std::vector<ProcessStat> stats;
  if (!StatUtil::getProcessList(pids)) return stats;
  stats.reserve(pids.size());
  for (int pid : pids) {
    ProcessStat stat{};
    if (StatUtil::getProcessStat(pid, stat)) stats.push_back(stat);
  }
  return stats;
}

std::vector<CrossingSnapshot::Entry> CrossingSnapshot::cpuGrowth(uint64_t totalTicks) {
  std::vector<ProcessStat> stats = readProcesses();
  std::vector<Entry> grown;
  std::vector<Counter> now;
  now.reserve(stats.size());
  // Both lists ascend by pid: one walk pairs each process with its past.
  auto past = counters.begin();
  for (const ProcessStat& stat : stats) {
    while (past != counters.end() && past->pid < stat.pid) ++past;
    const bool seen =
        past != counters.end() && past->pid == stat.pid && past->startTime == stat.starttime;
    // A process started since the last sample spent all its time in it.
    const uint32_t growth = busyTicksOf(stat) - (seen ? past->busyTicks : 0);
    now.push_back({stat.pid, stat.starttime, busyTicksOf(stat)});
    if (growth != 0 && totalTicks != 0) {
      grown.push_back({stat.pid, growth * 100.0 / static_cast<double>(totalTicks), {}, false, 0});
    }
  }
  counters = std::move(now);
  return grown;
}

void CrossingSnapshot::onCpuSample(Event event, const std::string& metric, int threshold,
                                   uint64_t totalTicks) {
  std::vector<Entry> grown = cpuGrowth(wanted(event) ? totalTicks : 0);
  if (wanted(event)) write(event, metric, threshold, top(std::move(grown)), false);
}

void CrossingSnapshot::onMemorySample(Event event, const std::string& metric, int threshold) {
  if (!wanted(event)) return;
  std::vector<Entry> resident;
  for (const ProcessStat& stat : readProcesses()) {
    if (stat.rss > 0) {
      resident.push_back(
          {stat.pid, static_cast<double>(static_cast<uint64_t>(stat.rss) * pageKb), {}, false, 0});
    }
  }
  std::vector<Entry> largest = top(std::move(resident));
  for (Entry& entry : largest) entry.hasPss = readPss(entry.pid, entry.pssKb);
  write(event, metric, threshold, largest, true);
}

std::vector<CrossingSnapshot::Entry> CrossingSnapshot::top(std::vector<Entry> candidates) const {
  const size_t kept = std::min<size_t>(settings.topProcesses, candidates.size());
  std::partial_sort(
      candidates.begin(), candidates.begin() + static_cast<std::ptrdiff_t>(kept), candidates.end(),
      [](const Entry& a, const Entry& b) { return ranksBefore(a.value, a.pid, b.value, b.pid); });
  candidates.resize(kept);
  for (Entry& entry : candidates) {
    // A process that ended since its stat was read still did the work.
    if (!StatUtil::getProcessName(entry.pid, entry.name)) copyProcessName("unknown", entry.name);
  }
  return candidates;
}

bool CrossingSnapshot::readPss(int32_t pid, unsigned long& pssKb) {
  if (StatUtil::havePerfinfo()) return StatUtil::getProcessPss(pid, pssKb);
  // Without the kernel's PSS file, smaps_rollup answers where the extension
  // asks for it, as for the per-process memory monitor; otherwise there is no
  // figure to give, and asking /proc/perfinfo would log a failure per process.
  return HalvexConfig::instance().extensions.smapsRollupPss.active &&
         StatUtil::getProcessPssFromRollup(pid, pssKb);
}

void CrossingSnapshot::write(Event event, const std::string& metric, int threshold,
                             const std::vector<Entry>& top, bool memory) {
  __android_log_buf_print(
      kSystemLogBuffer, ANDROID_LOG_INFO, kTag, "%s %s %d%%: top %zu processes by %s",
      metric.c_str(), event == Event::Crossed ? "crossed" : "still above", threshold, top.size(),
      memory ? "resident memory" : "share of all CPUs over the last sample");
  // Values go to the logger only where a record will take them: the logger
  // keeps what it cannot write, and process names never repeat for good.
  const HalvexConfig::MonitorConfig* record =
      metricLogger.getMonitorConfig(publishnames::kCrossingSnapshot.plainName);
  const bool plain = record != nullptr && record->trazMetricInterface.active;
  const bool structured = record != nullptr && record->vedrixMetricInterface.active &&
                          HalvexConfig::instance().vedrixConfig.enabled;
  for (size_t i = 0; i < top.size(); ++i) {
    const Entry& entry = top[i];
    const std::string name = entryName(metric, i + 1, entry.name, entry.pid);
    std::string value;
    if (memory) {
      const auto rssKb = static_cast<unsigned long long>(entry.value);
      char pss[48] = "PSS unknown";
      if (entry.hasPss) std::snprintf(pss, sizeof(pss), "PSS %lu kB", entry.pssKb);
      __android_log_buf_print(kSystemLogBuffer, ANDROID_LOG_INFO, kTag,
                              "%2zu. %-20s %-5d RSS %llu kB, %s", i + 1, entry.name, entry.pid,
                              rssKb, pss);
      if (plain) metricLogger.emitMetricUint64(name + ".RssKB", rssKb);
      if (plain && entry.hasPss) metricLogger.emitMetricUint64(name + ".PssKB", entry.pssKb);
      value = std::to_string(rssKb);
    } else {
      __android_log_buf_print(kSystemLogBuffer, ANDROID_LOG_INFO, kTag, "%2zu. %-20s %-5d %6.2f%%",
                              i + 1, entry.name, entry.pid, entry.value);
      if (plain) metricLogger.emitMetricDouble(name + ".SharePercent", entry.value);
      // As the plain record writes a double: six significant digits.
      char share[32];
      std::snprintf(share, sizeof(share), "%g", entry.value);
      value = share;
    }
    if (structured) {
      MetricLogger::FieldVector fields = {
          {publishnames::kCrossingSnapshotFields[0], metric},     {publishnames::kCrossingSnapshotFields[1], std::to_string(i + 1)},
          {publishnames::kCrossingSnapshotFields[2], entry.name}, {publishnames::kCrossingSnapshotFields[3], std::to_string(entry.pid)},
          {publishnames::kCrossingSnapshotFields[4], value},      {publishnames::kCrossingSnapshotFields[5], std::to_string(entry.hasPss ? entry.pssKb : 0)}};
      metricLogger.emitVedrixMetricPairVec(name, fields);
    }
  }
  if (plain || structured) metricLogger.publish(publishnames::kCrossingSnapshot.plainName);
}

}  // namespace halvexd::crossingsnapshot
