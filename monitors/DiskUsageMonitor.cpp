#include "monitors/DiskUsageMonitor.h"

#include <sys/statvfs.h>

#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "config/HalvexConfig.h"
#include "metrics/PublishNames.h"
#include "metrics/RecordVocabulary.h"
#include "platform/FileSystemStats.h"
#include "platform/LogBuffers.h"

namespace halvexd::diskusagemonitor {
namespace {

constexpr const char* kTag = "halvexd:DiskUsageMonitor";
const char kSystemPath[4096] = "/system";
const char kDataPath[4096] = "/data";

void initPartition(PartitionInfo& partition, const char (&path)[4096]) {
  std::memcpy(partition.path, path, sizeof(partition.path));
  partition.percentUsed = 0;
  partition.valid = false;
  partition.totalSize = 0;
  partition.availSpacePercentage = 0;
  partition.freeInodesPercentage = 0;
  partition.availInodesPercentage = 0;
}

// Single precision, divide first, then scale, truncated: the figures the
// device's dashboards were built on.
uint64_t percentOf(uint64_t part, uint64_t whole) {
  return static_cast<uint64_t>(static_cast<float>(part) / static_cast<float>(whole) * 100.0f);
}

// One figure of the data partition taken as a share of a whole.
struct Share {
  const char* figure;  // "free inodes": names the figure in its lines
  uint64_t part;
  uint64_t whole;
  std::string shown;   // what its line shows after "<figure>="
};

// The percentage `share.part` is of `share.whole`, with its line; false,
// with an error line instead, when the part is 0 or not below the whole,
// which no healthy file system reports.
bool measureShare(const char* path, const Share& share, uint64_t& percentage) {
  if (share.part == 0 || share.part >= share.whole) {
    __android_log_buf_print(kSystemLogBuffer, ANDROID_LOG_ERROR, kTag,
                            "Error getting disk usage %s", share.figure);
    return false;
  }
  percentage = percentOf(share.part, share.whole);
  __android_log_buf_print(kSystemLogBuffer, ANDROID_LOG_INFO, kTag,
                          "%s partition %s=%s %s percentage=%llu%%", path, share.figure,
                          share.shown.c_str(), share.figure,
                          static_cast<unsigned long long>(percentage));
  return true;
}

}  // namespace

DiskUsageMonitor::DiskUsageMonitor(monitor_config config) : MonitorInterface(config) {
  initPartition(systemPartition, kSystemPath);
  initPartition(dataPartition, kDataPath);
}

bool DiskUsageMonitor::init() {
  metricLogger.init(name);
  sysHealthMetricLogger.init(name);
  systemPartition.totalSize = 0;
  return true;
}

bool DiskUsageMonitor::check(unsigned long tick, bool force) {
  if (!sampleDue(tick, force, tickOffset)) return true;
  __android_log_buf_print(kSystemLogBuffer, ANDROID_LOG_DEBUG, kTag, "Running DiskUsageMonitor");
  bool dataMeasured = getPartitionStats(dataPartition);
  bool systemMeasured = getPartitionStats(systemPartition);
  if (!dataMeasured && !systemMeasured) {
    return false;
  }
  log();
  return true;
}

bool DiskUsageMonitor::getPartitionStats(PartitionInfo& partition) {
  struct statvfs stats;
  std::memset(&stats, 0, sizeof(stats));
  if (statvfsOf(partition.path, &stats) != 0) {
    __android_log_buf_print(kSystemLogBuffer, ANDROID_LOG_ERROR, kTag,
                            "Failed to check the available space in %s", partition.path);
    partition.valid = false;
    return false;
  }
  const uint64_t blockSize = stats.f_bsize;
  if (partition.totalSize == 0) {
    partition.totalSize = static_cast<uint64_t>(stats.f_blocks) * blockSize;
  }
  // f_bfree above f_blocks wraps to a huge figure and fails the check below.
  const uint64_t used = (static_cast<uint64_t>(stats.f_blocks) - stats.f_bfree) * blockSize;
  // A partition with no free block left counts as an error by design.
  if (used >= partition.totalSize) {
    __android_log_buf_print(kSystemLogBuffer, ANDROID_LOG_ERROR, kTag,
                            "Error calculating disk usage for %s blocks %llu blocksize %llu "
                            "blocksfree %llu",
                            partition.path, static_cast<unsigned long long>(stats.f_blocks),
                            static_cast<unsigned long long>(stats.f_bsize),
                            static_cast<unsigned long long>(stats.f_bfree));
    partition.valid = false;
    return false;
  }
  partition.percentUsed = percentOf(used, partition.totalSize);
  partition.valid = true;
  __android_log_buf_print(kSystemLogBuffer, ANDROID_LOG_INFO, kTag,
                          "%s partition total space=%llukB used space=%llukB percent used=%llu%%",
                          partition.path,
                          static_cast<unsigned long long>(partition.totalSize >> 10),
                          static_cast<unsigned long long>(used >> 10),
                          static_cast<unsigned long long>(partition.percentUsed));
  // The system partition is read-only: only its used space matters.
  if (&partition == &systemPartition) {
    return true;
  }

  const uint64_t available = static_cast<uint64_t>(stats.f_bavail) * blockSize;
  const uint64_t files = stats.f_files;
  const std::string ofFiles = " total inodes=" + std::to_string(files);
  // In this order, stopping at the first that cannot be measured.
  const bool measured =
      measureShare(partition.path,
                   {"available space", available, partition.totalSize,
                    std::to_string(available >> 10) + "kB"},
                   partition.availSpacePercentage) &&
      measureShare(partition.path,
                   {"free inodes", stats.f_ffree, files, std::to_string(stats.f_ffree) + ofFiles},
                   partition.freeInodesPercentage) &&
      measureShare(partition.path,
                   {"available inodes", stats.f_favail, files,
                    std::to_string(stats.f_favail) + ofFiles},
                   partition.availInodesPercentage);
  partition.valid = measured;
  return measured;
}

void DiskUsageMonitor::emitPercentage(const std::string& metricName, uint64_t percentage,
                                      bool structured) {
  metricLogger.emitMetricUint64(metricName, percentage);
  if (structured) {
    std::vector<std::pair<std::string, std::string>> pairs = {
        {publishnames::kDiskPercentageFields[0], metricName}, {publishnames::kDiskPercentageFields[1], std::to_string(percentage)}};
    metricLogger.emitVedrixMetricPairVec(metricName, pairs);
  }
}

void DiskUsageMonitor::appendStorageValue(const PartitionInfo& partition) {
  sysHealthMetricLogger.appendStringToVec(
      publishnames::kDiskUsageHealth.valuesField,
      std::string(partition.path) + records::kFieldSeparator +
          std::to_string(partition.percentUsed) + records::kFieldSeparator +
          std::to_string(partition.totalSize >> 10),
      records::kItemSeparator);
}

void DiskUsageMonitor::log() {
  // Read on every run: the switch is the configuration's, not the monitor's.
  bool structured = HalvexConfig::instance().vedrixConfig.enabled;
  if (dataPartition.valid) {
    const std::string path = dataPartition.path;
    emitPercentage(path, dataPartition.percentUsed, structured);
    emitPercentage(path + "/avail_space", dataPartition.availSpacePercentage, structured);
    emitPercentage(path + "/free_inodes", dataPartition.freeInodesPercentage, structured);
    emitPercentage(path + "/avail_inodes", dataPartition.availInodesPercentage, structured);
    if (structured) appendStorageValue(dataPartition);
  }
  if (systemPartition.valid) {
    emitPercentage(systemPartition.path, systemPartition.percentUsed, structured);
    if (structured) appendStorageValue(systemPartition);
  }
  publishWithSystemHealth(publishnames::kDiskUsageMonitor, metricReportIntervalTicks);
}

}  // namespace halvexd::diskusagemonitor
