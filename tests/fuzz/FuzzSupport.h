// Shared by the fuzz targets: one scratch device tree per process, typed
// values taken off the input, and the check whose crash keeps the input.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "tests/support/TestSupport.h"

namespace halvexd::fuzz {

// Set as the sysroot for the life of the process; write() takes device paths
// without their leading '/'.
inline const testing::TempDir& scratchDevice() {
  static testing::TempDir device;
  static testing::ScopedSysroot root(device.path());
  return device;
}

inline void removeDeviceFile(const std::string& path) {
  std::remove((scratchDevice().path() + "/" + path).c_str());
}

inline void check(bool condition, const std::string& what) {
  if (!condition) {
    std::fprintf(stderr, "fuzz check failed: %s\n", what.c_str());
    std::abort();
  }
}

// Once the input runs dry every value is zero or empty.
class ByteReader {
 public:
  ByteReader(const uint8_t* data, size_t size) : next(data), left(size) {}
  bool empty() const { return left == 0; }
  uint8_t byte() { return left == 0 ? 0 : (--left, *next++); }
  bool flag() { return (byte() & 1) != 0; }
  uint64_t number() {  // eight bytes, big-endian
    uint64_t value = 0;
    for (int i = 0; i < 8; ++i) value = (value << 8) | byte();
    return value;
  }
  double real() {  // the bits of number()
    uint64_t bits = number();
    double value;
    std::memcpy(&value, &bits, sizeof(value));
    return value;
  }
  std::string text(size_t maxLength) { return take(std::min<size_t>(byte() % (maxLength + 1), left)); }
  std::string rest() { return take(left); }

 private:
  std::string take(size_t length) {
    std::string out(reinterpret_cast<const char*>(next), length);
    next += length;
    left -= length;
    return out;
  }
  const uint8_t* next;
  size_t left;
};

}  // namespace halvexd::fuzz
