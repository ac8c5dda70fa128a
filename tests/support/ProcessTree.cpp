#include "tests/support/ProcessTree.h"

#include <filesystem>

#include "tools/devicesim/KernelText.h"

namespace halvexd::testing {

std::string statLine(const FakeProcess& p) {
  return devicesim::KernelText::processStat(p.pid, p.comm, p.utime, p.stime, p.rss);
}

void writeProcess(const TempDir& root, const FakeProcess& p) {
  const std::string dir = "proc/" + std::to_string(p.pid) + "/";
  root.write(dir + "stat", statLine(p));
  root.write(dir + "comm", p.comm + "\n");
  root.write(dir + "cmdline", p.cmdline);
}

void removeProcess(const TempDir& root, int pid) {
  std::filesystem::remove_all(root.path() + "/proc/" + std::to_string(pid));
}

}  // namespace halvexd::testing
