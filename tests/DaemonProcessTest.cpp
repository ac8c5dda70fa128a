// The real daemon binary, run over a fixture device tree with the jsonl log.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>

#include <cstring>
#include <thread>

#include "platform/LogBuffers.h"
#include "tests/support/DaemonProcess.h"
#include "tests/support/TestSupport.h"

namespace halvexd {
namespace {

using testing::DaemonProcess;
using testing::LogRecord;
using testing::TempDir;

constexpr const char* kTag = "halvexd";

LogRecord info(const std::string& message) {
  return {kSystemLogBuffer, ANDROID_LOG_INFO, kTag, message};
}

const std::vector<LogRecord> kUsage = {
    info("Usage: halvexd [-d]\n"),
    info(" -d                  Run in the background.\n"),
    info(" -s sample_interval  In number of ticks and must be >0 default=120\n"),
    info(" -t tick_interval    Interval per tick in seconds and must >0 default=30\n"),
};

// What a device without any configuration file logs before the start line.
const std::vector<LogRecord> kNoConfigLines = {
    info("Load JSON config\n\n"),
    {kSystemLogBuffer, ANDROID_LOG_ERROR, kTag,
     "root_json is null /system/system_ext/etc/halvex_config.json, malformed json file?\n"},
    {kSystemLogBuffer, ANDROID_LOG_ERROR, kTag, "Could not parse config file\n"},
    info("Load JSON config done\n"),
    {kSystemLogBuffer, ANDROID_LOG_WARN, kTag, "WARN: Failed to load config file"},
};

LogRecord startLine(const std::string& sample, const std::string& tick) {
  return info("Starting daemon\nSample interval = " + sample + " ticks\nTime per tick = " + tick +
              " sec");
}

LogRecord engineInfo(const std::string& message) {
  return {kSystemLogBuffer, ANDROID_LOG_INFO, "halvexd:MonitorEngine", message};
}

bool isEngineUp(const LogRecord& record) {
  return record.tag == "halvexd:MonitorEngine" && record.message.rfind("Current Uptime=", 0) == 0;
}

class DaemonProcessTest : public ::testing::Test {
 protected:
  // A device tree holding only an uptime: no configuration, no monitors'
  // files.
  std::map<std::string, std::string> deviceWithUptime(const std::string& uptime) {
    device.write("proc/uptime", uptime);
    return {{"HALVEXD_SYSROOT", device.path()}};
  }
  std::string logFile() const { return scratch.path() + "/log.jsonl"; }

  TempDir device;
  TempDir scratch;
};

TEST_F(DaemonProcessTest, UsageRequestsPrintFourLinesAndExitWithoutExiting) {
  for (const char* option : {"-h", "-?", "-x", "-s"}) {
    SCOPED_TRACE(option);
    std::remove(logFile().c_str());
    DaemonProcess daemon({option}, deviceWithUptime("200.0 1.0\n"), logFile());
    int status = daemon.waitForExit();
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
    EXPECT_EQ(daemon.records(), kUsage);
  }
}

TEST_F(DaemonProcessTest, SigtermBetweenTicksEndsWithSignalAndExiting) {
  DaemonProcess daemon({"-t", "1"}, deviceWithUptime("200.43 1523.11\n"), logFile());
  ASSERT_TRUE(daemon.waitForRecord(isEngineUp));
  std::this_thread::sleep_for(std::chrono::milliseconds(1500));  // past the first tick
  kill(daemon.pid(), SIGTERM);
  int status = daemon.waitForExit();
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0);

  std::vector<LogRecord> records = daemon.records();
  std::vector<LogRecord> expectedStart = kNoConfigLines;
  expectedStart.push_back(startLine("120", "1"));
  ASSERT_GT(records.size(), expectedStart.size());
  EXPECT_EQ(std::vector<LogRecord>(records.begin(), records.begin() + expectedStart.size()),
            expectedStart);
  EXPECT_EQ(records.back(), info("Exiting"));

