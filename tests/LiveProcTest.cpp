// The real daemon over this machine's live /proc: the per-process table must
// name processes that exist, under the names the kernel gives them.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cctype>
#include <filesystem>
#include <fstream>
#include <regex>

#include "tests/support/DaemonProcess.h"
#include "tests/support/TestSupport.h"

namespace halvexd {
namespace {

using testing::DaemonProcess;
using testing::LogRecord;
using testing::TempDir;

namespace fs = std::filesystem;

// A device tree whose /proc entries are this machine's own (linked one by
// one, so the uptime can be past the boot wait) and whose configuration is
// the sample tablet's.
void buildLiveTree(const TempDir& tree) {
  fs::create_directories(tree.path() + "/proc");
  for (const auto& entry : fs::directory_iterator("/proc")) {
    std::string name = entry.path().filename();
    bool numeric = !name.empty() && std::all_of(name.begin(), name.end(), ::isdigit);
    if (numeric || name == "stat" || name == "meminfo") {
      std::error_code ignored;  // a process may end while we look
      fs::create_directory_symlink(entry.path(), tree.path() + "/proc/" + name, ignored);
    }
  }
  tree.write("proc/uptime", "200.00 100.00\n");
  fs::create_directories(tree.path() + "/system/system_ext/etc");
  fs::copy_file(testing::fixturePath("tablet/system/system_ext/etc/halvex_config.json"),
                tree.path() + "/system/system_ext/etc/halvex_config.json");
}

std::string firstWordOfComm(int pid) {
  std::ifstream comm("/proc/" + std::to_string(pid) + "/comm");
  std::string word;
  comm >> word;
  return word;
}

bool isKernelThread(int pid) {
  std::ifstream cmdline("/proc/" + std::to_string(pid) + "/cmdline");
  return cmdline.is_open() && cmdline.peek() == std::ifstream::traits_type::eof();
}

TEST(LiveProcTest, CpuTableNamesLiveProcessesIncludingABusyOne) {
  pid_t busy = fork();
  ASSERT_GE(busy, 0);
  if (busy == 0) {
    alarm(30);  // never outlive a broken test
    for (volatile unsigned long spin = 0;; ++spin) {
    }
  }
  TempDir tree;
  buildLiveTree(tree);
  TempDir scratch;

  // Sampling every tick, the per-process CPU monitor reports on tick 1.
  DaemonProcess daemon({"-s", "1", "-t", "1"}, {{"HALVEXD_SYSROOT", tree.path()}},
                       scratch.path() + "/log.jsonl");
  bool reported = daemon.waitForRecord(
      [](const LogRecord& r) { return r.message.rfind("ProcessCpuMonitorTablet:CpuUsage:", 0) == 0; },
      std::chrono::seconds(20));
  kill(daemon.pid(), SIGTERM);
  daemon.waitForExit();
  kill(busy, SIGKILL);
  waitpid(busy, nullptr, 0);
  ASSERT_TRUE(reported);

  const std::regex row(R"(^(\S+) +(\d+) +: (\d+\.\d\d)% \n$)");
  std::map<int, std::pair<std::string, double>> table;
  for (const auto& record : daemon.records()) {
    std::smatch match;
    if (record.tag == "halvexd:ProcessCpuMonitor" && std::regex_match(record.message, match, row)) {
      table[std::stoi(match[2])] = {match[1], std::stod(match[3])};
    }
  }
  ASSERT_FALSE(table.empty());
  ASSERT_TRUE(table.count(busy)) << "the spinning child is missing from the table";
  // Spinning, it has a share of a CPU far above the idle processes' (how far
  // depends on what else this machine runs).
  EXPECT_GT(table[busy].second, 5.0);
  for (const auto& [pid, entry] : table) {
    std::string comm = firstWordOfComm(pid);
    if (comm.empty()) continue;  // ended since; it existed when it was sampled
    // Binder threads are named after their program instead.
    if (comm.find("Binder") != std::string::npos) continue;
    // Kernel threads (no command line) may rename themselves between the
    // sample and this look: a worker thread takes the name of the work it
    // runs.
    if (isKernelThread(pid)) continue;
    EXPECT_EQ(entry.first, comm) << "pid " << pid;
  }
}

}  // namespace
}  // namespace halvexd
