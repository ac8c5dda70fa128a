// Stateless readers of the kernel's text interfaces under /proc and /sys.
// Each call opens and closes its file; failures are reported through the
// result (and, where stated, one log line with the tag "halvexd:StatUtil").
#pragma once

#include <cstdint>
#include <map>
#include <string>

namespace halvexd {

// /proc/meminfo counters, all in kB. Readers write only the fields whose keys
// they meet; the caller owns (and initialises) the record.
struct SysMeminfoKb {
  uint64_t memTotal = 0;
  uint64_t memFree = 0;
  uint64_t memAvailable = 0;
  uint64_t buffers = 0;
  uint64_t cached = 0;
  uint64_t activeAnon = 0;
  uint64_t inactiveAnon = 0;
  uint64_t activeFile = 0;
  uint64_t inactiveFile = 0;
  uint64_t swapTotal = 0;
  uint64_t swapFree = 0;
  uint64_t shmem = 0;
  uint64_t sUnreclaim = 0;
  uint64_t kernelStack = 0;
  uint64_t pageTables = 0;
};

namespace StatUtil {

// Monotonic clock in milliseconds (truncated).
uint64_t getUptimeMillis();

// Whole seconds of system uptime, the first number of /proc/uptime with its
// fraction dropped; 0 when the file cannot be opened, read or parsed.
int getUptime();

}  // namespace StatUtil
}  // namespace halvexd
