#include "tests/support/DaemonProcess.h"

#include <cjson/cJSON.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <thread>

extern char** environ;

namespace halvexd::testing {

DaemonProcess::DaemonProcess(const std::vector<std::string>& args,
                             const std::map<std::string, std::string>& env,
                             const std::string& logFile)
    : log(logFile) {
  std::vector<std::string> envLines;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    if (std::strncmp(*entry, "HALVEXD_", 8) != 0) envLines.push_back(*entry);
  }
  envLines.push_back("HALVEXD_LOG_FORMAT=jsonl");
  envLines.push_back("HALVEXD_LOG_FILE=" + logFile);
  for (const auto& [name, value] : env) envLines.push_back(name + "=" + value);
  auto pointers = [](std::vector<std::string>& strings) {
    std::vector<char*> result;
    for (auto& s : strings) result.push_back(s.data());
    result.push_back(nullptr);
    return result;
  };
  // A cross-built daemon runs under the same emulator as the tests.
  std::vector<std::string> argv{HALVEXD_BINARY};
  if (std::strlen(HALVEXD_EMULATOR) > 0) argv.insert(argv.begin(), HALVEXD_EMULATOR);
  argv.insert(argv.end(), args.begin(), args.end());
  auto envp = pointers(envLines);
  if (posix_spawn(&child, argv[0].c_str(), nullptr, nullptr, pointers(argv).data(), envp.data())) {
    child = -1;
  }
}

DaemonProcess::~DaemonProcess() { waitForExit(std::chrono::milliseconds(0)); }

std::vector<LogRecord> DaemonProcess::records() const {
  std::vector<LogRecord> records;
  std::ifstream in(log);
  for (std::string line; std::getline(in, line);) {
    cJSON* root = cJSON_Parse(line.c_str());
    const cJSON* buf = cJSON_GetObjectItem(root, "buf");
    const cJSON* prio = cJSON_GetObjectItem(root, "prio");
    const cJSON* tag = cJSON_GetObjectItem(root, "tag");
    const cJSON* msg = cJSON_GetObjectItem(root, "msg");
    if (cJSON_IsNumber(buf) && cJSON_IsNumber(prio) && cJSON_IsString(tag) && cJSON_IsString(msg)) {
      records.push_back({buf->valueint, prio->valueint, tag->valuestring, msg->valuestring});
    } else {
      records.push_back({-1, 0, "", line});
    }
    cJSON_Delete(root);
  }
  return records;
}

bool DaemonProcess::waitForRecord(const std::function<bool(const LogRecord&)>& match,
                                  std::chrono::milliseconds timeout) const {
  for (auto end = std::chrono::steady_clock::now() + timeout;;) {
    for (const auto& record : records()) {
      if (match(record)) return true;
    }
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
}

int DaemonProcess::waitForExit(std::chrono::milliseconds timeout) {
  int status = -1;
  const auto end = std::chrono::steady_clock::now() + timeout;
  while (child > 0 && !reaped && waitpid(child, &status, WNOHANG) != child) {
    if (std::chrono::steady_clock::now() > end) kill(child, SIGKILL);
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  reaped = true;
  return status;
}

bool DaemonProcess::followDetached() {
  // The launcher is reaped, so the adopted daemon is the test's only child.
  std::ifstream children("/proc/self/task/" + std::to_string(getpid()) + "/children");
  reaped = !(children >> child);
  return !reaped;
}

}  // namespace halvexd::testing
