// A capture of every log record, scoped environment and sysroot, fixture paths, temporary trees.
#pragma once

#include <iosfwd>
#include <string>
#include <vector>

#include "platform/host/HostLog.h"

namespace halvexd::hostlog {

// Found by argument lookup, so gtest can compare and print records.
bool operator==(const LogRecord& a, const LogRecord& b);
void PrintTo(const LogRecord& record, std::ostream* os);

}  // namespace halvexd::hostlog

namespace halvexd::testing {

using hostlog::LogRecord;

class LogCapture {
 public:
  LogCapture();
  ~LogCapture();
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  const std::vector<LogRecord>& records() const { return captured; }
  // Records of the metrics buffer, in order.
  std::vector<LogRecord> metricRecords() const;
  void clear() { captured.clear(); }

 private:
  std::vector<LogRecord> captured;
};

// Sets an environment variable for the life of the object and restores the
// earlier value (or its absence) afterwards.
class ScopedEnv {
 public:
  ScopedEnv(const char* name, const std::string& value);
  ~ScopedEnv();
  ScopedEnv(const ScopedEnv&) = delete;
  ScopedEnv& operator=(const ScopedEnv&) = delete;

 private:
  std::string variable;
  bool hadValue;
  std::string previous;
};

// Points in-process readers at the device tree `root` for the life of the
// object (through setSysroot) and restores the earlier root afterwards. Only
// a test that starts the daemon binary sets HALVEXD_SYSROOT instead.
class ScopedSysroot {
 public:
  explicit ScopedSysroot(const std::string& root);
  ~ScopedSysroot();
  ScopedSysroot(const ScopedSysroot&) = delete;
  ScopedSysroot& operator=(const ScopedSysroot&) = delete;

 private:
  std::string previous;
};

// Absolute path of a committed fixture tree or file under tests/fixtures.
std::string fixturePath(const std::string& relative);

// A fresh empty directory under the system temp dir, removed with its
// contents when the object goes.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::string& path() const { return root; }
  // Writes `contents` to `relative` under the directory, creating parents.
  std::string write(const std::string& relative, const std::string& contents) const;

 private:
  std::string root;
};

}  // namespace halvexd::testing
