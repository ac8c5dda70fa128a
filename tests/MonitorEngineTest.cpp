#include "daemon/MonitorEngine.h"

#include <gtest/gtest.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <csignal>
#include <functional>

#include "platform/LogBuffers.h"
#include "tests/support/TestSupport.h"

namespace halvexd {
namespace {

using testing::LogCapture;
using testing::LogRecord;
using testing::ScopedSysroot;
using testing::TempDir;

constexpr const char* kTag = "halvexd:MonitorEngine";

LogRecord engineInfo(const std::string& message) {
  return {kSystemLogBuffer, ANDROID_LOG_INFO, kTag, message};
}

// Stands in for the signal descriptor: a pipe into which a test writes what
// signalfd would deliver.
class FakeSignalFd {
 public:
  FakeSignalFd() { EXPECT_EQ(pipe(fds), 0); }
  ~FakeSignalFd() {
    close(fds[0]);
    close(fds[1]);
  }
  int readEnd() const { return fds[0]; }
  void deliver(int signal) const {
    signalfd_siginfo info{};
    info.ssi_signo = static_cast<uint32_t>(signal);
    ASSERT_EQ(write(fds[1], &info, sizeof(info)), static_cast<ssize_t>(sizeof(info)));
  }
  void deliverBytes(size_t count) const {
    std::string partial(count, '\0');
    ASSERT_EQ(write(fds[1], partial.data(), count), static_cast<ssize_t>(count));
  }

 private:
  int fds[2] = {-1, -1};
};

// Records the ticks it is called on; its behaviour per tick is the test's.
class ScriptedMonitor : public MonitorInterface {
 public:
  ScriptedMonitor(const std::string& monitorName, std::function<bool(unsigned long)> onCheck)
      : script(std::move(onCheck)) {
    name = monitorName;
  }
  bool init() override { return true; }
  bool check(unsigned long tick, bool force) override {
    ticks.push_back(tick);
    forced = forced || force;
    return script(tick);
  }
  void log() override {}

  std::vector<unsigned long> ticks;
  bool forced = false;

 private:
  std::function<bool(unsigned long)> script;
};

class MonitorEngineTest : public ::testing::Test {
 protected:
  void useUptimeFile(const std::string& contents) { root.write("proc/uptime", contents); }

