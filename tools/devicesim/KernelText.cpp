#include "tools/devicesim/KernelText.h"

#include <cstdio>

namespace halvexd::devicesim {
namespace {

std::string cpuLine(const std::string& name, const KernelText::CpuCounters& counters) {
  std::string line = name;
  for (uint64_t value : counters) line += " " + std::to_string(value);
  return line + "\n";
}

}  // namespace

std::string KernelText::processStat(int pid, const std::string& comm, uint64_t utime,
                                    uint64_t stime, long rss, uint64_t startTicks) {
  const std::string id = std::to_string(pid);
  return id + " (" + comm + ") S 1 " + id + " 0 0 -1 1077936384 4121 0 12 0 " +
         std::to_string(utime) + " " + std::to_string(stime) + " 0 0 20 0 9 0 " +
         std::to_string(startTicks) + " 10999922688 " + std::to_string(rss) +
         " 18446744073709551615 367001354240 367002562198 549755700000 0 0 0 0 4096 1073775864 "
         "0 0 0 17 2 0 0 5 0 0 367002654240 367002694240 367010354240 549755813000 "
         "549755813100 549755813100 549755814000 0\n";
}

std::string KernelText::procStat(const CpuCounters& total, const std::vector<CpuCounters>& perCpu,
                                 const std::string& tail) {
  // The total line has two blanks after "cpu", as the kernel writes it.
  std::string text = cpuLine("cpu ", total);
  for (size_t i = 0; i < perCpu.size(); ++i) text += cpuLine("cpu" + std::to_string(i), perCpu[i]);
  return text + tail;
}

std::string KernelText::meminfo(const std::vector<std::pair<std::string, uint64_t>>& fields) {
  std::string text;
  char line[96];
  for (const auto& [name, kb] : fields) {
    // The huge page counts are page counts, the only lines without a unit.
    const bool pages = name.rfind("HugePages_", 0) == 0;
    std::snprintf(line, sizeof(line), pages ? "%-15s %8llu\n" : "%-15s %8llu kB\n",
                  (name + ":").c_str(), static_cast<unsigned long long>(kb));
    text += line;
  }
  return text;
}

std::string KernelText::smapsRollup(uint64_t rssKb, uint64_t pssKb) {
  char text[512];
  std::snprintf(text, sizeof(text),
                "12c00000-7fe4bb8000 ---p 00000000 00:00 0                          [rollup]\n"
                "Rss:            %8llu kB\nPss:            %8llu kB\n"
                "Shared_Clean:   %8llu kB\nPrivate_Dirty:  %8llu kB\nSwap:                  0 kB\n"
                "SwapPss:               0 kB\nLocked:                0 kB\n",
                static_cast<unsigned long long>(rssKb), static_cast<unsigned long long>(pssKb),
                static_cast<unsigned long long>(rssKb - pssKb),
                static_cast<unsigned long long>(pssKb));
  return text;
}

std::string KernelText::pressureLine(const char* kind, const double (&averages)[3],
                                     uint64_t totalUs) {
  char text[128];
  std::snprintf(text, sizeof(text), "%s avg10=%.2f avg60=%.2f avg300=%.2f total=%llu\n", kind,
                averages[0], averages[1], averages[2], static_cast<unsigned long long>(totalUs));
  return text;
}

}  // namespace halvexd::devicesim
