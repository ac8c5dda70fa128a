#include "tests/soak/SoakDevice.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <stdexcept>

#include "tests/support/ProcessTree.h"
#include "tools/devicesim/KernelText.h"

namespace halvexd::soak {
namespace {

constexpr uint64_t kMemTotalKb = 4000000;
// Clock ticks a busy process runs per daemon tick: 50 of 100 per second.
constexpr unsigned long kBusyClockTicksPerTick = 50;
// Alive for kLife ticks, then gone for kGap ticks, in each slot. The gap is
// no shorter than the per-process CPU monitor's interval, so the monitor sees
// every process end and a reused pid always comes back as a new entry.
constexpr unsigned long kLife = 40;
constexpr unsigned long kGap = 20;

bool within(unsigned long value, unsigned long from, unsigned long to) {
  return value >= from && value < to;
}

// Names are short enough to live inside std::string itself, so that the
// monitors' name lists cost the same memory whichever processes they hold.
std::string commOf(int slot) {
  int kind = slot % 16;
  return kind == 15 ? "HwBinder:soak" : "soak_app_" + std::to_string(kind);
}

std::string cmdlineOf(int slot) {
  if (slot % 16 == 15) return std::string("/bin/soak bind\0--host\0", 22);
  return commOf(slot) + std::string("\0--slot\0", 8) + std::to_string(slot) + std::string("\0", 1);
}

}  // namespace

SoakDevice::SoakDevice() : bornAt(kSlots, 0) {
  // Files change on every tick: memory-backed storage keeps that cheap.
  std::string base = access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
  std::string pattern = base + "/halvexd-soak-XXXXXX";
  if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
  rootDir = pattern;
  for (const char* dir : {"/proc", "/data", "/system/system_ext/etc", "/sys/block/zram0",
                          "/sys/kernel/mm/ksm", "/sys/kernel/slab/ksm_rmap_item"}) {
    std::filesystem::create_directories(rootDir + dir);
  }
  write("proc/uptime", "200.00 100.00\n");
  for (int pid : {2, 3}) {
    testing::FakeProcess thread;
    thread.pid = pid;
    thread.comm = pid == 2 ? "kthreadd" : "ksoftirqd/0";
    thread.rss = 0;
    std::filesystem::create_directories(rootDir + "/proc/" + std::to_string(pid));
    write("proc/" + std::to_string(pid) + "/stat", testing::statLine(thread));
    write("proc/" + std::to_string(pid) + "/comm", thread.comm + "\n");
    write("proc/" + std::to_string(pid) + "/cmdline", "");
  }
  // The state before tick 0: what the monitors' constructors read.
  tick = 0;
  writeCpu(0);
  writeMeminfo();
  writeSystemMemFiles();
  updateProcesses(true);
}

SoakDevice::~SoakDevice() {
  std::error_code ignored;
  std::filesystem::remove_all(rootDir, ignored);
}

void SoakDevice::write(const std::string& relative, const std::string& text) const {
  std::string path = rootDir + "/" + relative;
  int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd < 0) throw std::runtime_error("cannot write " + path);
  bool whole = ::write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
  close(fd);
  if (!whole) throw std::runtime_error("short write to " + path);
}

void SoakDevice::remove(const std::string& relative) const {
  unlink((rootDir + "/" + relative).c_str());
}

void SoakDevice::writeCpu(unsigned long step) const {
  unsigned long p = step % kCycle;
  if (within(p, 100, 103)) {
    remove("proc/stat");
    return;
  }
  if (p == 103) {
    write("proc/stat", "cpu  12 34\n");
    return;
  }
  // user wraps at 32 bits once early on; system crosses 2^32 as a 64-bit
  // counter; idle moves by 1 or 10 so usage swings between about 52 and 92 %.
  uint64_t user = (4294960000ULL + 7 * step) & 0xffffffffULL;
  uint64_t system = 4294967296ULL - 30000 + 3 * step;
  uint64_t idle = 500000 + step + 9 * (step / 3);
  uint64_t iowait = 100 + step;
  write("proc/stat", devicesim::KernelText::procStat(
                         {user, 0, system, idle, iowait, 50, 60, 0, 0, 0},
                         {{1, 2, 3, 4, 5, 6, 7, 0, 0, 0}},
                         "intr 12345 0 0\nctxt 987654\nbtime 1700000000\n"));
}

