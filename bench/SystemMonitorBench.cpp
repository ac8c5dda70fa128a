// One check of each system-wide monitor over the sample tablet, beside the
// least work the same check needs: opening, reading and closing each file it
// reads once (statvfs once per partition for the disk monitor) and writing
// the very log records the check writes, already formatted.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "config/HalvexConfig.h"
#include "daemon/MonitorFactory.h"
#include "platform/LogBuffers.h"
#include "platform/Sysroot.h"
#include "platform/host/HostLog.h"
#include "bench/BenchRegistry.h"

namespace halvexd::bench {
namespace {

const std::string kTablet = std::string(HALVEXD_FIXTURES) + "/tablet";

// The sample tablet as the device tree (or, with `live`, this machine's own
// /proc and /sys), with the tablet's configuration, for the life of one
// benchmark; the live tree again afterwards.
class TabletDevice {
 public:
  explicit TabletDevice(bool live) {
    if (!live) setSysroot(kTablet);
    HalvexConfig::instance().resetConfig();
    const std::string config =
        (live ? kTablet : std::string()) + "/system/system_ext/etc/halvex_config.json";
    HalvexConfig::instance().loadConfig(config.c_str());
  }
  ~TabletDevice() {
    setSysroot("");
    HalvexConfig::instance().resetConfig();
  }
};

// The factory's monitor of this name, initialised; the others are dropped.
// The monitors are never freed in the daemon either. The pressure monitor is
// built with its extension switched on, with the extension's defaults.
MonitorInterface* factoryMonitor(const std::string& name) {
  HalvexConfig::instance().extensions.pressure.active = name == "PressureMonitor";
  std::vector<MonitorInterface*> monitors;
  configureMonitors(120, false, monitors, false);
  for (MonitorInterface* monitor : monitors) {
    if (monitor->name == name) {
      monitor->init();
      return monitor;
    }
  }
  return nullptr;
}

struct MonitorCase {
  const char* name;
  // Reads this machine's own kernel files instead of the tablet's copies, so
  // that the kernel's cost of producing them is in both figures.
  bool live;
  // A tick on which the forced check does what the monitor does on its
  // ordinary runs: the usage monitors sample without reporting, the others
  // sample and report.
  unsigned long tick;
  std::vector<const char*> files;       // read once each by the lower bound
  std::vector<const char*> partitions;  // statvfs once each by the lower bound
};

const MonitorCase kCases[] = {
    {"CpuUsageMonitor", false, 0, {"/proc/stat"}, {}},
    {"CpuUsageMonitor", true, 0, {"/proc/stat"}, {}},
    {"MemoryUsageMonitor", false, 0, {"/proc/meminfo"}, {}},
    {"MemoryUsageMonitor", true, 0, {"/proc/meminfo"}, {}},
    {"SystemMemMonitor",
     false,
     2,
     {"/proc/meminfo", "/sys/block/zram0/mm_stat", "/proc/lmk_stats",
      "/sys/kernel/mm/ksm/pages_sharing", "/sys/kernel/mm/ksm/pages_shared",
      "/sys/kernel/mm/ksm/pages_unshared", "/sys/kernel/mm/ksm/pages_volatile",
      "/sys/kernel/mm/ksm/pages_sharing_always", "/sys/kernel/slab/ksm_rmap_item/object_size"},
     {}},
    {"DiskUsageMonitor", false, 5, {}, {"/data", "/system"}},
    // A forced check samples and reports.
    {"PressureMonitor",
     true,
     0,
     {"/proc/pressure/memory", "/proc/pressure/cpu", "/proc/pressure/io"},
     {}},
};

void monitorCheck(benchmark::State& state, const MonitorCase& which) {
  TabletDevice device(which.live);
  MonitorInterface* monitor = factoryMonitor(which.name);
  if (monitor == nullptr) {
    state.SkipWithError("no such monitor");
    return;
  }
  for (auto _ : state) {
    benchmark::DoNotOptimize(monitor->check(which.tick, true));
  }
}

// The records one forced check of the monitor writes, as they come out.
std::vector<hostlog::LogRecord> recordsOfOneCheck(const MonitorCase& which) {
  TabletDevice device(which.live);
  MonitorInterface* monitor = factoryMonitor(which.name);
  std::vector<hostlog::LogRecord> records;
  if (monitor == nullptr) return records;
  monitor->check(which.tick, true);  // the usage monitors compare with a first sample
  hostlog::setRecordHookForTesting(
      [&records](const hostlog::LogRecord& record) { records.push_back(record); });
  monitor->check(which.tick, true);
  hostlog::setRecordHookForTesting(nullptr);
  return records;
}

void monitorLowerBound(benchmark::State& state, const MonitorCase& which) {
  const std::vector<hostlog::LogRecord> records = recordsOfOneCheck(which);
  std::vector<std::string> files;
  const std::string root = which.live ? std::string() : kTablet;
  for (const char* file : which.files) files.push_back(root + file);
  std::vector<std::string> partitions;
  for (const char* partition : which.partitions) partitions.push_back(kTablet + partition);
  char buffer[4096];
  for (auto _ : state) {
    for (const std::string& file : files) {
      int fd = open(file.c_str(), O_RDONLY | O_CLOEXEC);
      if (fd < 0) continue;
      while (read(fd, buffer, sizeof(buffer)) > 0) {
      }
      close(fd);
    }
    for (const std::string& partition : partitions) {
      struct statvfs figures;
      benchmark::DoNotOptimize(statvfs(partition.c_str(), &figures));
    }
    for (const hostlog::LogRecord& record : records) {
      __android_log_buf_print(record.buffer, record.priority, record.tag.c_str(), "%s",
                              record.message.c_str());
    }
    benchmark::ClobberMemory();
  }
  state.counters["log_records"] = static_cast<double>(records.size());
}

}  // namespace

void registerSystemMonitorBenchmarks() {
  for (const MonitorCase& which : kCases) {
    const std::string name = std::string(which.name) + (which.live ? "/live" : "/tablet");
    benchmark::RegisterBenchmark(("MonitorCheck/" + name).c_str(),
                                 [&which](benchmark::State& state) { monitorCheck(state, which); })
        ->Unit(benchmark::kMicrosecond);
    benchmark::RegisterBenchmark(
        ("MonitorCheck_LowerBound/" + name).c_str(),
        [&which](benchmark::State& state) { monitorLowerBound(state, which); })
        ->Unit(benchmark::kMicrosecond);
  }
}

}  // namespace halvexd::bench
