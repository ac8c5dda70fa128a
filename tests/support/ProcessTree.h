// Writes processes into a test device tree as the kernel shows them:
// /proc/<pid>/stat (all 52 fields), comm and cmdline.
#pragma once

#include <string>

#include "tests/support/TestSupport.h"

namespace halvexd::testing {

struct FakeProcess {
  int pid = 0;
  std::string comm;            // as the kernel keeps it, without the newline
  unsigned long utime = 0;     // clock ticks
  unsigned long stime = 0;     // clock ticks
  long rss = 1000;             // pages; 0 for a kernel thread
  std::string cmdline;         // raw bytes, arguments separated by '\0'
};

// A /proc/<pid>/stat line of a sleeping arm64 process with the given figures.
std::string statLine(const FakeProcess& process);

// Writes stat, comm and cmdline of `process` under <root>/proc/<pid>/.
void writeProcess(const TempDir& root, const FakeProcess& process);

// Removes <root>/proc/<pid> as the kernel does when the process is reaped.
void removeProcess(const TempDir& root, int pid);

}  // namespace halvexd::testing
