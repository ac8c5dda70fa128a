// A device tree that moves as a running tablet does. Built over a copy of a
// still tree (the sample tablet), it keeps every figure the monitors read in
// memory and rewrites the files on each step:
//  - every quarter second: the CPU counters of /proc/stat, advancing with a
//    load that rises and falls and, every 20 to 50 seconds, stays near 100 %
//    for a few seconds; /proc/uptime;
//  - every second: per-process utime and stime, advancing unevenly; a few
//    applications exiting and others starting, sometimes under a pid that
//    was freed before; MemAvailable drifting, with short spells above 95 %
//    used every 25 to 50 seconds; zram and KSM counters; low-memory kills in bursts; a file under
//    /data growing.
// It also holds a PSS figure for every process, for the /proc/perfinfo
// stand-in to answer with and written each second into the process's
// smaps_rollup. Each CPU burst and memory spell is one application's doing:
// in a burst it keeps two CPUs busy, in a spell its resident memory grows by
// what the spell adds; spells() names them. The tree's /proc/self is the
// reader's own entry, as on a device. It writes /proc/pressure/memory, cpu
// and io each second: CPU stalls grow with the load above 40 %, memory stalls
// with memory use above 84 % (so the spells above 95 % show as memory
// pressure), I/O with both. These follow the other figures without drawing
// on the random sequence, so the rest of the tree moves as it did before they
// were written.
//
// Every change comes from one pseudo-random sequence seeded at construction,
// so two devices with the same seed over the same tree write the same files
// step after step.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <random>
#include <string>
#include <vector>

#include "tools/devicesim/KernelText.h"
#include "tools/devicesim/TreeFiles.h"

namespace halvexd::devicesim {

class SampleDevice {
 public:
  static constexpr int kStepsPerSecond = 4;

  // Reads the tree at `root` and writes its first moving state; throws when
  // the tree lacks /proc/stat or /proc/meminfo.
  SampleDevice(const std::string& root, uint64_t seed);

  // Moves the device on by a quarter second.
  void step();
  unsigned long steps() const { return stepCount; }

  // The reply of /proc/perfinfo to a write of `written`: the PSS of that pid,
  // 0 kB for a pid that is not running. Safe to call from another thread.
  std::string perfinfoAnswer(const std::string& written) const;

  // A CPU burst or memory spell and the application behind it.
  struct Spell {
    bool memory = false;
    int pid = 0;
    std::string comm;
    unsigned long firstSecond = 0;
  };
  // Every spell begun so far, in order. Safe to call from another thread.
  std::vector<Spell> spells() const;

 private:
  struct Process {
    int pid = 0;
    std::string comm;
    std::vector<std::string> fields;  // the stat fields after the name
    uint64_t utime = 0;
    uint64_t stime = 0;
    double weight = 1.0;  // share of the application load
    bool kernelThread = false;
    bool transient = false;  // an application that may exit
    double basePssKb = 0;
  };

  uint64_t below(uint64_t bound) { return random() % bound; }
  double unit() { return static_cast<double>(random() >> 11) * 0x1.0p-53; }

  void readTree();
  void readProcesses();
  void everySecond();
  void advanceCpu();
  void advanceProcesses();
  void churnProcesses();
  void startProcess();
  void advanceMemory();
  void advanceZramAndKsm();
  void advanceKills();
  void advancePressure();
  void writeRollup(const Process& process, uint64_t pssKb) const;
  void fillData();
  void writeProcess(const Process& process) const;
  void writeCpu() const;
  void writeUptime() const;
  // Picks the application behind a spell beginning now; null when none runs.
  Process* beginSpell(bool memory);
  Process* findProcess(int pid);
  void chargeBurst(uint64_t busyTicks);
  void growWorkingSet(uint64_t extraKb);

  TreeFiles tree;
  std::mt19937_64 random;
  unsigned long stepCount = 0;
  unsigned long second = 0;

  double load = 50;  // percent of every CPU busy during this second
  int cpuBurstLeft = 0;
  unsigned long nextCpuBurst = 8;  // the first within the first minute
  KernelText::CpuCounters cpuTotal;
  std::vector<KernelText::CpuCounters> perCpu;
  std::string statTail;
  uint64_t busyThisSecond = 0;
  double uptimeSeconds = 200;
  double idleSeconds = 0;

  std::vector<Process> processes;
  std::deque<int> freedPids;
  int nextPid = 3000;

  std::vector<std::pair<std::string, uint64_t>> meminfo;
  int memorySpellLeft = 0;
  unsigned long nextMemorySpell = 12;
  std::vector<uint64_t> zram;  // the fields of mm_stat
  bool zramTotalFile = false;
  uint64_t ksmShared = 0, ksmSharing = 0, ksmUnshared = 0, ksmVolatile = 0, ksmScans = 0;
  std::vector<std::pair<std::string, uint64_t>> kills;
  int killBurstLeft = 0;
  uint64_t dataFillBytes = 0;

  // The stall share of one second fed into the kernel's three running
  // averages, and the stall total.
  struct Stall {
    double averages[3] = {0, 0, 0};
    uint64_t totalUs = 0;
    void add(double percent);
  };
  double memoryUsedPercent = 0;
  Stall cpuSome, memorySome, memoryFull, ioSome, ioFull;

  // The application of the running CPU burst and memory spell (0: none), and
  // what the spell has added to its resident pages.
  int burstPid = 0;
  int spellPid = 0;
  long spellPages = 0;
  std::mt19937_64 spellRandom;
  std::vector<Spell> spellLog;

  mutable std::mutex pssLock;
  std::map<int, uint64_t> pssByPid;
};

}  // namespace halvexd::devicesim
