// The text of the kernel files a device tree holds, as the kernel formats
// them: one /proc/<pid>/stat line, the "cpu" lines of /proc/stat,
// /proc/meminfo, smaps_rollup and the /proc/pressure lines.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace halvexd::devicesim {

class KernelText {
 public:
  // The ten counters of a "cpu" line, in clock ticks: user, nice, system,
  // idle, iowait, irq, softirq, steal, guest, guest_nice.
  using CpuCounters = std::vector<uint64_t>;

  // A /proc/<pid>/stat line (all 52 fields) of a sleeping arm64 process;
  // `rss` in pages, `startTicks` in clock ticks since boot.
  static std::string processStat(int pid, const std::string& comm, uint64_t utime, uint64_t stime,
                                 long rss, uint64_t startTicks = 312);

  // /proc/stat: the total line, one line per CPU, then `tail` as it is.
  static std::string procStat(const CpuCounters& total, const std::vector<CpuCounters>& perCpu,
                              const std::string& tail);

  // /proc/meminfo from (name, kB) pairs, in order; the HugePages_ counts are
  // written without a unit, as the kernel writes them.
  static std::string meminfo(const std::vector<std::pair<std::string, uint64_t>>& fields);

  // /proc/<pid>/smaps_rollup of a process mapping `rssKb`, `pssKb` of it
  // proportionally its own.
  static std::string smapsRollup(uint64_t rssKb, uint64_t pssKb);

  // One line of a /proc/pressure file: `kind` ("some" or "full"), the 10-,
  // 60- and 300-second averages in percent, the stall total in microseconds.
  static std::string pressureLine(const char* kind, const double (&averages)[3], uint64_t totalUs);
};

}  // namespace halvexd::devicesim
