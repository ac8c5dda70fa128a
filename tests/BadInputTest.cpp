// Hostile input the daemon must shrug off: configuration files built to make
// start-up slow or deep, and kernel files that never end, are far larger than
// any kernel writes, or hold binary junk. Each reader must return promptly
// with a bounded reading and the one line its failure logs.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <functional>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "config/HalvexConfig.h"
#include "monitors/CpuUsageMonitor.h"
#include "monitors/SystemMemMonitor.h"
#include "platform/LogBuffers.h"
#include "stats/StatUtil.h"
#include "tests/support/TestSupport.h"

namespace halvexd {
namespace {

using testing::LogCapture;
using testing::ScopedSysroot;
using testing::TempDir;

constexpr const char* kConfigPath = "/system/system_ext/etc/halvex_config.json";
// The same file as a path inside a test tree.
constexpr const char* kConfigInTree = "system/system_ext/etc/halvex_config.json";
// Every case must finish well within this, also under the sanitizers.
constexpr double kPromptSeconds = 10.0;

double secondsSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// `count` copies of `element` joined by commas.
std::string repeated(const std::string& element, size_t count) {
  std::string out;
  out.reserve(count * (element.size() + 1));
  for (size_t i = 0; i < count; ++i) {
    if (i != 0) out += ',';
    out += element;
  }
  return out;
}

// Makes `relative` under the tree an endless file: the zero device.
void makeEndless(const TempDir& root, const std::string& relative) {
  std::filesystem::path file = std::filesystem::path(root.path()) / relative;
  std::filesystem::create_directories(file.parent_path());
  std::filesystem::remove(file);
  std::filesystem::create_symlink("/dev/zero", file);
}

std::string binaryJunk(size_t size) {
  std::mt19937 random(20240611);
  std::string out(size, '\0');
  for (char& c : out) c = static_cast<char>(random());
  return out;
}

TEST(BadInputTest, HostileConfigurationsLoadOrFailPromptly) {
  const std::string rootNull =
      "root_json is null /system/system_ext/etc/halvex_config.json, malformed json file?\n";
  struct Case {
    const char* why;
    std::function<void(const TempDir&)> make;
    bool loads;
    size_t records;         // monitor records loaded
    std::string failure;    // the loader's first error line, when it fails
  };
  const std::string record = R"({"MetricName":"M","Active":true})";
  const Case cases[] = {
      {"half a million array elements, just under 1 MiB",
       [](const TempDir& root) {
         root.write(kConfigInTree, "{\"MonitorConfig\":[" + repeated("0", 524000) +
                                     "],\"VedrixConfig\":{}}");
       },
       true, 1, ""},
      {"a quarter of a million metric descriptors",
       [](const TempDir& root) {
         root.write(kConfigInTree,
                    "{\"MonitorConfig\":[{\"MetricName\":\"M\",\"Vedrix_Metric_Interface\":"
                    "{\"Metrics\":[" + repeated("{}", 300000) + "]}}],\"VedrixConfig\":{}}");
       },
       true, 1, ""},
      {"twenty thousand records of one name",
       [&record](const TempDir& root) {
         root.write(kConfigInTree, "{\"MonitorConfig\":[" + repeated(record, 20000) +
                                     "],\"VedrixConfig\":{}}");
       },
       true, 1, ""},
      {"arrays nested a hundred thousand deep",
       [](const TempDir& root) {
         root.write(kConfigInTree, "{\"MonitorConfig\":" + std::string(100000, '[') +
                                     std::string(100000, ']') + ",\"VedrixConfig\":{}}");
       },
       false, 0, rootNull},
      {"binary junk", [](const TempDir& root) { root.write(kConfigInTree, binaryJunk(65536)); },
       false, 0, rootNull},
      {"a file without end",
       [](const TempDir& root) { makeEndless(root, kConfigInTree); }, false, 0, rootNull},
      {"a directory in its place",
       [](const TempDir& root) {
         std::filesystem::create_directories(root.path() + "/" + kConfigInTree);
       },
       false, 0, rootNull},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    TempDir root;
    ScopedSysroot sysroot(root.path());
    c.make(root);
    HalvexConfig& config = HalvexConfig::instance();
    config.resetConfig();
    LogCapture log;
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(config.loadConfig(kConfigPath), c.loads);
    EXPECT_LT(secondsSince(start), kPromptSeconds);
    EXPECT_EQ(config.monitorConfigs.size(), c.records);
    std::vector<std::string> errors;
    for (const auto& r : log.records()) {
      if (r.priority == ANDROID_LOG_ERROR) errors.push_back(r.message);
    }
    if (c.loads) {
      EXPECT_TRUE(errors.empty());
    } else {
      ASSERT_FALSE(errors.empty());
      EXPECT_EQ(errors.front(), c.failure);
    }
    config.resetConfig();
  }
}

TEST(BadInputTest, EndlessOversizedAndBinaryKernelFilesGiveBoundedReadings) {
  // A meminfo of 16 MiB whose first line is MemTotal and whose MemFree line
  // lies beyond the 8 MiB a table file is read to.
  std::string oversizedMeminfo = "MemTotal: 3866624 kB\n";
  while (oversizedMeminfo.size() < (16u << 20)) oversizedMeminfo += "Filler:          1 kB\n";
  oversizedMeminfo += "MemFree: 5 kB\n";

  auto meminfo = [] {
    SysMeminfoKb m{};
    bool ok = StatUtil::getMeminfo(m);
    return std::to_string(ok) + " total " + std::to_string(m.memTotal) + " free " +
           std::to_string(m.memFree);
  };
  auto lmk = [] {
    std::map<std::string, unsigned long> stats{{"Fg", 9}};
    bool ok = StatUtil::getLmkStats(stats);
    return std::to_string(ok) + " Fg " + std::to_string(stats["Fg"]);
  };
  auto uptime = [] { return std::to_string(StatUtil::getUptime()); };
  auto cpuTimes = [] {
    return std::to_string(cpuusagemonitor::CpuUsageMonitor::getCPUTimes().size()) + " counters";
  };
  auto zram = [] {
    unsigned long kb = 7;
    bool ok = StatUtil::getZramMemUsedKb(kb);
    return std::to_string(ok) + " " + std::to_string(kb);
  };
  auto ksm = [] { return std::to_string(StatUtil::getKsmPagesSharingCnt()); };
  auto stat = [] {
    ProcessStat s{};
    return std::to_string(StatUtil::getProcessStat(4242, s));
  };
  auto name = [] {
    char n[kProcessNameSize] = "untouched";
    bool ok = StatUtil::getProcessName(4242, n);
    return std::to_string(ok) + " " + n;
  };
  auto cmdline = [] {
    std::string first = "untouched";
    bool ok = StatUtil::getProcessCmdline(4242, first);
    return std::to_string(ok) + " [" + first + "] " + std::to_string(first.size());
  };

  enum Kind { kEndless, kOversized, kBinary, kEmpty };
  struct Case {
    const char* file;
    Kind kind;
    std::function<std::string()> read;
    std::string reading;
    std::vector<std::string> lines;  // every line logged, in order
  };
  const std::string zramWarning = "warning: failed to parse /sys/block/zram0/mm_stat";
  const Case cases[] = {
      {"proc/meminfo", kEndless, meminfo, "1 total 0 free 0", {}},
      {"proc/meminfo", kOversized, meminfo, "1 total 3866624 free 0", {}},
      {"proc/meminfo", kBinary, meminfo, "1 total 0 free 0", {}},
      {"proc/lmk_stats", kEndless, lmk, "0 Fg 9", {}},
      {"proc/lmk_stats", kBinary, lmk, "0 Fg 9", {}},
      {"proc/uptime", kEndless, uptime, "0", {}},
      {"proc/uptime", kBinary, uptime, "0", {}},
      {"proc/stat", kEndless, cpuTimes, "0 counters", {}},
      {"proc/stat", kBinary, cpuTimes, "0 counters", {}},
      {"sys/block/zram0/mm_stat", kEndless, zram, "0 0", {zramWarning}},
      {"sys/block/zram0/mm_stat", kEmpty, zram, "0 0", {zramWarning}},
      {"sys/kernel/mm/ksm/pages_sharing", kEndless, ksm, "0", {}},
      {"sys/kernel/mm/ksm/pages_sharing", kBinary, ksm, "0", {}},
      {"proc/4242/stat", kEndless, stat, "0", {"Failed to parse /proc/4242/stat"}},
      {"proc/4242/stat", kEmpty, stat, "0", {"Failed to parse /proc/4242/stat"}},
      {"proc/4242/comm", kEndless, name, "0 untouched", {}},
      {"proc/4242/comm", kEmpty, name, "0 untouched", {}},
      {"proc/4242/cmdline", kEndless, cmdline, "1 [] 0", {}},
      {"proc/4242/cmdline", kEmpty, cmdline, "0 [untouched] 9", {}},
  };
  const char* kindNames[] = {"endless", "oversized", "binary", "empty"};
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.file) + ", " + kindNames[c.kind]);
    TempDir root;
    ScopedSysroot sysroot(root.path());
    switch (c.kind) {
      case kEndless: makeEndless(root, c.file); break;
      case kOversized: root.write(c.file, oversizedMeminfo); break;
      case kBinary: root.write(c.file, binaryJunk(100000)); break;
      case kEmpty: root.write(c.file, ""); break;
    }
    LogCapture log;
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(c.read(), c.reading);
    EXPECT_LT(secondsSince(start), kPromptSeconds);
    std::vector<std::string> lines;
    for (const auto& r : log.records()) lines.push_back(r.message);
    EXPECT_EQ(lines, c.lines);
  }
}

