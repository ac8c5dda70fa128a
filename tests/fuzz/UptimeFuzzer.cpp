// /proc/uptime given any contents: the engine's boot wait is computed from
// this reading, so it must come out as a plain whole number of seconds, 0
// when the text is not two numbers, and never undefined behaviour.
#include <cmath>
#include <cstdio>

#include "stats/StatUtil.h"
#include "tests/fuzz/FuzzSupport.h"

using namespace halvexd::fuzz;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  ScratchDevice::instance().write("/proc/uptime", data, size);
  int uptime = halvexd::StatUtil::getUptime();
  if (uptime != 0) {
    // A non-zero reading comes from a line that starts with two numbers.
    std::string line(reinterpret_cast<const char*>(data), size);
    line = line.substr(0, line.find('\0'));
    float first = 0;
    float second = 0;
    check(std::sscanf(line.c_str(), "%f %f", &first, &second) == 2, "uptime from a bad line");
    check(std::trunc(first) == static_cast<float>(uptime), "uptime is not the first number");
  }
  return 0;
}
