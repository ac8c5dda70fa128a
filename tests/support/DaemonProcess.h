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

class DaemonProcess {
 public:
  // `env` is added to the test's own environment less its HALVEXD_* variables.
  DaemonProcess(const std::vector<std::string>& args, const std::map<std::string, std::string>& env,
                const std::string& logFile);
  ~DaemonProcess();  // kills the process if it still runs
  DaemonProcess(const DaemonProcess&) = delete;
  DaemonProcess& operator=(const DaemonProcess&) = delete;

  pid_t pid() const { return child; }
  // The log's records; a line that is not one whole record comes back as a
  // record of buffer -1 holding the line.
  std::vector<LogRecord> records() const;
  // Polls the log until a record satisfies `match`; false on time-out.
  bool waitForRecord(const std::function<bool(const LogRecord&)>& match,
                     std::chrono::milliseconds timeout = std::chrono::seconds(10)) const;
  // The wait status; on time-out the process is killed first.
  int waitForExit(std::chrono::milliseconds timeout = std::chrono::seconds(10));
  // After a -d launcher has exited, follows the daemon the test (a child
  // subreaper) adopted, found in /proc/self/task/<tid>/children; false if none.
  bool followDetached();

 private:
  pid_t child = -1;
  bool reaped = false;
  std::string log;
};

}  // namespace halvexd::testing
