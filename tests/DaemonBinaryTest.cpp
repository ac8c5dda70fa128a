// The real daemon binary over a small device tree, a row per command line,
// device and signal. A row's whole log (buffer, priority, tag, message; one
// record a line, newlines as \n) must equal tests/golden/binary/<golden>.log;
// <golden>.json, if there, is the system configuration. HALVEXD_GOLDEN_UPDATE=1
// rewrites the logs from the runs: read every changed line before committing.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <thread>

#include "platform/LogBuffers.h"
#include "tests/support/DaemonProcess.h"

namespace halvexd {
namespace {

using Clock = std::chrono::steady_clock;
using testing::LogRecord;

const std::string kGoldenDir = std::string(HALVEXD_SOURCE_DIR) + "/tests/golden/binary/";
const char* const kUp = "200.00 1.00\n";
const char* const kBooting = "100.00 20.00\n";
const char* const kStarted = "Current Uptime=200";
const char* const kWaiting = "Need to wait for wait time=80";
const char* const kTickZeroEnd = "Error while running MemoryUsageMonitor";
// The signal goes while tick 0 is held up reading proc/1234/stat, a FIFO.
const char* const kInside = "inside tick 0";

struct Row {
  const char* name;
  std::vector<std::string> args;
  const char* uptime;       // proc/uptime, or nullptr for none
  double tickZeroAt;        // seconds from the start to the end of tick 0; 0: not timed
  const char* signalAfter;  // message after which `signal` is sent, kInside, or nullptr
  int signal;
  int waitStatus;           // 0: exit status 0; a signal's number: ended by that signal
  const char* golden;
};

const Row kRows[] = {
    {"HelpPrintsUsageOnly", {"-h"}, kUp, 0, nullptr, 0, 0, "usage"},
    {"QuestionMarkPrintsUsageOnly", {"-?"}, kUp, 0, nullptr, 0, 0, "usage"},
    {"UnknownOptionPrintsUsageOnly", {"-x"}, kUp, 0, nullptr, 0, 0, "usage"},
    {"MissingArgumentPrintsUsageOnly", {"-t", "5", "-s"}, kUp, 0, nullptr, 0, 0, "usage"},
    {"NoOptionsKeepEachMonitorsInterval", {}, kUp, 0, kStarted, SIGTERM, 0, "no-options"},
    {"ZeroIntervalsMeanDefaults", {"-s", "0", "-t", "0"}, kUp, 0, kStarted, SIGTERM, 0, "defaults"},
    {"NonNumericSampleMeansDefault", {"-s", "abc"}, kUp, 0, kStarted, SIGTERM, 0, "defaults"},
    {"NonNumericTickMeansDefault", {"-t", "x1"}, kUp, 0, kStarted, SIGTERM, 0, "defaults"},
    {"GivenIntervalsAreUsed", {"-s", "7", "-t", "5"}, kUp, 0, kStarted, SIGTERM, 0, "s7-t5"},
    {"NegativeSampleIntervalWraps", {"-s", "-1"}, kUp, 0, kStarted, SIGTERM, 0, "s-minus-1"},
    {"TickNarrowedTo32BitsIsOneSecond", {"-t", "4294967297"}, kUp, 1.0, kTickZeroEnd, SIGTERM, 0,
     "t-4294967297"},
    {"SystemConfigurationSummarised", {}, kUp, 0, kStarted, SIGTERM, 0, "system-config"},
    {"UptimeZeroEndsAtOnce", {}, "0.00 0.00\n", 0, nullptr, 0, 0, "uptime-zero"},
    {"NoUptimeEndsAtOnce", {}, nullptr, 0, nullptr, 0, 0, "uptime-zero"},
    {"Uptime179WaitsOneSecond", {"-t", "1"}, "179.99 5.00\n", 2.0, kTickZeroEnd, SIGTERM, 0,
     "uptime-179"},
    {"Uptime180NoWaitSigtermBetweenTicks", {"-t", "1"}, "180.00 5.00\n", 1.0, kTickZeroEnd,
     SIGTERM, 0, "uptime-180"},
    {"SigintBetweenTicks", {"-t", "1"}, kUp, 0, kTickZeroEnd, SIGINT, 0, "sigint-between-ticks"},
    {"SigtermDuringBootWait", {}, kBooting, 0, kWaiting, SIGTERM, 0, "sigterm-boot-wait"},
    {"SigintDuringBootWait", {}, kBooting, 0, kWaiting, SIGINT, 0, "sigint-boot-wait"},
    {"SigtermInsideTickAwaitsItsEnd", {"-t", "1"}, kUp, 0, kInside, SIGTERM, 0, "sigterm-in-tick"},
    {"SigintInsideTickAwaitsItsEnd", {"-t", "1"}, kUp, 0, kInside, SIGINT, 0, "sigint-in-tick"},
    {"DetachedEndsOnSigterm", {"-d"}, kUp, 0, kStarted, SIGTERM, 0, "detached-sigterm"},
    {"DetachedIsKilledBySigint", {"-d"}, kUp, 0, kStarted, SIGINT, SIGINT, "detached-sigint"},
};

void PrintTo(const Row& row, std::ostream* os) { *os << row.name; }

std::string readFile(const std::string& path) {
  std::ifstream in(path);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

std::string logText(const std::vector<LogRecord>& records) {
  std::string text;
  for (const LogRecord& r : records) {
    const bool metrics = r.buffer == kMetricsLogBuffer;
    text += metrics ? "metrics " : r.buffer == kSystemLogBuffer ? "system " : "? ";
    text += std::string(1, "??VDIWEF"[r.priority & 7]) + " " + r.tag + ": ";
    for (char c : r.message) text += c == '\n' ? std::string("\\n") : std::string(1, c);
    text += '\n';
  }
  return text;
}

using DaemonBinaryTest = ::testing::TestWithParam<Row>;

TEST_P(DaemonBinaryTest, LogAndExitAsExpected) {
  const Row& row = GetParam();
  const bool detached = !row.args.empty() && row.args[0] == "-d";
  // User-mode emulation does not carry a process through daemon()'s fork (the
  // emulated child spins); detaching is the kernel's work, tested natively.
  if (detached && std::strlen(HALVEXD_EMULATOR) > 0) {
    GTEST_SKIP() << "no detaching under emulation";
  }
  testing::TempDir device;
  if (row.uptime != nullptr) device.write("proc/uptime", row.uptime);
  const std::string golden = kGoldenDir + row.golden;
  if (std::filesystem::exists(golden + ".json")) {
    device.write("system/system_ext/etc/halvex_config.json", readFile(golden + ".json"));
  }
  const std::string fifo = device.path() + "/proc/1234/stat";
  if (row.signalAfter == kInside) {
    ASSERT_TRUE(std::filesystem::create_directories(device.path() + "/proc/1234"));
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  }
  // Adopts the daemon that a -d launcher leaves behind. Only for those rows:
  // the emulator, which skips them, does not pass this call on.
  if (detached) {
    ASSERT_EQ(prctl(PR_SET_CHILD_SUBREAPER, 1), 0);
  }

  const auto start = Clock::now();
  testing::DaemonProcess daemon(row.args, {{"HALVEXD_SYSROOT", device.path()}},
                                device.path() + "/log.jsonl");
  ASSERT_GT(daemon.pid(), 0);
  if (detached) {
    ASSERT_EQ(daemon.waitForExit(), 0) << "the launcher exits with 0";
    ASSERT_TRUE(daemon.followDetached());
  }
  if (row.signalAfter == kInside) {
    // The daemon's open of the FIFO waits for a writer: once ours is open,
    // tick 0 is under way, and it stays so until ours closes (an empty file).
    int writer = -1;
    for (auto end = Clock::now() + std::chrono::seconds(5); writer < 0 && Clock::now() < end;) {
      writer = open(fifo.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
      if (writer < 0) std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    ASSERT_GE(writer, 0) << "tick 0 never read the process";
    kill(daemon.pid(), row.signal);
    close(writer);
  } else if (row.signalAfter != nullptr) {
    ASSERT_TRUE(daemon.waitForRecord(
        [&](const LogRecord& r) { return r.message == row.signalAfter; }));
    const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
    // Under emulation the daemon starts slowly: only the lower bound is sharp there.
    const double late = row.tickZeroAt + (std::strlen(HALVEXD_EMULATOR) > 0 ? 3 : 0.9);
    const bool onTime = seconds >= row.tickZeroAt && seconds < late;
    EXPECT_TRUE(row.tickZeroAt == 0 || onTime) << "tick 0 ended " << seconds << " s after start";
    kill(daemon.pid(), row.signal);
  }

  EXPECT_EQ(daemon.waitForExit(std::chrono::seconds(5)), row.waitStatus) << "wait status";
  const std::string log = logText(daemon.records());
  if (std::getenv("HALVEXD_GOLDEN_UPDATE") != nullptr) std::ofstream(golden + ".log") << log;
  EXPECT_EQ(readFile(golden + ".log"), log);
}

INSTANTIATE_TEST_SUITE_P(Rows, DaemonBinaryTest, ::testing::ValuesIn(kRows),
                         [](const ::testing::TestParamInfo<Row>& info) { return info.param.name; });

}  // namespace
}  // namespace halvexd
