#include "tests/fuzz/FuzzSupport.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "platform/Sysroot.h"

namespace halvexd::fuzz {

ScratchDevice& ScratchDevice::instance() {
  static ScratchDevice device;
  return device;
}

ScratchDevice::ScratchDevice() {
  const char* tmp = std::getenv("TMPDIR");
  std::string base = tmp != nullptr && tmp[0] != '\0' ? tmp
                     : access("/dev/shm", W_OK) == 0  ? "/dev/shm"
                                                      : "/tmp";
  std::string pattern = base + "/halvexd-fuzz-XXXXXX";
  check(mkdtemp(pattern.data()) != nullptr, "cannot make a scratch device under " + base);
  root = pattern;
  setSysroot(root);
}

ScratchDevice::~ScratchDevice() {
  std::error_code ignored;
  std::filesystem::remove_all(root, ignored);
}


void ScratchDevice::write(const std::string& devicePath, const std::string& text) const {
  std::filesystem::path file = root + devicePath;
  std::error_code ignored;
  std::filesystem::create_directories(file.parent_path(), ignored);
  std::ofstream out(file, std::ios::binary | std::ios::trunc);
  out.write(text.data(), static_cast<std::streamsize>(text.size()));
  check(out.good(), "cannot write " + file.string());
}

void ScratchDevice::remove(const std::string& devicePath) const { unlink((root + devicePath).c_str()); }

LogSink::LogSink() {
  hostlog::setRecordHookForTesting([this](const hostlog::LogRecord& r) { records.push_back(r); });
}

LogSink::~LogSink() { hostlog::setRecordHookForTesting(nullptr); }

std::vector<std::string> LogSink::metricMessages() const {
  std::vector<std::string> out;
  for (const auto& record : records) {
    if (record.buffer == 8) out.push_back(record.message);
  }
  return out;
}

uint8_t ByteReader::byte() { return left == 0 ? 0 : (--left, *next++); }

uint64_t ByteReader::number() {
  uint64_t value = 0;
  for (int i = 0; i < 8; ++i) value = (value << 8) | byte();
  return value;
}

double ByteReader::real() {
  uint64_t bits = number();
  double value;
  std::memcpy(&value, &bits, sizeof(value));
  return value;
}

std::string ByteReader::text(size_t maxLength) {
  size_t length = std::min<size_t>(byte() % (maxLength + 1), left);
  std::string out(reinterpret_cast<const char*>(next), length);
  next += length;
  left -= length;
  return out;
}

std::string ByteReader::rest() {
  std::string out(reinterpret_cast<const char*>(next), left);
  next += left;
  left = 0;
  return out;
}

void check(bool condition, const std::string& what) {
  if (!condition) {
    std::fprintf(stderr, "fuzz check failed: %s\n", what.c_str());
    std::abort();
  }
}

}  // namespace halvexd::fuzz
