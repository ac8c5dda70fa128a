// halvex-devicesim: a device tree for halvexd to watch on a host.
//
//   halvex-devicesim [--seed N] [--from TREE] [--config FILE] [--seconds N] ROOT
//       copies TREE (when ROOT holds no /proc yet) and moves it as a running
//       tablet does, serving /proc/perfinfo, until SIGINT or SIGTERM (or for
//       N seconds). FILE, when given, replaces the tree's configuration.
//   halvex-devicesim --live --config FILE ROOT
//       makes ROOT a sysroot of this machine's /proc and /sys, with FILE as
//       its configuration and a /proc/perfinfo that answers from smaps_rollup.
#include <signal.h>
#include <time.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>

#include "tools/devicesim/LiveMirror.h"
#include "tools/devicesim/PerfinfoServer.h"
#include "tools/devicesim/SampleDevice.h"

namespace {

volatile sig_atomic_t stopRequested = 0;

void requestStop(int) { stopRequested = 1; }

int usage() {
  std::fprintf(
      stderr,
      "usage: halvex-devicesim [--seed N] [--from TREE] [--config FILE] [--seconds N] ROOT\n"
      "       halvex-devicesim --live --config FILE [--seconds N] ROOT\n");
  return 2;
}

// Sleeps until `next`, then moves it on by `stepNanos`.
void sleepUntil(timespec& next, long stepNanos) {
  next.tv_nsec += stepNanos;
  while (next.tv_nsec >= 1000000000L) {
    next.tv_nsec -= 1000000000L;
    ++next.tv_sec;
  }
  while (!stopRequested && clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &next, nullptr) != 0) {
  }
}

}  // namespace

int main(int argc, char** argv) {
  using namespace halvexd::devicesim;
  uint64_t seed = 1;
  long seconds = -1;
  bool live = false;
  std::string from, config, root;
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    const bool hasValue = i + 1 < argc;
    if (arg == "--seed" && hasValue) {
      seed = std::strtoull(argv[++i], nullptr, 10);
    } else if (arg == "--seconds" && hasValue) {
      seconds = std::atol(argv[++i]);
    } else if (arg == "--from" && hasValue) {
      from = argv[++i];
    } else if (arg == "--config" && hasValue) {
      config = argv[++i];
    } else if (arg == "--live") {
      live = true;
    } else if (root.empty() && !arg.empty() && arg[0] != '-') {
      root = arg;
    } else {
      return usage();
    }
  }
  if (root.empty() || (live && config.empty()) || (!live && from.empty() &&
                                                   !std::filesystem::exists(root + "/proc"))) {
    return usage();
  }

  struct sigaction onStop {};
  onStop.sa_handler = requestStop;
  sigaction(SIGTERM, &onStop, nullptr);
  // Started in the background by a script, SIGINT arrives ignored: the
  // script then stops the device itself, after the daemons reading it.
  struct sigaction interrupt {};
  sigaction(SIGINT, nullptr, &interrupt);
  if (interrupt.sa_handler != SIG_IGN) sigaction(SIGINT, &onStop, nullptr);

  try {
    std::unique_ptr<SampleDevice> device;
    std::unique_ptr<LiveMirror> mirror;
    std::unique_ptr<PerfinfoServer> perfinfo;
    if (live) {
      mirror = std::make_unique<LiveMirror>(root, config);
      perfinfo = std::make_unique<PerfinfoServer>(
          root, [&mirror](const std::string& written) { return mirror->perfinfoAnswer(written); },
          false);
    } else {
      if (!std::filesystem::exists(root + "/proc")) {
        std::filesystem::copy(from, root, std::filesystem::copy_options::recursive);
      }
      if (!config.empty()) {
        std::filesystem::copy_file(config, root + "/system/system_ext/etc/halvex_config.json",
                                   std::filesystem::copy_options::overwrite_existing);
      }
      device = std::make_unique<SampleDevice>(root, seed);
      perfinfo = std::make_unique<PerfinfoServer>(
          root, [&device](const std::string& written) { return device->perfinfoAnswer(written); },
          false);
    }
    // /proc/perfinfo is the last file made: once it is there the tree is whole.
    timespec next{};
    clock_gettime(CLOCK_MONOTONIC, &next);
    const int stepsPerSecond = live ? 1 : SampleDevice::kStepsPerSecond;
    for (long step = 0; !stopRequested && (seconds < 0 || step < seconds * stepsPerSecond); ++step) {
      sleepUntil(next, 1000000000L / stepsPerSecond);
      if (stopRequested) break;
      if (live) {
        mirror->refresh();
      } else {
        device->step();
      }
    }
  } catch (const std::exception& error) {
    std::fprintf(stderr, "halvex-devicesim: %s\n", error.what());
    return 1;
  }
  return 0;
}
