// The daemon's monitors, as the factory builds them, driven tick by tick
// (each tick calls check(tick, false) on every monitor in the engine's order)
// over a device tree that changes under them on every tick. After any whole
// number of the device's cycles the process must hold exactly the heap and
// the descriptors it held after the first, every check must succeed or fail
// exactly when the tick's files say so, no error line may appear that the
// tick's faults do not explain, and every metric record must be whole.
#include <dirent.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <cstdio>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "config/HalvexConfig.h"
#include "daemon/MonitorFactory.h"
#include "monitors/ProcessCpuMonitor.h"
#include "platform/FileSystemStats.h"
#include "platform/LogBuffers.h"
#include "tests/soak/SoakDevice.h"
#include "tests/support/TestSupport.h"
#include "tools/devicesim/PerfinfoServer.h"

#if defined(__SANITIZE_ADDRESS__)
#define HALVEXD_SOAK_UNDER_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define HALVEXD_SOAK_UNDER_ASAN 1
#endif
#endif

#ifdef HALVEXD_SOAK_UNDER_ASAN
// The sanitizer runtime's count of the bytes the program holds.
extern "C" size_t __sanitizer_get_current_allocated_bytes();
#endif

namespace halvexd {
namespace {

using soak::SoakDevice;
using testing::LogCapture;
using testing::ScopedSysroot;

// Heap in use. The sanitizer's allocator counts exactly the bytes asked for,
// so there the heap must come back to the very byte. glibc's count also holds
// the few bytes by which it rounds a block up when the free block it splits
// has too little left over to keep, which depends on where blocks happen to
// lie; there a leak shows as growth beyond that noise. One leaked node or
// string per cycle would add several KiB over the soak.
#ifdef HALVEXD_SOAK_UNDER_ASAN
// The sanitizer build runs about three times slower; a sixth of the ticks
// still covers thirty cycles.
constexpr unsigned long kDefaultTicks = 18000;
constexpr size_t kHeapNoiseBytes = 0;
size_t heapInUse() { return __sanitizer_get_current_allocated_bytes(); }
#else
constexpr unsigned long kDefaultTicks = 100200;
constexpr size_t kHeapNoiseBytes = 1024;
size_t heapInUse() { return mallinfo2().uordblks; }
#endif
static_assert(kDefaultTicks % SoakDevice::kCycle == 0, "the soak ends on a cycle boundary");

// HALVEXD_SOAK_TICKS runs a longer (or shorter) soak, rounded up to whole
// cycles and to at least two.
unsigned long soakTicks() {
  const char* wanted = std::getenv("HALVEXD_SOAK_TICKS");
  if (wanted == nullptr || wanted[0] == '\0') return kDefaultTicks;
  unsigned long cycles = (std::strtoul(wanted, nullptr, 10) + SoakDevice::kCycle - 1) /
                         SoakDevice::kCycle;
  return std::max(cycles, 2UL) * SoakDevice::kCycle;
}

size_t openDescriptors() {
  size_t count = 0;
  DIR* dir = opendir("/proc/self/fd");
  if (dir == nullptr) return 0;
  while (dirent* entry = readdir(dir)) {
    if (entry->d_name[0] != '.') ++count;
  }
  closedir(dir);
  return count;
}

bool endsWith(const std::string& text, const std::string& suffix) {
  return text.size() >= suffix.size() &&
         text.compare(text.size() - suffix.size(), suffix.size(), suffix) == 0;
}

const std::string kDeviceTailWithRegion =
    ",_softwareVersion=;SY,_deviceType=;SY,_platform=;SY,_model=;SY,_buildType=;SY,"
    "_marketPlaceId=;SY,_countryOfResidence=;SY,_deviceLanguage=;SY,_otaGroupName=;SY,"
    "_timeZone=;SY,_deviceId=;SY,_customerId=;SY,_hardware=;SY:eu";

// Findings are kept few and short, so that collecting them does not itself
// grow the heap being watched.
struct Findings {
  static constexpr size_t kKept = 8;
  std::vector<std::string> kept;
  unsigned long count = 0;
  void add(const std::string& what) {
    if (count++ < kKept) kept.push_back(what);
  }
};

class SoakTest : public ::testing::Test {
 protected:
  void SetUp() override {
    wrong.kept.reserve(Findings::kKept);
    unexpected.kept.reserve(Findings::kKept);
    cut.kept.reserve(Findings::kKept);
  }
  void TearDown() override {
    setStatvfsForTesting(nullptr);
    HalvexConfig::instance().resetConfig();
  }

