// A device tree that changes under the monitors on every tick, on a fixed
// schedule that repeats every kCycle ticks: CPU counters advance (one of them
// wrapping at 32 bits, another crossing 2^32), memory use swings across the
// 95 % threshold, a hundred and twenty process slots are born, die and are
// born again under the same pid, kill counts rise, and kernel files vanish and
// come back truncated or garbled.
//
// Everything a monitor keeps depends only on the tick's place in the cycle,
// so the daemon's memory after any whole number of cycles must be what it was
// after the first.
#pragma once

#include <sys/statvfs.h>

#include <string>
#include <vector>

namespace halvexd::soak {

class SoakDevice {
 public:
  static constexpr unsigned long kCycle = 600;
  static constexpr int kFirstPid = 1000;
  static constexpr int kSlots = 120;

  // Which ticks each monitor runs on in the soak, as (sample interval, offset).
  static constexpr unsigned long kProcessCpuEvery = 20, kProcessMemEvery = 50,
                                 kSystemMemEvery = 6, kDiskEvery = 100;

  // Creates the tree (in memory-backed storage where there is some) in the
  // state that precedes tick 0.
  SoakDevice();
  ~SoakDevice();
  SoakDevice(const SoakDevice&) = delete;
  SoakDevice& operator=(const SoakDevice&) = delete;

  const std::string& root() const { return rootDir; }

  // Brings every file to its state for tick `tick`; ticks come in order.
  void advanceTo(unsigned long tick);

  // What the monitors must answer on the tick last advanced to, when they run.
  bool cpuSampleReadable() const;
  bool memorySampleReadable() const;
  bool systemMemSnapshotReadable() const;

  // Whether an error line is one of this tick's faults: a KSM counter that is
  // missing, a full /data, or a stat file that a dying process left cut short.
  bool errorExpected(const std::string& message) const;

  // statvfs of the tree, with /data full during its fault window.
  int statvfsOf(const std::string& devicePath, struct statvfs* out) const;

 private:
  unsigned long phase() const { return tick % kCycle; }
  void write(const std::string& relative, const std::string& text) const;
  void remove(const std::string& relative) const;
  void writeCpu(unsigned long counterStep) const;
  void writeMeminfo() const;
  void writeSystemMemFiles() const;
  void updateProcesses(bool initial);
  void writeProcess(int slot, unsigned long busyTicks) const;
  bool slotAlive(int slot, unsigned long atPhase) const;

  std::string rootDir;
  unsigned long tick = 0;
  std::vector<int> cutShortPids;  // stat files cut short on this tick
  std::vector<unsigned long> bornAt;  // tick each slot was last born
};

}  // namespace halvexd::soak