void SoakDevice::writeMeminfo() const {
  unsigned long p = phase();
  if (within(p, 200, 202)) {
    remove("proc/meminfo");
    return;
  }
  if (p == 202) {
    write("proc/meminfo", "MemTotal:        4000000 kB\nMemFr");
    return;
  }
  if (p == 203) {
    write("proc/meminfo", "MemTo");
    return;
  }
  // Use climbs from 90 to 99 % in steps of ten ticks, crossing 95 % twice a
  // hundred ticks.
  uint64_t usedPercent = 90 + (p / 10) % 10;
  uint64_t available = kMemTotalKb * (100 - usedPercent) / 100;
  write("proc/meminfo",
        devicesim::KernelText::meminfo(
            {{"MemTotal", kMemTotalKb}, {"MemFree", available / 2}, {"MemAvailable", available},
             {"Buffers", 10360}, {"Cached", 1699808}, {"SwapCached", 1024}, {"Active", 1500000},
             {"Inactive", 900000}, {"Active(anon)", 702392}, {"Inactive(anon)", 310224},
             {"Active(file)", 797608}, {"Inactive(file)", 589776}, {"SwapTotal", 2097148},
             {"SwapFree", 1500000}, {"Shmem", 8000}, {"SUnreclaim", 90000},
             {"KernelStack", 30000}, {"PageTables", 60000}}));
}

void SoakDevice::writeSystemMemFiles() const {
  unsigned long p = phase();
  unsigned long usedBytes = 200UL * 1024 * 1024 + p * 4096;
  if (within(p, 300, 326)) {
    remove("sys/block/zram0/mm_stat");
  } else if (within(p, 326, 332)) {
    write("sys/block/zram0/mm_stat", "garbage\n");
  } else {
    write("sys/block/zram0/mm_stat",
          "665329664 211980288 " + std::to_string(usedBytes) + " 0 281636864 12450 3128 214 0\n");
  }
  if (within(p, 320, 326)) {
    remove("sys/block/zram0/mem_used_total");
  } else {
    write("sys/block/zram0/mem_used_total", std::to_string(usedBytes) + "\n");
  }
  const char* counted[] = {"pages_shared", "pages_unshared", "pages_volatile"};
  for (size_t i = 0; i < 3; ++i) {
    std::string path = std::string("sys/kernel/mm/ksm/") + counted[i];
    if (within(p, 400, 420)) {
      remove(path);
    } else {
      write(path, std::to_string(100 * (i + 1) + p) + "\n");
    }
  }
  write("sys/kernel/mm/ksm/pages_sharing", std::to_string(5000 + p) + "\n");
  write("sys/kernel/mm/ksm/pages_sharing_always", "0\n");
  write("sys/kernel/slab/ksm_rmap_item/object_size", "64\n");
  if (within(p, 450, 460)) {
    remove("proc/lmk_stats");
  } else {
    unsigned long t = tick;
    write("proc/lmk_stats", "Persistent: 0\nFg: " + std::to_string(t / 600) +
                                "\nVisible: " + std::to_string(t / 300) +
                                "\nPerceptible: " + std::to_string(t / 120) +
                                "\nBackup: " + std::to_string(t / 60) +
                                "\nOther: " + std::to_string(t / 10) +
                                "\nTotal: " + std::to_string(t) + "\n");
  }
}

bool SoakDevice::slotAlive(int slot, unsigned long atPhase) const {
  // 7 is prime to the slot period, so the slots' offsets cover every phase
  // equally: exactly two thirds of the slots are alive on every tick.
  return (atPhase + 7UL * static_cast<unsigned long>(slot)) % (kLife + kGap) < kLife;
}

