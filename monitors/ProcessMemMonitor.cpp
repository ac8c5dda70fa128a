#include "monitors/ProcessMemMonitor.h"

#include <algorithm>
#include <utility>

#include "config/HalvexConfig.h"
#include "metrics/PublishNames.h"
#include "metrics/RecordVocabulary.h"
#include "platform/LogBuffers.h"

namespace halvexd::processmemmonitor {
namespace {

constexpr const char* kTag = "halvexd:ProcessMemMonitor";

// Metrics name this many of the largest measurements; the system-health
// record carries the first kSystemHealthReported of them.
constexpr size_t kMetricsReported = 11;
constexpr size_t kSystemHealthReported = 3;
// Names measured by one ordinary run.
constexpr int64_t kBatchSize = 2;

}  // namespace

bool PssCompare(ProcessMemData a, ProcessMemData b) {
  return a.pssKb > b.pssKb;
}

ProcessMemMonitor::ProcessMemMonitor(monitor_config config) : MonitorInterface(config) {
  nameToPid.max_load_factor(1.0f);
  SysMeminfoKb meminfo{};
  if (StatUtil::getMeminfo(meminfo)) {
    memTotalKb = meminfo.memTotal;
  }
  if (HalvexConfig::instance().extensions.smapsRollupPss.active) {
    // /proc/perfinfo, where the kernel has it, stays the source.
    pssFromRollup = !StatUtil::havePerfinfo();
    __android_log_buf_print(kSystemLogBuffer, ANDROID_LOG_INFO, kTag,
                            pssFromRollup ? "PSS from /proc/<pid>/smaps_rollup: no /proc/perfinfo"
                                          : "PSS from /proc/perfinfo");
  }
}

bool ProcessMemMonitor::init() {
  return MonitorInterface::init();
}

bool ProcessMemMonitor::check(unsigned long tick, bool force) {
  if (!sampleDue(tick, force, tickOffset)) return true;
  __android_log_buf_print(kSystemLogBuffer, ANDROID_LOG_DEBUG, kTag, "Running ProcessMemMonitor");
  if (!getNewSnapshot(force)) {
    return false;
  }
  log();
  return true;
}

void ProcessMemMonitor::resetSampleData() {
  pids.clear();
  processNames.clear();
  nameToPid.clear();
  processMemData.clear();
  batchIndex = 0;
  needsReset = false;
}

bool ProcessMemMonitor::constructProcessLists() {
  std::vector<int32_t> rssPages;
  if (!StatUtil::getProcessListRss(pids, pssFromRollup ? &rssPages : nullptr)) {
    return false;
  }
  if (pssFromRollup) rankByResidentSize(rssPages);
  for (int32_t pid : pids) {
    char name[kProcessNameSize] = {};
    if (!StatUtil::getProcessName(pid, name)) continue;
    processNames.emplace_back(name);
    nameToPid[name] = pid;
  }
  return true;
}

bool ProcessMemMonitor::getNewSnapshot(bool all) {
  if (needsReset) {
    resetSampleData();
    if (!constructProcessLists()) {
      return false;
    }
  }
  // No names to walk: either no process's name could be read, or the last
  // attempt to build the lists failed. Measure nothing and build the lists
  // afresh on the next run.
  if (processNames.empty()) {
    needsReset = true;
    return true;
  }

  const int64_t last = static_cast<int64_t>(processNames.size()) - 1;
  int64_t first = 0;
  int64_t end = last;
  if (!all) {
    first = kBatchSize * batchIndex;
    end = first + 1;
    if (end >= last) {
      needsReset = true;  // the last batch of this cycle
      if (first > last) {
        ++batchIndex;
        return true;
      }
      end = last;
    }
  }

  for (int64_t i = first; i <= end; ++i) {
    const std::string& name = processNames[static_cast<size_t>(i)];
    auto recorded = nameToPid.find(name);
    int32_t pid = recorded != nameToPid.end() ? recorded->second : 0;
    char current[kProcessNameSize] = {};
    if (StatUtil::getProcessName(pid, current) && name == current) {
      measure(pid);
      continue;
    }
    // The process has ended or its pid went to another program: the same
    // program may run on under a new pid.
    int found = 0;
    if (StatUtil::pidOf(name, found)) {
      measure(found);
    }
  }
  ++batchIndex;
  return true;
}

void ProcessMemMonitor::rankByResidentSize(const std::vector<int32_t>& rssPages) {
  // PSS never exceeds the resident size, which the stat file gives for
  // nothing; ties keep /proc's order.
  std::vector<size_t> order(pids.size());
  for (size_t i = 0; i < order.size(); ++i) order[i] = i;
  std::stable_sort(order.begin(), order.end(),
                   [&rssPages](size_t a, size_t b) { return rssPages[a] > rssPages[b]; });
  std::vector<int32_t> ranked;
  ranked.reserve(pids.size());
  for (size_t i : order) ranked.push_back(pids[i]);
  pids.swap(ranked);
}

void ProcessMemMonitor::measure(int32_t pid) {
  ProcessMemData data;
  data.pid = pid;
  StatUtil::getProcessName(pid, data.name);
  unsigned long pssKb = 0;
  const bool read = pssFromRollup ? StatUtil::getProcessPssFromRollup(pid, pssKb)
                                  : StatUtil::getProcessPss(pid, pssKb);
  if (!read) {
    __android_log_buf_print(kSystemLogBuffer, ANDROID_LOG_ERROR, kTag,
                            "Could not read the PSS for pid %d\n", pid);
    return;
  }
  data.pssKb = pssKb;
  processMemData.push_back(data);
}

void ProcessMemMonitor::log() {
  if (processMemData.empty()) {
    return;
  }
  std::sort(processMemData.begin(), processMemData.end(), PssCompare);

  const bool structured = HalvexConfig::instance().vedrixConfig.enabled;
  const size_t reported = std::min(processMemData.size(), kMetricsReported);
  for (size_t i = 0; i < reported; ++i) {
    const ProcessMemData& data = processMemData[i];
    if (structured) {
      metricLogger.emitVedrixMetricUint64(data.name, data.pssKb);
      if (i < kSystemHealthReported && memTotalKb != 0) {
        uint64_t percent = data.pssKb * 100 / memTotalKb;
        sysHealthMetricLogger.appendStringToVec(
            publishnames::kProcessMemHealth.valuesField,
            std::string(data.name) + records::kFieldSeparator + std::to_string(percent) +
                records::kFieldSeparator + std::to_string(data.pssKb),
            records::kItemSeparator);
      }
    }
    metricLogger.emitMetricUint64(data.name, data.pssKb);
  }

  publishWithSystemHealth(publishnames::kProcessMemMonitor, sampleIntervalTicks);

  __android_log_buf_print(kSystemLogBuffer, ANDROID_LOG_DEBUG, kTag, "\n%-20s %-5s : %-5s \n\n",
                          "Process Name", "PID", "PSS in KB");
  for (const ProcessMemData& data : processMemData) {
    if (data.pssKb != 0) {
      __android_log_buf_print(kSystemLogBuffer, ANDROID_LOG_INFO, kTag, "%-20s %-5i : %-5llu\n",
                              data.name, data.pid, static_cast<unsigned long long>(data.pssKb));
    }
  }
  processMemData.clear();
}

}  // namespace halvexd::processmemmonitor
