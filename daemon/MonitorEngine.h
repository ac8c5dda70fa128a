// The daemon's clock: waits for the device to finish booting, then calls
// every monitor once per tick until a termination signal arrives.
#pragma once

#include <cstdint>
#include <vector>

#include "daemon/DaemonCost.h"
#include "daemon/MonitorInterface.h"

namespace halvexd {

class MonitorEngine {
 public:
  MonitorEngine() = default;
  virtual ~MonitorEngine() = default;

  bool init();
  // Monitors are called in the order they were added; they are not owned.
  void addMonitor(MonitorInterface* monitor);
  void setSignalFd(int fd);
  void setIntervalPerTick(unsigned int seconds);
  // Times every tick and check for the daemon's own cost; null (the
  // default) times nothing. Not owned.
  void setDaemonCost(daemoncost::DaemonCost* cost);

  // Runs until the signal descriptor becomes readable or select fails.
  // Throws std::runtime_error("Memory allocation error") when select runs
  // out of memory.
  void runMonitors();

  // One tick: every monitor's check in call order, a failure logged under the
  // monitor's name, then the tick counter moves on. The loop above is a wait
  // of one tick interval followed by this.
  void runTick();

 private:
  // Handles a readable select result; always ends the loop.
  void readSignal(bool descriptorReady);

  std::vector<MonitorInterface*> monitors;
  uint64_t tickCounter = 0;
  uint32_t intervalPerTick = 0;
  int signalFd = -1;
  daemoncost::DaemonCost* daemonCost = nullptr;
};

}  // namespace halvexd
