// Shared by the fuzz targets: a scratch device tree that every reader sees
// through the sysroot, a log sink that keeps records in memory instead of
// printing them, and the checks that turn a broken promise into a crash
// libFuzzer reports.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "platform/host/HostLog.h"

namespace halvexd::fuzz {

// One device tree per fuzzing process, created on first use under $TMPDIR
// (or /dev/shm, else /tmp) and set as the sysroot; removed at exit.
class ScratchDevice {
 public:
  static ScratchDevice& instance();

  const std::string& root() const { return rootDir; }
  // Writes `size` bytes to the device path `devicePath` (absolute), creating
  // the directories on the way.
  void write(const std::string& devicePath, const uint8_t* data, size_t size) const;
  void write(const std::string& devicePath, const std::string& text) const;
  // Removes the file at `devicePath` if it exists.
  void remove(const std::string& devicePath) const;

 private:
  ScratchDevice();
  ~ScratchDevice();
  std::string rootDir;
};

// Collects every log record while it lives; nothing reaches stderr.
class LogSink {
 public:
  LogSink();
  ~LogSink();
  LogSink(const LogSink&) = delete;
  LogSink& operator=(const LogSink&) = delete;

  const std::vector<hostlog::LogRecord>& records() const { return captured; }
  std::vector<std::string> metricMessages() const;
  size_t count(const std::string& message) const;
  void clear() { captured.clear(); }

 private:
  std::vector<hostlog::LogRecord> captured;
};

// Takes typed values off the front of a fuzz input; once it runs dry every
// value is zero or empty.
class ByteReader {
 public:
  ByteReader(const uint8_t* data, size_t size) : next(data), left(size) {}

  bool empty() const { return left == 0; }
  uint8_t byte();
  bool flag() { return (byte() & 1) != 0; }
  uint64_t number();
  double real();
  // A string of up to `maxLength` bytes: its length comes first.
  std::string text(size_t maxLength);
  // Everything that is left.
  std::string rest();

 private:
  const uint8_t* next;
  size_t left;
};

// Aborts with the message when `condition` is false: libFuzzer keeps the
// input that got there.
void check(bool condition, const char* what);
void check(bool condition, const std::string& what);

bool endsWith(const std::string& text, const std::string& suffix);
bool startsWith(const std::string& text, const std::string& prefix);

// The device fields every structured record ends with, written empty.
extern const std::string kDeviceTail;

// A plain record is "<prefix>:<publish name>:<entries>:NR" whose entries are
// "<name>=<value>;CT;1" joined by ","; names carry no ':' or ';'. Aborts
// unless `record` is that, with exactly `entries` entries.
void checkPlainRecord(const std::string& record, const std::string& prefix,
                      const std::string& publishName, size_t entries);

// A structured record starts with "<group>:<schema>:100:" and ends with the
// device fields and, when a region is set, ":<region>". Aborts otherwise.
void checkStructuredRecord(const std::string& record, const std::string& header,
                           const std::string& region);

}  // namespace halvexd::fuzz
