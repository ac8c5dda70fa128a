#include "monitors/SystemMemMonitor.h"

#include <utility>
#include <vector>

#include "config/HalvexConfig.h"
#include "metrics/PublishNames.h"
#include "platform/LogBuffers.h"
#include "stats/StatUtil.h"

namespace halvexd::systemmemmonitor {
namespace {

constexpr const char* kTag = "halvexd:SystemMemMonitor";

enum SnapshotIndex : size_t {
  kMemTotal,
  kMemFree,
  kMemAvailable,
  kBuffers,
  kCached,
  kActiveAnon,
  kInactiveAnon,
  kActiveFile,
  kInactiveFile,
  kSwapTotal,
  kSwapFree,
  kShmem,
  kSUnreclaim,
  kKernelStack,
  kPageTables,
  kZramUsed,
  kKsmPagesSharing,
  kKsmOverhead,
  kKsmSaving,
};

// KSM counts pages; the metrics are in kB of 4 KiB pages.
constexpr uint64_t kKbPerPage = 4;

// Low-memory-killer process classes, as /proc/lmk_stats names them.
const std::string kLmkPersistent = "Persistent";
const std::string kLmkFg = "Fg";
const std::string kLmkVisible = "Visible";
const std::string kLmkPerceptible = "Perceptible";
const std::string kLmkBackup = "Backup";
const std::string kLmkOther = "Other";

}  // namespace

std::string lmkBucketToMetricName(const std::string& className) {
  if (className == kLmkPersistent) return "lmk_kills_persistent";
  if (className == kLmkFg) return "lmk_kills_fg";
  if (className == kLmkVisible) return "lmk_kills_visible";
  if (className == kLmkPerceptible) return "lmk_kills_perceptible";
  if (className == kLmkBackup) return "lmk_kills_backup";
  return "lmk_kills_other";
}

SystemMemMonitor::SystemMemMonitor(monitor_config config) : MonitorInterface(config) {
  for (const std::string* className :
       {&kLmkPersistent, &kLmkFg, &kLmkVisible, &kLmkPerceptible, &kLmkBackup, &kLmkOther}) {
    lmkKillCounts[*className] = 0;
  }
}

bool SystemMemMonitor::init() {
  metricLogger.init(name);
  return true;
}

bool SystemMemMonitor::getNewSnapshot() {
  SysMeminfoKb meminfo{};
  if (!StatUtil::getMeminfo(meminfo)) {
    return false;
  }
  snapshot[kMemTotal] = meminfo.memTotal;
  snapshot[kMemFree] = meminfo.memFree;
  snapshot[kMemAvailable] = meminfo.memAvailable;
  snapshot[kBuffers] = meminfo.buffers;
  snapshot[kCached] = meminfo.cached;
  snapshot[kActiveAnon] = meminfo.activeAnon;
  snapshot[kInactiveAnon] = meminfo.inactiveAnon;
  snapshot[kActiveFile] = meminfo.activeFile;
  snapshot[kInactiveFile] = meminfo.inactiveFile;
  snapshot[kSwapTotal] = meminfo.swapTotal;
  snapshot[kSwapFree] = meminfo.swapFree;
  snapshot[kShmem] = meminfo.shmem;
  snapshot[kSUnreclaim] = meminfo.sUnreclaim;
  snapshot[kKernelStack] = meminfo.kernelStack;
  snapshot[kPageTables] = meminfo.pageTables;

  unsigned long zramUsedKb = 0;
  if (!StatUtil::getZramMemUsedKb(zramUsedKb)) {
    return false;
  }
  snapshot[kZramUsed] = zramUsedKb;

  StatUtil::getLmkStats(lmkKillCounts);

  snapshot[kKsmPagesSharing] = StatUtil::getKsmPagesSharingCnt() * kKbPerPage;
  snapshot[kKsmOverhead] =
      (StatUtil::getKsmRmapItemCnt() * StatUtil::getObjectSizeOfKsmRmapItem()) >> 10;
  // Merging can cost more in rmap items than it saves; that is no saving,
  // not a negative one. The difference is taken in 64 bits and then read as
  // signed: the same figure as a signed subtraction, without overflowing when
  // a garbled counter is near the 64-bit limit.
  int64_t saving =
      static_cast<int64_t>(snapshot[kKsmPagesSharing] - snapshot[kKsmOverhead]);
  snapshot[kKsmSaving] = saving > 0 ? static_cast<uint64_t>(saving) : 0;
  return true;
}

bool SystemMemMonitor::check(unsigned long tick, bool force) {
  if (!sampleDue(tick, force, tickOffset)) return true;
  __android_log_buf_print(kSystemLogBuffer, ANDROID_LOG_DEBUG, kTag, "Running SystemMemMonitor");
  if (!getNewSnapshot()) {
    return false;
  }
  log();
  return true;
}

void SystemMemMonitor::log() {
  // Swap in use is derived at report time, never stored.
  const uint64_t swapUncompressed = snapshot[kSwapTotal] - snapshot[kSwapFree];
  const std::vector<std::pair<const char*, uint64_t>> values = {
      {"mem_total", snapshot[kMemTotal]},
      {"mem_free", snapshot[kMemFree]},
      {"mem_available", snapshot[kMemAvailable]},
      {"mem_buffers", snapshot[kBuffers]},
      {"mem_cached", snapshot[kCached]},
      {"mem_active_anon", snapshot[kActiveAnon]},
      {"mem_inactive_anon", snapshot[kInactiveAnon]},
      {"mem_active_file", snapshot[kActiveFile]},
      {"mem_inactive_file", snapshot[kInactiveFile]},
      {"mem_swap_total", snapshot[kSwapTotal]},
      {"mem_swap_free", snapshot[kSwapFree]},
      {"mem_swap_uncompressed", swapUncompressed},
      {"zram_mem_used_kb", snapshot[kZramUsed]},
      {"mem_shmem", snapshot[kShmem]},
      {"mem_s_unreclaim", snapshot[kSUnreclaim]},
      {"mem_kernel_stack", snapshot[kKernelStack]},
      {"mem_page_tables", snapshot[kPageTables]},
      {"mem_ksm_pages_sharing", snapshot[kKsmPagesSharing]},
      {"mem_ksm_overhead", snapshot[kKsmOverhead]},
      {"mem_ksm_saving", snapshot[kKsmSaving]},
  };
  // Without rmap items KSM is not running: its overhead and saving are not
  // reported as metrics (the log lines below still show them).
  const size_t metricCount = snapshot[kKsmOverhead] != 0 ? values.size() : values.size() - 2;
  bool structured = HalvexConfig::instance().vedrixConfig.enabled;

  for (size_t i = 0; i < metricCount; ++i) {
    metricLogger.emitMetricUint64(values[i].first, values[i].second);
  }
  if (structured) {
    for (size_t i = 0; i < metricCount; ++i) {
      metricLogger.emitVedrixMetricUint64(values[i].first, values[i].second);
    }
  }
  metricLogger.publish(publishnames::kSystemMemMonitor.plainName);

  for (const auto& [key, value] : values) {
    __android_log_buf_print(kSystemLogBuffer, ANDROID_LOG_INFO, kTag, "%s = %llu Kb", key,
                            static_cast<unsigned long long>(value));
  }

  for (const auto& [className, count] : lmkKillCounts) {
    std::string key = lmkBucketToMetricName(className);
    __android_log_buf_print(kSystemLogBuffer, ANDROID_LOG_INFO, kTag, "%s = %llu", key.c_str(),
                            static_cast<unsigned long long>(count));
    metricLogger.emitMetricUint64(key, count);
    if (structured) {
      metricLogger.emitVedrixMetricUint64(key, count);
    }
  }
  metricLogger.publish(publishnames::kSystemMemMonitor.plainName);
}

}  // namespace halvexd::systemmemmonitor