void SoakDevice::writeProcess(int slot, unsigned long busyTicks) const {
  testing::FakeProcess process;
  process.pid = kFirstPid + slot;
  process.comm = commOf(slot);
  process.rss = 1000 + slot;
  if (slot % 8 == 0) {
    process.utime = busyTicks * kBusyClockTicksPerTick;
    process.stime = busyTicks * 10;
  }
  const std::string dir = "proc/" + std::to_string(process.pid);
  write(dir + "/stat", testing::statLine(process));
  write(dir + "/comm", process.comm + "\n");
  write(dir + "/cmdline", cmdlineOf(slot));
}

void SoakDevice::updateProcesses(bool initial) {
  cutShortPids.clear();
  unsigned long p = phase();
  for (int slot = 0; slot < kSlots; ++slot) {
    const std::string dir = rootDir + "/proc/" + std::to_string(kFirstPid + slot);
    bool alive = slotAlive(slot, p);
    unsigned long place = (p + 7UL * static_cast<unsigned long>(slot)) % (kLife + kGap);
    if (initial) {
      if (alive) {
        std::filesystem::create_directories(dir);
        bornAt[static_cast<size_t>(slot)] = tick;
        writeProcess(slot, 0);
      }
      continue;
    }
    if (alive && place == 0) {
      // Born again under the same pid: a new program with fresh counters.
      std::filesystem::create_directories(dir);
      bornAt[static_cast<size_t>(slot)] = tick;
      writeProcess(slot, 0);
    } else if (!alive && place == kLife) {
      std::error_code ignored;
      std::filesystem::remove_all(dir, ignored);
    } else if (alive && place == kLife - 1 && slot < kSlots / 2) {
      // Exiting while it is read: the stat file ends half-way. (Two slots
      // are in their last tick on every tick, this one and the one below, so
      // the number of readable processes never changes.)
      std::string line = testing::statLine({kFirstPid + slot, commOf(slot), 0, 0, 1000, ""});
      write("proc/" + std::to_string(kFirstPid + slot) + "/stat", line.substr(0, line.size() / 2));
      cutShortPids.push_back(kFirstPid + slot);
    } else if (alive && place == kLife - 1) {
      // Exiting while it is read: comm is gone, stat is still there.
      remove("proc/" + std::to_string(kFirstPid + slot) + "/comm");
    } else if (alive && slot % 8 == 0 && tick % kProcessCpuEvery == 0) {
      writeProcess(slot, tick - bornAt[static_cast<size_t>(slot)]);
    }
  }
}

void SoakDevice::advanceTo(unsigned long nextTick) {
  tick = nextTick;
  writeCpu(tick + 1);
  writeMeminfo();
  if (tick % kSystemMemEvery == 2) writeSystemMemFiles();
  updateProcesses(false);
}

bool SoakDevice::cpuSampleReadable() const {
  return !within((tick + 1) % kCycle, 100, 104);
}

bool SoakDevice::memorySampleReadable() const {
  unsigned long p = phase();
  return !within(p, 200, 202) && p != 203;
}

bool SoakDevice::systemMemSnapshotReadable() const {
  unsigned long p = phase();
  return !within(p, 200, 202) && !within(p, 320, 326);
}

bool SoakDevice::errorExpected(const std::string& message) const {
  unsigned long p = phase();
  if (within(p, 400, 420) && message == "file open error is - No such file or directory\n") {
    return true;
  }
  // The total size of /data was measured while it had room and is kept, so a
  // full /data shows as no space available to applications.
  if (within(p, 500, 510) && message == "Error getting disk usage available space") {
    return true;
  }
  for (int pid : cutShortPids) {
    if (message == "Failed to parse /proc/" + std::to_string(pid) + "/stat") return true;
  }
  return false;
}

int SoakDevice::statvfsOf(const std::string& devicePath, struct statvfs* out) const {
  if (devicePath == "/data" && within(phase(), 500, 510)) {
    std::memset(out, 0, sizeof(*out));
    out->f_bsize = 4096;
    out->f_blocks = 1000000;
    out->f_bfree = 0;
    out->f_files = 100000;
    out->f_ffree = 50000;
    out->f_favail = 50000;
    return 0;
  }
  return ::statvfs((rootDir + devicePath).c_str(), out);
}

}  // namespace halvexd::soak
