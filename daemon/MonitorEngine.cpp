#include "daemon/MonitorEngine.h"

#include <sys/select.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>

#include "platform/LogBuffers.h"
#include "stats/StatUtil.h"

namespace halvexd {
namespace {

constexpr const char* kTag = "halvexd:MonitorEngine";
// Monitors start only once the device has been up this long, so that the
// boot itself does not show up in the statistics.
constexpr int kBootSettleSeconds = 180;

}  // namespace

bool MonitorEngine::init() {
  return true;
}

void MonitorEngine::addMonitor(MonitorInterface* monitor) {
  monitors.push_back(monitor);
}

void MonitorEngine::setSignalFd(int fd) {
  signalFd = fd;
}

void MonitorEngine::setIntervalPerTick(unsigned int seconds) {
  intervalPerTick = seconds;
}

void MonitorEngine::setDaemonCost(daemoncost::DaemonCost* cost) { daemonCost = cost; }

void MonitorEngine::runMonitors() {
  long uptime = StatUtil::getUptime();
  __android_log_buf_print(kSystemLogBuffer, ANDROID_LOG_INFO, kTag, "Current Uptime=%ld", uptime);
  if (uptime == 0) {
    __android_log_buf_print(kSystemLogBuffer, ANDROID_LOG_INFO, kTag,
                            "getUpTime failed to get uptime %ld\n", uptime);
    return;
  }

  fd_set readSet;
  struct timeval timeout;
  timeout.tv_usec = 0;
  if (uptime < kBootSettleSeconds) {
    long wait = kBootSettleSeconds - uptime;
    __android_log_buf_print(kSystemLogBuffer, ANDROID_LOG_INFO, kTag, "Need to wait for wait time=%ld",
                            wait);
    FD_ZERO(&readSet);
    FD_SET(signalFd, &readSet);
    timeout.tv_sec = wait;
    // A signal arriving now cuts the wait short; the loop's first select
    // then sees it and ends the daemon.
    select(signalFd + 1, &readSet, nullptr, nullptr, &timeout);
  }

  while (true) {
    FD_ZERO(&readSet);
    FD_SET(signalFd, &readSet);
    timeout.tv_sec = intervalPerTick;
    int ready = select(signalFd + 1, &readSet, nullptr, nullptr, &timeout);
    if (ready == 0) {
      runTick();
    } else if (ready == 1) {
      readSignal(FD_ISSET(signalFd, &readSet));
      return;
    } else {
      if (errno == ENOMEM) {
        throw std::runtime_error("Memory allocation error");
      }
      return;
    }
  }
}

void MonitorEngine::runTick() {
  // Without the cost extension the tick reads no clock at all.
  if (daemonCost != nullptr) daemonCost->tickBegins();
  // Indexing re-reads the size on every pass, as the monitor list may grow.
  for (size_t i = 0; i < monitors.size(); ++i) {
    const uint64_t start = daemonCost != nullptr ? daemonCost->now() : 0;
    const bool checked = monitors[i]->check(tickCounter, false);
    if (daemonCost != nullptr) daemonCost->checkDone(monitors[i]->name, daemonCost->now() - start);
    if (!checked) {
      __android_log_buf_print(kSystemLogBuffer, ANDROID_LOG_ERROR, kTag, "Error while running %s",
                              monitors[i]->name.c_str());
    }
  }
  if (daemonCost != nullptr) daemonCost->tickDone(tickCounter);
  ++tickCounter;
}

void MonitorEngine::readSignal(bool descriptorReady) {
  if (!descriptorReady) {
    return;
  }
  struct signalfd_siginfo info;
  ssize_t got = read(signalFd, &info, sizeof(info));
  if (got != static_cast<ssize_t>(sizeof(info))) {
    return;
  }
  __android_log_buf_print(kSystemLogBuffer, ANDROID_LOG_INFO, kTag, "Received signal %d",
                          static_cast<int>(info.ssi_signo));
}

}  // namespace halvexd