TEST(BadInputTest, KsmCountsNearTheSixtyFourBitLimitGiveTheirDifference) {
  // 2^61 pages shared are 2^63 kB: as a signed number the lowest there is, so
  // subtracting the overhead from it in signed arithmetic would overflow. The
  // saving is the plain difference, as for any other counts.
  TempDir root;
  ScopedSysroot sysroot(root.path());
  root.write("proc/meminfo", "MemTotal: 4000 kB\nMemAvailable: 1000 kB\n");
  root.write("sys/block/zram0/mm_stat", "1 2 3072 0 0 0 0\n");
  root.write("sys/kernel/mm/ksm/pages_sharing", "2305843009213693952\n");
  for (const char* other : {"pages_shared", "pages_unshared", "pages_volatile",
                            "pages_sharing_always"}) {
    root.write(std::string("sys/kernel/mm/ksm/") + other, "0\n");
  }
  root.write("sys/kernel/slab/ksm_rmap_item/object_size", "1\n");
  monitor_config config;
  config.name = "SystemMemMonitor";
  config.active = true;
  systemmemmonitor::SystemMemMonitor monitor(config);
  monitor.init();
  LogCapture log;
  ASSERT_TRUE(monitor.check(0, true));
  std::vector<std::string> lines = log.messages("halvexd:SystemMemMonitor");
  for (const char* expected : {"mem_ksm_pages_sharing = 9223372036854775808 Kb",
                               "mem_ksm_overhead = 2251799813685248 Kb",
                               "mem_ksm_saving = 9221120237041090560 Kb"}) {
    EXPECT_NE(std::find(lines.begin(), lines.end(), expected), lines.end()) << expected;
  }
}

}  // namespace
}  // namespace halvexd
