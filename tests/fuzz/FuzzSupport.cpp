#include "tests/fuzz/FuzzSupport.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <cstdlib>
#include <filesystem>

#include "platform/Sysroot.h"

namespace halvexd::fuzz {

const std::string kDeviceTail =
    ",_softwareVersion=;SY,_deviceType=;SY,_platform=;SY,_model=;SY,_buildType=;SY,"
    "_marketPlaceId=;SY,_countryOfResidence=;SY,_deviceLanguage=;SY,_otaGroupName=;SY,"
    "_timeZone=;SY,_deviceId=;SY,_customerId=;SY,_hardware=;SY";

ScratchDevice& ScratchDevice::instance() {
  static ScratchDevice device;
  return device;
}

ScratchDevice::ScratchDevice() {
  // Every input is written to files: a memory-backed directory keeps that
  // cheap where there is one.
  const char* tmp = std::getenv("TMPDIR");
  std::string base = tmp != nullptr && tmp[0] != '\0' ? tmp : "/tmp";
  if ((tmp == nullptr || tmp[0] == '\0') && access("/dev/shm", W_OK) == 0) base = "/dev/shm";
  std::string pattern = base + "/halvexd-fuzz-XXXXXX";
  if (mkdtemp(pattern.data()) == nullptr) {
    std::perror("mkdtemp");
    std::abort();
  }
  rootDir = pattern;
  setSysroot(rootDir);
}

ScratchDevice::~ScratchDevice() {
  std::error_code ignored;
  std::filesystem::remove_all(rootDir, ignored);
}

void ScratchDevice::write(const std::string& devicePath, const uint8_t* data, size_t size) const {
  std::filesystem::path file = rootDir + devicePath;
  std::error_code ignored;
  std::filesystem::create_directories(file.parent_path(), ignored);
  int fd = open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  check(fd >= 0, "cannot write " + file.string());
  size_t done = 0;
  while (done < size) {
    ssize_t n = ::write(fd, data + done, size - done);
    check(n > 0, "short write to " + file.string());
    done += static_cast<size_t>(n);
  }
  close(fd);
}

void ScratchDevice::write(const std::string& devicePath, const std::string& text) const {
  write(devicePath, reinterpret_cast<const uint8_t*>(text.data()), text.size());
}

void ScratchDevice::remove(const std::string& devicePath) const {
  unlink((rootDir + devicePath).c_str());
}

LogSink::LogSink() {
  hostlog::setRecordHookForTesting(
      [this](const hostlog::LogRecord& record) { captured.push_back(record); });
}

LogSink::~LogSink() {
  hostlog::setRecordHookForTesting(nullptr);
}

std::vector<std::string> LogSink::metricMessages() const {
  std::vector<std::string> out;
  for (const auto& record : captured) {
    if (record.buffer == 8) out.push_back(record.message);
  }
  return out;
}

size_t LogSink::count(const std::string& message) const {
  size_t n = 0;
  for (const auto& record : captured) {
    if (record.message == message) ++n;
  }
  return n;
}

uint8_t ByteReader::byte() {
  if (left == 0) return 0;
  --left;
  return *next++;
}

uint64_t ByteReader::number() {
  uint64_t value = 0;
  for (int i = 0; i < 8; ++i) value = (value << 8) | byte();
  return value;
}

static double readerReal(uint64_t bits) {
  double value;
  static_assert(sizeof(value) == sizeof(bits), "double is 64 bits");
  std::memcpy(&value, &bits, sizeof(value));
  return value;
}

double ByteReader::real() {
  return readerReal(number());
}

std::string ByteReader::text(size_t maxLength) {
  size_t length = byte() % (maxLength + 1);
  length = std::min(length, left);
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

void check(bool condition, const char* what) {
  if (!condition) {
    std::fprintf(stderr, "fuzz check failed: %s\n", what);
    std::abort();
  }
}

void check(bool condition, const std::string& what) {
  check(condition, what.c_str());
}

bool endsWith(const std::string& text, const std::string& suffix) {
  return text.size() >= suffix.size() &&
         text.compare(text.size() - suffix.size(), suffix.size(), suffix) == 0;
}

bool startsWith(const std::string& text, const std::string& prefix) {
  return text.compare(0, prefix.size(), prefix) == 0;
}

void checkPlainRecord(const std::string& record, const std::string& prefix,
                      const std::string& publishName, size_t entries) {
  const std::string head = prefix + ":" + publishName + ":";
  check(startsWith(record, head), "plain record does not start with its prefix: " + record);
  check(endsWith(record, ":NR"), "plain record cut short: " + record);
  check(record.size() >= head.size() + 3, "plain record without entries: " + record);
  std::string body = record.substr(head.size(), record.size() - head.size() - 3);
  // Split on the entry terminator; each piece is "<name>=<value>".
  const std::string terminator = ";CT;1";
  size_t found = 0;
  size_t start = 0;
  while (start < body.size()) {
    size_t end = body.find(terminator, start);
    check(end != std::string::npos, "plain entry without its terminator: " + record);
    std::string entry = body.substr(start, end - start);
    check(entry.find(':') == std::string::npos && entry.find(';') == std::string::npos,
          "separator inside a plain entry: " + record);
    check(entry.find('=') != std::string::npos, "plain entry without '=': " + record);
    ++found;
    start = end + terminator.size();
    if (start < body.size()) {
      check(body[start] == ',', "plain entries not joined by ',': " + record);
      ++start;
      check(start < body.size(), "trailing ',' after the last plain entry: " + record);
    }
  }
  check(found == entries, "plain record holds " + std::to_string(found) + " entries, expected " +
                              std::to_string(entries) + ": " + record);
}

void checkStructuredRecord(const std::string& record, const std::string& header,
                           const std::string& region) {
  check(startsWith(record, header), "structured record with a wrong header: " + record);
  const std::string tail = kDeviceTail + (region.empty() ? "" : ":" + region);
  check(endsWith(record, tail), "structured record cut short: " + record);
  check(record.size() > header.size() + tail.size(), "structured record without a body: " + record);
}

}  // namespace halvexd::fuzz
