// /proc/meminfo given any contents: the file reader and the pure parser agree
// field by field, a field is only ever set from a line that names it, and the
// memory usage monitor turns whatever was read into a sample or a refusal.
#include <algorithm>
#include <cstring>

#include "monitors/MemoryUsageMonitor.h"
#include "stats/StatUtil.h"
#include "tests/fuzz/FuzzSupport.h"

using halvexd::SysMeminfoKb;
using namespace halvexd::fuzz;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  ScratchDevice::instance().write("/proc/meminfo", data, size);
  // The reader reads at most the first 8 MiB of the file.
  const std::string text(reinterpret_cast<const char*>(data), std::min<size_t>(size, 8 << 20));
  LogSink log;

  SysMeminfoKb fromFile{};
  check(halvexd::StatUtil::getMeminfo(fromFile), "an existing meminfo is unreadable");
  SysMeminfoKb parsed{};
  halvexd::parseMeminfo(text, parsed);
  check(std::memcmp(&fromFile, &parsed, sizeof(parsed)) == 0, "file reader and parser disagree");

  // A non-zero field needs its key in the text.
  struct Field {
    uint64_t value;
    const char* key;
  };
  const Field fields[] = {{parsed.memTotal, "MemTotal:"},    {parsed.memAvailable, "MemAvailable:"},
                          {parsed.swapTotal, "SwapTotal:"},  {parsed.activeAnon, "Active(anon):"},
                          {parsed.pageTables, "PageTables:"}};
  for (const Field& field : fields) {
    check(field.value == 0 || text.find(field.key) != std::string::npos,
          std::string("value without its key ") + field.key);
  }

  halvexd::monitor_config config;
  config.name = "MemoryUsageMonitor";
  config.active = true;
  config.sampleIntervalTicks = 1;
  config.metricReportIntervalTicks = 1;
  config.metricLogcatIntervalTicks = 1;
  halvexd::memoryusagemonitor::MemoryUsageMonitor monitor(config, {50, 90, 99, 100},
                                                          {0, 50, 100});
  bool sampled = monitor.check(0, false);
  check(sampled == (parsed.memTotal != 0 && parsed.memTotal >= parsed.memAvailable),
        "sample taken or refused against the figures");
  return 0;
}
