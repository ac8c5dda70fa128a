#include "daemon/HalvexD.h"

#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <vector>

#include "config/HalvexConfig.h"
#include "daemon/MonitorEngine.h"
#include "daemon/MonitorFactory.h"
#include "platform/LogBuffers.h"
#include "platform/Sysroot.h"

namespace halvexd {
namespace {

constexpr const char* kTag = "halvexd";
constexpr const char* kSystemConfigPath = "/system/system_ext/etc/halvex_config.json";
constexpr unsigned long long kDefaultSampleIntervalTicks = 120;
constexpr unsigned long long kDefaultTickSeconds = 30;

struct Options {
  bool daemonise = false;
  bool optionsGiven = false;
  unsigned long long sampleInterval = kDefaultSampleIntervalTicks;
  unsigned long long tickInterval = kDefaultTickSeconds;
};

void logUsage() {
  __android_log_buf_print(kSystemLogBuffer, ANDROID_LOG_INFO, kTag, "Usage: halvexd [-d]\n");
  __android_log_buf_print(kSystemLogBuffer, ANDROID_LOG_INFO, kTag,
                          " -d                  Run in the background.\n");
  __android_log_buf_print(kSystemLogBuffer, ANDROID_LOG_INFO, kTag,
                          " -s sample_interval  In number of ticks and must be >0 default=%llu\n",
                          kDefaultSampleIntervalTicks);
  __android_log_buf_print(kSystemLogBuffer, ANDROID_LOG_INFO, kTag,
                          " -t tick_interval    Interval per tick in seconds and must >0 default=%llu\n",
                          kDefaultTickSeconds);
}

// False when the usage text was asked for (or an option was wrong): the
// daemon then stops at once.
bool parseOptions(int argc, char** argv, Options& options) {
  int option;
  while ((option = getopt(argc, argv, "s:t:d?h")) != -1) {
    switch (option) {
      case 'd':
        options.daemonise = true;
        break;
      case 's':
        // Taken as it stands: a negative number becomes a huge interval.
        options.sampleInterval = static_cast<unsigned long long>(atoll(optarg));
        break;
      case 't':
        options.tickInterval = static_cast<unsigned long long>(atoll(optarg));
        break;
      default:
        logUsage();
        return false;
    }
    // -d counts too: a plain "halvexd -d" runs every monitor on the
    // command-line sample interval.
    options.optionsGiven = true;
  }
  return true;
}

}  // namespace

bool startEngine(int signalFd, unsigned long sampleInterval, unsigned long tickInterval,
                 bool optionsGiven, bool /*configLoaded*/) {
  MonitorEngine engine;
  if (!engine.init()) {
    return false;
  }
  engine.setIntervalPerTick(static_cast<unsigned int>(tickInterval));
  engine.setSignalFd(signalFd);

  std::vector<MonitorInterface*> monitors;
  if (!configureMonitors(sampleInterval, optionsGiven, monitors, false)) {
    return false;
  }
  // Monitors live until the process ends; none is deleted on any path.
  for (MonitorInterface* monitor : monitors) {
    if (!monitor->init()) {
      __android_log_buf_print(kSystemLogBuffer, ANDROID_LOG_ERROR, kTag, "Failed to init a monitor");
      return false;
    }
    engine.addMonitor(monitor);
  }
  // The cost extension's state lives as long as the engine's loop.
  std::unique_ptr<daemoncost::DaemonCost> cost;
  const ExtensionConfig::DaemonCost& costSettings = HalvexConfig::instance().extensions.daemonCost;
  if (costSettings.active) {
    cost = std::make_unique<daemoncost::DaemonCost>(costSettings);
    engine.setDaemonCost(cost.get());
  }
  engine.runMonitors();
  return true;
}

}  // namespace halvexd

int main(int argc, char** argv) {
  using namespace halvexd;

#if !defined(__ANDROID__)
  // A host run may read a fixture device tree instead of the host's own.
  if (const char* root = std::getenv("HALVEXD_SYSROOT")) {
    setSysroot(root);
  }
#endif

  Options options;
  if (!parseOptions(argc, argv, options)) {
    return 0;
  }

  bool configLoaded = HalvexConfig::instance().loadConfig(kSystemConfigPath);
  if (!configLoaded) {
    __android_log_buf_print(kSystemLogBuffer, ANDROID_LOG_WARN, kTag,
                            "WARN: Failed to load config file");
  }

  // Zero (also what a non-numeric argument gives) means the default.
  if (options.sampleInterval == 0) options.sampleInterval = kDefaultSampleIntervalTicks;
  if (options.tickInterval == 0) options.tickInterval = kDefaultTickSeconds;

  __android_log_buf_print(kSystemLogBuffer, ANDROID_LOG_INFO, kTag,
                          "Starting daemon\nSample interval = %llu ticks\nTime per tick = %llu sec",
                          options.sampleInterval, options.tickInterval);

  // The configuration is read above, in the foreground, before detaching.
  if (options.daemonise) {
    (void)!daemon(0, 0);
  }

  // In the background SIGINT keeps its default action and simply kills the
  // daemon; only SIGTERM takes the orderly path through the engine.
  sigset_t signals;
  sigemptyset(&signals);
  if (!options.daemonise) {
    sigaddset(&signals, SIGINT);
  }
  sigaddset(&signals, SIGTERM);

  if (sigprocmask(SIG_BLOCK, &signals, nullptr) == -1) {
    __android_log_buf_print(kSystemLogBuffer, ANDROID_LOG_ERROR, kTag, "Error: Failed to block signal");
  } else {
    int signalFd = signalfd(-1, &signals, 0);
    if (signalFd == -1) {
      __android_log_buf_print(kSystemLogBuffer, ANDROID_LOG_ERROR, kTag,
                              "Error: failed to associate signal with fd");
    } else {
      try {
        startEngine(signalFd, options.sampleInterval, options.tickInterval, options.optionsGiven,
                    configLoaded);
      } catch (const std::runtime_error& error) {
        __android_log_buf_print(kSystemLogBuffer, ANDROID_LOG_ERROR, kTag,
                                "main failed, reason=runttimeFailed %s", error.what());
      }
    }
  }

  // The exit path closes descriptor -1, not the signal descriptor, which is
  // left to process exit; the call fails harmlessly and is kept as it is.
  close(-1);
  __android_log_buf_print(kSystemLogBuffer, ANDROID_LOG_INFO, kTag, "Exiting");
  return 0;
}
