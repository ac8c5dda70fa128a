// The least an idle ticking daemon can cost: wait on select with a one-second
// time-out, as the engine does between ticks, and do nothing else. Run beside
// the daemon so that its idle ticks have a floor measured on the same machine
// at the same time.
//
//   halvexd_idle_floor SECONDS
#include <sys/select.h>

#include <cstdlib>
#include <iostream>

int main(int argc, char** argv) {
  long ticks = argc == 2 ? std::strtol(argv[1], nullptr, 10) : 0;
  if (ticks <= 0) {
    std::cerr << "usage: halvexd_idle_floor SECONDS\n";
    return 2;
  }
  for (long tick = 0; tick < ticks; ++tick) {
    timeval timeout{1, 0};
    select(0, nullptr, nullptr, nullptr, &timeout);
  }
  return 0;
}