  TempDir root;
  ScopedSysroot sysroot{root.path()};
  FakeSignalFd signals;
  MonitorEngine engine;
};

TEST_F(MonitorEngineTest, CallsMonitorsInOrderEveryTickUntilSignal) {
  useUptimeFile("200.00 10.00\n");
  std::vector<std::string> calls;
  ScriptedMonitor first("First", [&](unsigned long) {
    calls.push_back("First");
    return true;
  });
  ScriptedMonitor failing("Failing", [&](unsigned long) {
    calls.push_back("Failing");
    return false;
  });
  ScriptedMonitor last("Last", [&](unsigned long tick) {
    calls.push_back("Last");
    if (tick == 2) signals.deliver(SIGTERM);
    return true;
  });
  engine.setSignalFd(signals.readEnd());
  engine.setIntervalPerTick(0);  // every select times out at once: one tick per pass
  engine.addMonitor(&first);
  engine.addMonitor(&failing);
  engine.addMonitor(&last);

  LogCapture capture;
  engine.runMonitors();

  EXPECT_EQ(first.ticks, (std::vector<unsigned long>{0, 1, 2}));
  EXPECT_EQ(last.ticks, (std::vector<unsigned long>{0, 1, 2}));
  EXPECT_FALSE(first.forced);
  std::vector<std::string> onePass{"First", "Failing", "Last"};
  std::vector<std::string> threePasses;
  for (int i = 0; i < 3; ++i) threePasses.insert(threePasses.end(), onePass.begin(), onePass.end());
  EXPECT_EQ(calls, threePasses);

  LogRecord failure{kSystemLogBuffer, ANDROID_LOG_ERROR, kTag, "Error while running Failing"};
  EXPECT_EQ(capture.records(),
            (std::vector<LogRecord>{engineInfo("Current Uptime=200"), failure, failure, failure,
                                    engineInfo("Received signal 15")}));
}

TEST_F(MonitorEngineTest, TickCounterKeepsCountingAcrossPasses) {
  useUptimeFile("4000.5 1.0\n");
  ScriptedMonitor monitor("Counter", [&](unsigned long tick) {
    if (tick == 99) signals.deliver(SIGINT);
    return true;
  });
  engine.setSignalFd(signals.readEnd());
  engine.setIntervalPerTick(0);
  engine.addMonitor(&monitor);

  LogCapture capture;
  engine.runMonitors();

  ASSERT_EQ(monitor.ticks.size(), 100u);
  for (unsigned long i = 0; i < monitor.ticks.size(); ++i) EXPECT_EQ(monitor.ticks[i], i);
  EXPECT_EQ(capture.records().back(), engineInfo("Received signal 2"));
}

TEST_F(MonitorEngineTest, UnreadableUptimeStopsBeforeAnyTick) {
  // No proc/uptime in the tree at all.
  ScriptedMonitor monitor("Never", [](unsigned long) { return true; });
  engine.setSignalFd(signals.readEnd());
  engine.addMonitor(&monitor);

  LogCapture capture;
  engine.runMonitors();

  EXPECT_TRUE(monitor.ticks.empty());
  EXPECT_EQ(capture.records(), (std::vector<LogRecord>{engineInfo("Current Uptime=0"),
                                                       engineInfo("getUpTime failed to get uptime 0\n")}));
}

TEST_F(MonitorEngineTest, SignalDuringBootWaitEndsEngineBeforeAnyMonitorRuns) {
  // 100 s up: the engine would wait 80 s, but the signal is already pending,
  // so the wait ends at once and the first loop select reports it.
  useUptimeFile("100.20 50.00\n");
  ScriptedMonitor monitor("Never", [](unsigned long) { return true; });
  engine.setSignalFd(signals.readEnd());
  engine.setIntervalPerTick(30);
  engine.addMonitor(&monitor);
  signals.deliver(SIGTERM);

  LogCapture capture;
  engine.runMonitors();

  EXPECT_TRUE(monitor.ticks.empty());
  EXPECT_EQ(capture.records(),
            (std::vector<LogRecord>{engineInfo("Current Uptime=100"),
                                    engineInfo("Need to wait for wait time=80"),
                                    engineInfo("Received signal 15")}));
}

TEST_F(MonitorEngineTest, BootWaitOnlyBelowOneHundredEightySeconds) {
  struct Case {
    const char* uptime;
    std::vector<LogRecord> expected;
  };
  const Case cases[] = {
      {"179.99 1\n", {engineInfo("Current Uptime=179"), engineInfo("Need to wait for wait time=1"),
                      engineInfo("Received signal 15")}},
      {"180.00 1\n", {engineInfo("Current Uptime=180"), engineInfo("Received signal 15")}},
      {"1 1\n", {engineInfo("Current Uptime=1"), engineInfo("Need to wait for wait time=179"),
                 engineInfo("Received signal 15")}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.uptime);
    useUptimeFile(c.uptime);
    MonitorEngine fresh;
    fresh.setSignalFd(signals.readEnd());
    signals.deliver(SIGTERM);
    LogCapture capture;
    fresh.runMonitors();
    EXPECT_EQ(capture.records(), c.expected);
  }
}

TEST_F(MonitorEngineTest, ShortSignalRecordEndsLoopSilently) {
  useUptimeFile("500 1\n");
  ScriptedMonitor monitor("Never", [](unsigned long) { return true; });
  engine.setSignalFd(signals.readEnd());
  engine.setIntervalPerTick(30);
  engine.addMonitor(&monitor);
  signals.deliverBytes(sizeof(signalfd_siginfo) - 1);

  LogCapture capture;
  engine.runMonitors();

  EXPECT_TRUE(monitor.ticks.empty());
  EXPECT_EQ(capture.records(), (std::vector<LogRecord>{engineInfo("Current Uptime=500")}));
}

}  // namespace
}  // namespace halvexd
