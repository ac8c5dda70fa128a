#include "tests/support/DaemonProcess.h"

#include <cjson/cJSON.h>
#include <dirent.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <sstream>
#include <thread>

extern char** environ;

namespace halvexd::testing {
namespace {

bool lookupEnvLine(const std::string& line, std::string& name) {
  size_t equals = line.find('=');
  if (equals == std::string::npos) return false;
  name = line.substr(0, equals);
  return true;
}

}  // namespace

std::vector<LogRecord> readJsonlLog(const std::string& path) {
  std::vector<LogRecord> records;
  std::ifstream in(path);
  std::string line;
  while (std::getline(in, line)) {
    cJSON* root = cJSON_Parse(line.c_str());
    if (root == nullptr) continue;
    const cJSON* buf = cJSON_GetObjectItem(root, "buf");
    const cJSON* prio = cJSON_GetObjectItem(root, "prio");
    const cJSON* tag = cJSON_GetObjectItem(root, "tag");
    const cJSON* msg = cJSON_GetObjectItem(root, "msg");
    if (cJSON_IsNumber(buf) && cJSON_IsNumber(prio) && cJSON_IsString(tag) && cJSON_IsString(msg)) {
      records.push_back({buf->valueint, prio->valueint, tag->valuestring, msg->valuestring});
    }
    cJSON_Delete(root);
  }
  return records;
}

DaemonProcess::DaemonProcess(const std::vector<std::string>& args,
                             const std::map<std::string, std::string>& env,
                             const std::string& logFile)
    : log(logFile) {
  std::map<std::string, std::string> merged;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    std::string line(*entry);
    std::string name;
    if (lookupEnvLine(line, name) && name.rfind("HALVEXD_", 0) != 0) {
      merged[name] = line.substr(name.size() + 1);
    }
  }
  merged["HALVEXD_LOG_FORMAT"] = "jsonl";
  merged["HALVEXD_LOG_FILE"] = logFile;
  for (const auto& [name, value] : env) merged[name] = value;

  std::vector<std::string> envLines;
  for (const auto& [name, value] : merged) envLines.push_back(name + "=" + value);
  std::vector<char*> envp;
  for (auto& line : envLines) envp.push_back(line.data());
  envp.push_back(nullptr);

  // A cross-built daemon runs under the same emulator as the tests.
  std::vector<std::string> argStrings;
  if (std::strlen(HALVEXD_EMULATOR) > 0) argStrings.push_back(HALVEXD_EMULATOR);
  argStrings.push_back(HALVEXD_BINARY);
  argStrings.insert(argStrings.end(), args.begin(), args.end());
  std::vector<char*> argv;
  for (auto& arg : argStrings) argv.push_back(arg.data());
  argv.push_back(nullptr);

  if (posix_spawn(&child, argv[0], nullptr, nullptr, argv.data(), envp.data()) != 0) {
    child = -1;
  }
}

DaemonProcess::~DaemonProcess() {
  if (child > 0 && !reaped) {
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
  }
}

bool DaemonProcess::waitForRecord(const std::function<bool(const LogRecord&)>& match,
                                  std::chrono::milliseconds timeout) const {
  auto deadline = std::chrono::steady_clock::now() + timeout;
  do {
    for (const auto& record : records()) {
      if (match(record)) return true;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  } while (std::chrono::steady_clock::now() < deadline);
  return false;
}

bool DaemonProcess::waitForMessage(const std::string& message,
                                   std::chrono::milliseconds timeout) const {
  return waitForRecord([&](const LogRecord& record) { return record.message == message; }, timeout);
}

int DaemonProcess::waitForExit(std::chrono::milliseconds timeout) {
  if (child <= 0 || reaped) return -1;
  auto deadline = std::chrono::steady_clock::now() + timeout;
  int status = 0;
  while (std::chrono::steady_clock::now() < deadline) {
    if (waitpid(child, &status, WNOHANG) == child) {
      reaped = true;
      return status;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  kill(child, SIGKILL);
  waitpid(child, nullptr, 0);
  reaped = true;
  return -1;
}

pid_t findProcessWithEnv(const std::string& marker) {
  DIR* proc = opendir("/proc");
  if (proc == nullptr) return -1;
  pid_t found = -1;
  while (struct dirent* entry = readdir(proc)) {
    char* end = nullptr;
    long pid = std::strtol(entry->d_name, &end, 10);
    if (*end != '\0' || pid <= 0) continue;
    std::ifstream environFile(std::string("/proc/") + entry->d_name + "/environ",
                              std::ios::binary);
    std::stringstream contents;
    contents << environFile.rdbuf();
    std::string variables = contents.str();
    size_t start = 0;
    while (start < variables.size()) {
      size_t end = variables.find('\0', start);
      if (end == std::string::npos) end = variables.size();
      if (variables.compare(start, end - start, marker) == 0) {
        found = static_cast<pid_t>(pid);
        break;
      }
      start = end + 1;
    }
    if (found > 0) break;
  }
  closedir(proc);
  return found;
}

bool waitForProcessGone(pid_t pid, std::chrono::milliseconds timeout) {
  auto deadline = std::chrono::steady_clock::now() + timeout;
  while (std::chrono::steady_clock::now() < deadline) {
    if (kill(pid, 0) != 0 && errno == ESRCH) return true;
    // A detached daemon is nobody's child here; once it has exited it may
    // linger as a zombie until init reaps it.
    std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
    std::string line;
    std::getline(stat, line);
    size_t close = line.rfind(')');
    if (close != std::string::npos && close + 2 < line.size() && line[close + 2] == 'Z') return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return false;
}

}  // namespace halvexd::testing