  Findings wrong;       // a check that succeeded or failed against its files
  Findings unexpected;  // error lines no fault of the tick explains
  Findings cut;         // metric records that are not whole
};

TEST_F(SoakTest, HundredThousandTicksOfChangingFilesLeaveNoTrace) {
  SoakDevice device;
  ScopedSysroot sysroot(device.root());
  // Answers each pid with "Pss: <pid> kB" and keeps nothing per exchange.
  devicesim::PerfinfoServer perfinfo(
      device.root(),
      [](const std::string& written) {
        return devicesim::PerfinfoServer::pssLine(std::strtoul(written.c_str(), nullptr, 10));
      },
      false);
  setStatvfsForTesting([&device](const std::string& path, struct statvfs* out) {
    return device.statvfsOf(path, out);
  });

  // The sample tablet's configuration switches every record on.
  std::string config;
  {
    FILE* in = std::fopen(testing::fixturePath(
                              "tablet/system/system_ext/etc/halvex_config.json").c_str(), "rb");
    ASSERT_NE(in, nullptr);
    char chunk[4096];
    size_t got;
    while ((got = std::fread(chunk, 1, sizeof(chunk), in)) > 0) config.append(chunk, got);
    std::fclose(in);
    FILE* out = std::fopen((device.root() + "/system/system_ext/etc/halvex_config.json").c_str(),
                           "wb");
    ASSERT_NE(out, nullptr);
    std::fwrite(config.data(), 1, config.size(), out);
    std::fclose(out);
  }

  LogCapture log;
  ASSERT_TRUE(HalvexConfig::instance().loadConfig("/system/system_ext/etc/halvex_config.json"));
  std::vector<MonitorInterface*> monitors;
  ASSERT_TRUE(configureMonitors(120, false, monitors, false));
  ASSERT_EQ(monitors.size(), 6u);
  std::map<std::string, MonitorInterface*> byName;
  for (MonitorInterface* monitor : monitors) {
    ASSERT_TRUE(monitor->init());
    byName[monitor->name] = monitor;
  }
  // Small intervals so that every monitor runs and reports many times; the
  // offsets stay the factory's.
  byName.at("ProcessCpuMonitor")->sampleIntervalTicks = SoakDevice::kProcessCpuEvery;
  byName.at("ProcessMemMonitor")->sampleIntervalTicks = SoakDevice::kProcessMemEvery;
  byName.at("SystemMemMonitor")->sampleIntervalTicks = SoakDevice::kSystemMemEvery;
  byName.at("DiskUsageMonitor")->sampleIntervalTicks = SoakDevice::kDiskEvery;
  for (const char* usage : {"CpuUsageMonitor", "MemoryUsageMonitor"}) {
    byName.at(usage)->metricReportIntervalTicks = 60;
  }
  // A second of the device's clock per tick, whatever the host's clock does.
  unsigned long tick = 0;
  auto* processCpu = dynamic_cast<processcpumonitor::ProcessCpuMonitor*>(
      byName.at("ProcessCpuMonitor"));
  ASSERT_NE(processCpu, nullptr);
  processCpu->setUptimeClockForTesting([&tick] { return 1000ULL * (tick + 1); });
  log.clear();

  auto ran = [&](MonitorInterface* monitor) {
    return tickRemainder(tick, monitor->sampleIntervalTicks) ==
           (monitor->name == "CpuUsageMonitor" || monitor->name == "MemoryUsageMonitor"
                ? 0
                : monitor->tickOffset);
  };
  auto expectedResult = [&](MonitorInterface* monitor) {
    if (!ran(monitor)) return true;
    if (monitor->name == "CpuUsageMonitor") return device.cpuSampleReadable();
    if (monitor->name == "MemoryUsageMonitor") return device.memorySampleReadable();
    if (monitor->name == "SystemMemMonitor") return device.systemMemSnapshotReadable();
    return true;
  };

  size_t heapAfterFirstCycle = 0;
  size_t descriptorsAfterFirstCycle = 0;
  unsigned long records = 0;
  const unsigned long kTicks = soakTicks();
  auto started = std::chrono::steady_clock::now();
  for (tick = 0; tick < kTicks; ++tick) {
    device.advanceTo(tick);
    for (MonitorInterface* monitor : monitors) {
      bool result = monitor->check(tick, false);
      if (result != expectedResult(monitor)) {
        wrong.add("tick " + std::to_string(tick) + " " + monitor->name);
      }
    }
    for (const auto& record : log.records()) {
      if (record.buffer == 8) {
        ++records;
        if (!endsWith(record.message, ":NR") && !endsWith(record.message, kDeviceTailWithRegion)) {
          cut.add(record.message.substr(0, 120));
        }
      } else if (record.priority >= ANDROID_LOG_ERROR && !device.errorExpected(record.message)) {
        unexpected.add("tick " + std::to_string(tick) + " " + record.tag + ": " +
                       record.message.substr(0, 120));
      }
    }
    log.clear();
    if (tick + 1 == SoakDevice::kCycle) {
      heapAfterFirstCycle = heapInUse();
      descriptorsAfterFirstCycle = openDescriptors();
    }
  }
  size_t heapAtEnd = heapInUse();
  size_t descriptorsAtEnd = openDescriptors();
  double seconds =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
  std::printf("%lu ticks in %.1f s, %lu metric records, %lu perfinfo exchanges; heap %zu -> %zu "
              "bytes, %zu -> %zu descriptors\n",
              kTicks, seconds, records, perfinfo.exchanges(), heapAfterFirstCycle, heapAtEnd,
              descriptorsAfterFirstCycle, descriptorsAtEnd);

  EXPECT_LE(heapAtEnd, heapAfterFirstCycle + kHeapNoiseBytes)
      << "heap grew over " << kTicks << " ticks";
  if (kHeapNoiseBytes == 0) {
    EXPECT_EQ(heapAtEnd, heapAfterFirstCycle);
  }
  EXPECT_EQ(descriptorsAtEnd, descriptorsAfterFirstCycle) << "descriptors leaked";
  EXPECT_EQ(wrong.count, 0u) << ::testing::PrintToString(wrong.kept);
  EXPECT_EQ(unexpected.count, 0u) << ::testing::PrintToString(unexpected.kept);
  EXPECT_EQ(cut.count, 0u) << ::testing::PrintToString(cut.kept);
  // Every monitor reported, and PSS was read through the kernel's exchange.
  EXPECT_GT(records, kTicks / 10);
  EXPECT_GT(perfinfo.exchanges(), kTicks / SoakDevice::kProcessMemEvery);
}

}  // namespace
}  // namespace halvexd

int main(int argc, char** argv) {
#ifndef HALVEXD_SOAK_UNDER_ASAN
  // glibc keeps recently freed blocks in per-thread caches that its
  // statistics count as in use, so the heap figure would follow which block
  // sizes were freed last rather than what is held. The soak runs with those
  // caches off (a tunable read at start-up, hence the one re-execution).
  const char* tunables = std::getenv("GLIBC_TUNABLES");
  if (tunables == nullptr || std::strstr(tunables, "glibc.malloc.tcache_count=0") == nullptr) {
    setenv("GLIBC_TUNABLES", "glibc.malloc.tcache_count=0", 1);
    execv("/proc/self/exe", argv);
    std::perror("execv");
    return 1;
  }
#endif
  ::testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
