// Runs the real daemon binary as a child process with the jsonl log, and
// reads back its records.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "tests/support/TestSupport.h"

namespace halvexd::testing {

// Parses a jsonl log file into records; lines that do not parse are skipped.
std::vector<LogRecord> readJsonlLog(const std::string& path);

class DaemonProcess {
 public:
  // `env` is added to (and overrides) the test's own environment, from which
  // every HALVEXD_* variable is removed first. The log goes to `logFile`.
  DaemonProcess(const std::vector<std::string>& args, const std::map<std::string, std::string>& env,
                const std::string& logFile);
  ~DaemonProcess();
  DaemonProcess(const DaemonProcess&) = delete;
  DaemonProcess& operator=(const DaemonProcess&) = delete;

  pid_t pid() const { return child; }
  std::vector<LogRecord> records() const { return readJsonlLog(log); }

  // Polls the log until a record satisfies `match`; false on time-out.
  bool waitForRecord(const std::function<bool(const LogRecord&)>& match,
                     std::chrono::milliseconds timeout = std::chrono::seconds(10)) const;
  bool waitForMessage(const std::string& message,
                      std::chrono::milliseconds timeout = std::chrono::seconds(10)) const;

  // Waits for the spawned process to end; returns its wait status, or -1
  // after killing it on time-out.
  int waitForExit(std::chrono::milliseconds timeout = std::chrono::seconds(10));

 private:
  pid_t child = -1;
  bool reaped = false;
  std::string log;
};

// Pid of a live process whose environment holds `marker` (NAME=value), or
// -1. Finds a daemon that detached from the process the test spawned.
pid_t findProcessWithEnv(const std::string& marker);

// Waits until process `pid` no longer exists (it is not our child).
bool waitForProcessGone(pid_t pid, std::chrono::milliseconds timeout);

}  // namespace halvexd::testing
