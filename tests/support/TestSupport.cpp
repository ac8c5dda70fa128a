#include "tests/support/TestSupport.h"

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <ostream>
#include <stdexcept>

#include "platform/LogBuffers.h"
#include "platform/Sysroot.h"

namespace halvexd::hostlog {

bool operator==(const LogRecord& a, const LogRecord& b) {
  return a.buffer == b.buffer && a.priority == b.priority && a.tag == b.tag &&
         a.message == b.message;
}

void PrintTo(const LogRecord& record, std::ostream* os) {
  *os << "{buf " << record.buffer << ", prio " << record.priority << ", \"" << record.tag
      << "\", \"" << record.message << "\"}";
}

}  // namespace halvexd::hostlog

namespace halvexd::testing {

LogCapture::LogCapture() {
  hostlog::setRecordHookForTesting([this](const LogRecord& record) { captured.push_back(record); });
}

LogCapture::~LogCapture() {
  hostlog::setRecordHookForTesting(nullptr);
}

std::vector<LogRecord> LogCapture::metricRecords() const {
  std::vector<LogRecord> out;
  for (const auto& record : captured) {
    if (record.buffer == kMetricsLogBuffer) out.push_back(record);
  }
  return out;
}

ScopedEnv::ScopedEnv(const char* name, const std::string& value) : variable(name) {
  const char* old = std::getenv(name);
  hadValue = old != nullptr;
  if (hadValue) previous = old;
  setenv(name, value.c_str(), 1);
}

ScopedEnv::~ScopedEnv() {
  if (hadValue) {
    setenv(variable.c_str(), previous.c_str(), 1);
  } else {
    unsetenv(variable.c_str());
  }
}

ScopedSysroot::ScopedSysroot(const std::string& root) : previous(sysroot()) {
  setSysroot(root);
}

ScopedSysroot::~ScopedSysroot() {
  setSysroot(previous);
}

std::string fixturePath(const std::string& relative) {
  return std::string(HALVEXD_FIXTURES) + "/" + relative;
}

TempDir::TempDir() {
  std::string pattern = (std::filesystem::temp_directory_path() / "halvexd-test-XXXXXX").string();
  if (mkdtemp(pattern.data()) == nullptr) {
    throw std::runtime_error("mkdtemp failed");
  }
  root = pattern;
}

TempDir::~TempDir() {
  std::error_code ignored;
  std::filesystem::remove_all(root, ignored);
}

std::string TempDir::write(const std::string& relative, const std::string& contents) const {
  std::filesystem::path file = std::filesystem::path(root) / relative;
  std::filesystem::create_directories(file.parent_path());
  std::ofstream out(file, std::ios::binary | std::ios::trunc);
  out << contents;
  return file.string();
}

}  // namespace halvexd::testing
