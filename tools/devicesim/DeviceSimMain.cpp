// halvex-devicesim: a device tree for halvexd to watch on a host.
//
//   halvex-devicesim [--seed N] [--from TREE] [--config FILE] [--seconds N] ROOT
//       copies TREE (when ROOT holds no /proc yet) and moves it as a running
//       tablet does, serving /proc/perfinfo, until SIGINT or SIGTERM (or for
//       N seconds). FILE, when given, replaces the tree's configuration.
//   halvex-devicesim --live --config FILE ROOT
//       makes ROOT a sysroot of this machine's /proc and /sys, with FILE as
//       its configuration and a /proc/perfinfo that answers from smaps_rollup.
//   --no-perfinfo
//       either device without /proc/perfinfo, as a kernel other than the
//       target devices' has none.
// The tree is whole once ROOT/proc exists: a copy is made aside and renamed
// into place, and /proc/perfinfo, when served, is made last.
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
  std::fprintf(stderr,
               "usage: halvex-devicesim [--seed N] [--from TREE] [--config FILE] [--seconds N]\n"
               "                        [--no-perfinfo] ROOT\n"
               "       halvex-devicesim --live --config FILE [--seconds N] [--no-perfinfo] ROOT\n");
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

// Makes `config` the configuration of the tree at `root`.
void installConfig(const std::string& config, const std::string& root) {
  std::filesystem::copy_file(config, root + "/system/system_ext/etc/halvex_config.json",
                             std::filesystem::copy_options::overwrite_existing);
}

// Copies `from` to `root` by way of a sibling folder renamed into place, with
// `config` (when not empty) as its configuration.
void copyTree(const std::string& from, const std::string& config, const std::string& root) {
  namespace fs = std::filesystem;
  const std::string aside = root + ".copying";
  fs::remove_all(aside);
  fs::copy(from, aside, fs::copy_options::recursive);
  if (!config.empty()) installConfig(config, aside);
  fs::rename(aside, root);
}

}  // namespace

int main(int argc, char** argv) {
  using namespace halvexd::devicesim;
  uint64_t seed = 1;
  long seconds = -1;
  bool live = false;
  bool perfinfoServed = true;
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
    } else if (arg == "--no-perfinfo") {
      perfinfoServed = false;
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
    PerfinfoServer::Answer answer;
    if (live) {
      mirror = std::make_unique<LiveMirror>(root, config);
      answer = [&mirror](const std::string& written) { return mirror->perfinfoAnswer(written); };
    } else {
      if (!std::filesystem::exists(root + "/proc")) {
        copyTree(from, config, root);
      } else if (!config.empty()) {
        installConfig(config, root);
      }
      device = std::make_unique<SampleDevice>(root, seed);
      answer = [&device](const std::string& written) { return device->perfinfoAnswer(written); };
    }
    if (perfinfoServed) perfinfo = std::make_unique<PerfinfoServer>(root, answer, false);
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
