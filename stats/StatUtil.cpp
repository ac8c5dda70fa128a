#include "stats/StatUtil.h"

#include <time.h>

#include <cstdio>

#include "platform/Sysroot.h"

namespace halvexd {
namespace StatUtil {

uint64_t getUptimeMillis() {
  struct timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  uint64_t nanos = static_cast<uint64_t>(now.tv_sec) * 1000000000ULL +
                   static_cast<uint64_t>(now.tv_nsec);
  return nanos / 1000000ULL;
}

int getUptime() {
  FILE* file = std::fopen(sysrootPath("/proc/uptime").c_str(), "r");
  if (file == nullptr) {
    return 0;
  }
  char line[512] = {};
  float uptime = 0;
  float idle = 0;
  if (std::fgets(line, sizeof(line), file) != nullptr &&
      std::sscanf(line, "%f %f", &uptime, &idle) != 2) {
    uptime = 0;
  }
  std::fclose(file);
  // The float-to-int conversion is undefined beyond the int range; a garbled
  // file must not turn into undefined behaviour, so such values count as
  // unreadable.
  if (!(uptime > -2147483648.0f && uptime < 2147483648.0f)) {
    return 0;
  }
  return static_cast<int>(uptime);
}

}  // namespace StatUtil
}  // namespace halvexd