  // One tick passed: the usage monitors, which sample every tick, found
  // nothing to read in a tree that holds only an uptime.
  std::vector<LogRecord> engineLines;
  for (const auto& record : records) {
    if (record.tag == "halvexd:MonitorEngine") engineLines.push_back(record);
  }
  LogRecord failed{kSystemLogBuffer, ANDROID_LOG_ERROR, "halvexd:MonitorEngine", ""};
  auto failure = [&](const char* monitor) {
    failed.message = std::string("Error while running ") + monitor;
    return failed;
  };
  EXPECT_EQ(engineLines, (std::vector<LogRecord>{engineInfo("Current Uptime=200"),
                                                 failure("CpuUsageMonitor"),
                                                 failure("MemoryUsageMonitor"),
                                                 engineInfo("Received signal 15")}));
}

TEST_F(DaemonProcessTest, SignalDuringBootWaitEndsWithoutWaiting) {
  struct Case {
    int signal;
    const char* received;
  };
  for (const Case& c : {Case{SIGTERM, "Received signal 15"}, Case{SIGINT, "Received signal 2"}}) {
    SCOPED_TRACE(c.received);
    std::remove(logFile().c_str());
    DaemonProcess daemon({}, deviceWithUptime("100.00 20.00\n"), logFile());
    ASSERT_TRUE(daemon.waitForMessage("Need to wait for wait time=80"));
    kill(daemon.pid(), c.signal);
    int status = daemon.waitForExit(std::chrono::seconds(5));
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
    std::vector<LogRecord> records = daemon.records();
    ASSERT_GE(records.size(), 3u);
    EXPECT_EQ(std::vector<LogRecord>(records.end() - 3, records.end()),
              (std::vector<LogRecord>{engineInfo("Need to wait for wait time=80"),
                                      engineInfo(c.received), info("Exiting")}));
  }
}

TEST_F(DaemonProcessTest, IntervalsFallBackOnlyOnZero) {
  struct Case {
    std::vector<std::string> args;
    LogRecord expected;
  };
  const Case cases[] = {
      {{}, startLine("120", "30")},
      {{"-s", "0", "-t", "0"}, startLine("120", "30")},
      {{"-s", "abc", "-t", "x1"}, startLine("120", "30")},
      {{"-s", "7", "-t", "5"}, startLine("7", "5")},
      {{"-s", "-1"}, startLine("18446744073709551615", "30")},
      {{"-t", "4294967297"}, startLine("120", "4294967297")},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.expected.message);
    std::remove(logFile().c_str());
    DaemonProcess daemon(c.args, deviceWithUptime("200.0 1.0\n"), logFile());
    ASSERT_TRUE(daemon.waitForRecord(isEngineUp));
    kill(daemon.pid(), SIGTERM);
    int status = daemon.waitForExit();
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    std::vector<LogRecord> records = daemon.records();
    ASSERT_GT(records.size(), kNoConfigLines.size());
    EXPECT_EQ(records[kNoConfigLines.size()], c.expected);
  }
}

TEST_F(DaemonProcessTest, UnreadableUptimeEndsTheDaemonAtOnce) {
  DaemonProcess daemon({}, {{"HALVEXD_SYSROOT", device.path()}}, logFile());
  int status = daemon.waitForExit();
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0);
  std::vector<LogRecord> records = daemon.records();
  ASSERT_GE(records.size(), 3u);
  EXPECT_EQ(std::vector<LogRecord>(records.end() - 3, records.end()),
            (std::vector<LogRecord>{engineInfo("Current Uptime=0"),
                                    engineInfo("getUpTime failed to get uptime 0\n"),
                                    info("Exiting")}));
}

// With -d the daemon detaches: the process we started returns at once and
// the daemon lives on under another pid, found by a marker in its
// environment.
class DetachedDaemonTest : public DaemonProcessTest {
 protected:
  void SetUp() override {
    // User-mode emulation does not carry a process through daemon()'s fork
    // (the emulated child spins); detaching is the kernel's work, the same on
    // every architecture, and is tested in the native build.
    if (std::strlen(HALVEXD_EMULATOR) > 0) GTEST_SKIP() << "detaching is not tested under emulation";
  }

  pid_t startDetached() {
    auto env = deviceWithUptime("200.0 1.0\n");
    env["HALVEXD_TEST_MARKER"] = device.path();
    DaemonProcess launcher({"-d"}, env, logFile());
    int status = launcher.waitForExit();
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    EXPECT_TRUE(launcher.waitForRecord(isEngineUp));
    return testing::findProcessWithEnv("HALVEXD_TEST_MARKER=" + device.path());
  }
};

TEST_F(DetachedDaemonTest, SigtermStillEndsThroughTheEngine) {
  pid_t daemon = startDetached();
  ASSERT_GT(daemon, 0);
  kill(daemon, SIGTERM);
  ASSERT_TRUE(testing::waitForProcessGone(daemon, std::chrono::seconds(10)));

  std::vector<LogRecord> records = testing::readJsonlLog(logFile());
  ASSERT_GE(records.size(), 4u);
  EXPECT_EQ(records[kNoConfigLines.size()], startLine("120", "30"));
  EXPECT_EQ(std::vector<LogRecord>(records.end() - 3, records.end()),
            (std::vector<LogRecord>{engineInfo("Current Uptime=200"),
                                    engineInfo("Received signal 15"), info("Exiting")}));
}

TEST_F(DetachedDaemonTest, SigintKillsTheDetachedDaemonDirectly) {
  pid_t daemon = startDetached();
  ASSERT_GT(daemon, 0);
  kill(daemon, SIGINT);
  ASSERT_TRUE(testing::waitForProcessGone(daemon, std::chrono::seconds(10)));

  std::vector<LogRecord> records = testing::readJsonlLog(logFile());
  ASSERT_FALSE(records.empty());
  EXPECT_EQ(records.back(), engineInfo("Current Uptime=200"));
}

}  // namespace
}  // namespace halvexd
