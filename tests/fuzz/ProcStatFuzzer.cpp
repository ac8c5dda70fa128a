// /proc/stat given any contents, twice: the CPU usage monitor takes its first
// sample from the first text and its second from the second. The counters
// read stay bounded, and a sample that is taken is one percentage 0..100.
#include "monitors/CpuUsageMonitor.h"
#include "tests/fuzz/FuzzSupport.h"

using halvexd::cpuusagemonitor::CpuUsageMonitor;
using namespace halvexd::fuzz;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  // The input is the two texts, split at the first "\n\n\n" (or all first).
  const std::string input(reinterpret_cast<const char*>(data), size);
  size_t split = input.find("\n\n\n");
  const std::string before = input.substr(0, split);
  const std::string after = split == std::string::npos ? before : input.substr(split + 3);
  const ScratchDevice& device = ScratchDevice::instance();
  LogSink log;

  device.write("/proc/stat", before);
  halvexd::monitor_config config;
  config.name = "CpuUsageMonitor";
  config.active = true;
  config.sampleIntervalTicks = 1;
  config.metricReportIntervalTicks = 1000;
  config.metricLogcatIntervalTicks = 1;
  CpuUsageMonitor monitor(config, {50, 100}, {0, 10, 90, 100});
  check(CpuUsageMonitor::getCPUTimes().size() <= 64, "counter list grows without bound");

  device.write("/proc/stat", after);
  bool sampled = monitor.getFastUtilizationSnapshot(0);
  unsigned long samples = 0;
  for (const auto& [name, value] : monitor.getPeriodicMetrics()) {
    if (name.find(".B") != std::string::npos) samples += value == 101 ? 0 : value;
  }
  check(samples == (sampled ? 1u : 0u), "a sample must land in exactly one bucket");
  return 0;
}
