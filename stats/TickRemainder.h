// The tick arithmetic every interval gate shares.
#pragma once

#include <cstdint>

namespace halvexd {

// `tick` modulo `interval`, where an interval of 0 leaves the tick itself: a
// gate on an interval of 0 is met once, on the tick equal to the gate value.
inline uint64_t tickRemainder(uint64_t tick, uint64_t interval) {
  uint64_t quotient = interval == 0 ? 0 : tick / interval;
  return tick - quotient * interval;
}

}  // namespace halvexd
