// Shared by the fuzz targets: a scratch device tree every reader sees through
// the sysroot, a sink that keeps log records instead of printing them, typed
// values taken off the input, and the check whose crash keeps the input.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "platform/host/HostLog.h"

namespace halvexd::fuzz {

// Made on first use under $TMPDIR (else /dev/shm, else /tmp), removed at exit.
class ScratchDevice {
 public:
  static ScratchDevice& instance();
  void write(const std::string& devicePath, const std::string& text) const;
  void remove(const std::string& devicePath) const;

 private:
  ScratchDevice();
  ~ScratchDevice();
  std::string root;
};

struct LogSink {
  LogSink();
  ~LogSink();
  std::vector<hostlog::LogRecord> records;
  std::vector<std::string> metricMessages() const;
};

// Once the input runs dry every value is zero or empty.
class ByteReader {
 public:
  ByteReader(const uint8_t* data, size_t size) : next(data), left(size) {}
  bool empty() const { return left == 0; }
  uint8_t byte();
  bool flag() { return (byte() & 1) != 0; }
  uint64_t number();                   // eight bytes, big-endian
  double real();                       // the bits of number()
  std::string text(size_t maxLength);  // its length byte first
  std::string rest();

 private:
  const uint8_t* next;
  size_t left;
};

// Aborts with `what` when `condition` is false.
void check(bool condition, const std::string& what);

}  // namespace halvexd::fuzz
