// The KSM counters and the rmap item size given any contents (or missing),
// read through the real readers and through the system memory monitor, whose
// saving and overhead arithmetic must hold for any counts: the saving is never
// negative and never above the pages shared.
#include <string>

#include "monitors/SystemMemMonitor.h"
#include "stats/StatUtil.h"
#include "tests/fuzz/FuzzSupport.h"

using namespace halvexd::fuzz;

namespace {

const char* const kCounterFiles[] = {
    "/sys/kernel/mm/ksm/pages_sharing",        "/sys/kernel/mm/ksm/pages_shared",
    "/sys/kernel/mm/ksm/pages_unshared",       "/sys/kernel/mm/ksm/pages_volatile",
    "/sys/kernel/mm/ksm/pages_sharing_always", "/sys/kernel/slab/ksm_rmap_item/object_size",
};

// The figure a monitor line reports, "<key> = <n> Kb".
bool reported(const LogSink& log, const std::string& key, unsigned long long& value) {
  const std::string start = key + " = ";
  for (const auto& record : log.records()) {
    if (startsWith(record.message, start) && endsWith(record.message, " Kb")) {
      value = std::stoull(record.message.substr(start.size()));
      return true;
    }
  }
  return false;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  ByteReader in(data, size);
  const ScratchDevice& device = ScratchDevice::instance();
  device.write("/proc/meminfo", "MemTotal: 4000 kB\nMemAvailable: 1000 kB\n");
  device.write("/sys/block/zram0/mm_stat", "1 2 3072 0 0 0 0 0 0\n");
  size_t missing = 0;
  for (const char* file : kCounterFiles) {
    uint8_t how = in.byte();
    if (how % 8 == 0) {
      device.remove(file);
      ++missing;
    } else if (how % 8 == 1) {
      device.write(file, std::to_string(in.number()) + "\n");
    } else {
      device.write(file, in.text(40));
    }
  }

  LogSink log;
  halvexd::monitor_config config;
  config.name = "SystemMemMonitor";
  config.active = true;
  halvexd::systemmemmonitor::SystemMemMonitor monitor(config);
  monitor.init();
  check(monitor.check(0, true), "snapshot failed with meminfo and zram present");

  unsigned long long sharing = 0, saving = 0, overhead = 0;
  check(reported(log, "mem_ksm_pages_sharing", sharing) && reported(log, "mem_ksm_saving", saving) &&
            reported(log, "mem_ksm_overhead", overhead),
        "KSM figures missing from the report");
  check(saving <= sharing, "saving above the pages shared");
  check(saving == 0 || saving == sharing - overhead, "saving is not sharing minus overhead");
  // Each of the six counters is read once by the monitor (pages_sharing
  // twice), and each missing one says so.
  size_t openErrors = log.count("file open error is - No such file or directory\n");
  check(missing == 0 ? openErrors == 0 : openErrors >= missing, "missing counters not reported");
  return 0;
}
