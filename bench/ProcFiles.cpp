#include "bench/ProcFiles.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>

namespace halvexd::bench {

std::vector<int> listProcPids() {
  std::vector<int> pids;
  DIR* dir = opendir("/proc");
  if (dir == nullptr) return pids;
  while (const dirent* entry = readdir(dir)) {
    const char* name = entry->d_name;
    if (name[0] < '0' || name[0] > '9') continue;
    int pid = 0;
    for (; *name >= '0' && *name <= '9'; ++name) pid = pid * 10 + (*name - '0');
    if (*name == '\0') pids.push_back(pid);
  }
  closedir(dir);
  return pids;
}

long readProcFile(int pid, const char* file) {
  char path[64];
  std::snprintf(path, sizeof(path), "/proc/%d/%s", pid, file);
  int fd = open(path, O_RDONLY | O_CLOEXEC);
  if (fd < 0) return -1;
  char buffer[4096];
  long total = 0;
  ssize_t got;
  while ((got = read(fd, buffer, sizeof(buffer))) > 0) total += got;
  close(fd);
  return total;
}

size_t countProcesses() {
  return listProcPids().size();
}

double runQuietly(const std::vector<std::string>& argv, int& status) {
  pid_t child = fork();
  if (child < 0) return -1;
  if (child == 0) {
    int devNull = open("/dev/null", O_WRONLY);
    if (devNull >= 0) {
      dup2(devNull, STDOUT_FILENO);
      dup2(devNull, STDERR_FILENO);
    }
    std::vector<char*> args;
    for (const auto& arg : argv) args.push_back(const_cast<char*>(arg.c_str()));
    args.push_back(nullptr);
    execvp(args[0], args.data());
    _exit(127);
  }
  int waitStatus = 0;
  rusage usage{};
  if (wait4(child, &waitStatus, 0, &usage) != child || !WIFEXITED(waitStatus)) return -1;
  status = WEXITSTATUS(waitStatus);
  auto seconds = [](const timeval& t) { return static_cast<double>(t.tv_sec) + t.tv_usec / 1e6; };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

}  // namespace halvexd::bench
