// A golden run: the daemon's configuration loader, monitor factory and engine
// over a copy of a fixture device tree, in this process, one tick at a time,
// while a per-tick script moves the device. Every log record of both buffers
// is kept as one tick-stamped line (format in tests/golden/README.md).
#pragma once

#include <sys/statvfs.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "daemon/MonitorEngine.h"
#include "tools/devicesim/PerfinfoServer.h"
#include "tests/support/TestSupport.h"

namespace halvexd::testing {

// Bytes this program holds on the heap now (tests/support/HeapCounter.cpp).
size_t heapBytesInUse();

class GoldenRun {
 public:
  // Reads tests/golden/<scenario>/script, copies its fixture tree, applies
  // the setup lines, loads the configuration and builds the monitors.
  explicit GoldenRun(const std::string& scenario);
  ~GoldenRun();
  GoldenRun(const GoldenRun&) = delete;
  GoldenRun& operator=(const GoldenRun&) = delete;

  // True when the script serves /proc/perfinfo, which takes a thread.
  static bool needsThread(const std::string& scenario);

  // Runs the script's ticks once more; "{cycle}" in an action becomes the
  // number of earlier cycles in three digits ("000" on the first).
  void runCycle();
  const std::string& log() const { return text; }
  void clearLog() { std::string().swap(text); }

 private:
  struct Action {
    unsigned long tick;
    std::vector<std::string> words;
  };
  void apply(const std::vector<std::string>& words);

  TempDir device;
  std::unique_ptr<ScopedSysroot> sysroot;
  std::unique_ptr<devicesim::PerfinfoServer> perfinfo;
  std::vector<Action> actions;
  std::map<std::string, struct statvfs> disks;
  unsigned long ticks = 0;
  unsigned long tickSeconds = 30;
  unsigned long cycle = 0;
  unsigned long tick = 0;
  std::string stamp = "-";
  std::string text;
  MonitorEngine engine;
  std::vector<MonitorInterface*> monitors;
};

}  // namespace halvexd::testing
