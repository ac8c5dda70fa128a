#include "tests/support/ProcessTree.h"

#include <filesystem>

namespace halvexd::testing {

std::string statLine(const FakeProcess& p) {
  const std::string pid = std::to_string(p.pid);
  return pid + " (" + p.comm + ") S 1 " + pid + " 0 0 -1 1077936384 4121 0 12 0 " +
         std::to_string(p.utime) + " " + std::to_string(p.stime) + " 0 0 20 0 9 0 312 " +
         "10999922688 " + std::to_string(p.rss) +
         " 18446744073709551615 367001354240 367002562198 549755700000 0 0 0 0 4096 1073775864 "
         "0 0 0 17 2 0 0 5 0 0 367002654240 367002694240 367010354240 549755813000 "
         "549755813100 549755813100 549755814000 0\n";
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
