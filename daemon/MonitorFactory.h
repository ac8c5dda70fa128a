// Builds the daemon's fixed set of monitors.
#pragma once

#include <vector>

#include "daemon/MonitorInterface.h"

namespace halvexd {

// Appends the daemon's monitors, in the order the engine is to call them, to
// `monitors`, then those of the extensions the configuration switches on.
// When `optionsGiven`, `sampleInterval` replaces every table monitor's own
// sample interval (extensions keep theirs). False after an allocation
// failure (monitors appended before it stay in the vector). The last
// argument belongs to the factory's call interface as the entry calls it
// (always with false); nothing reads it.
bool configureMonitors(unsigned long sampleInterval, bool optionsGiven,
                       std::vector<MonitorInterface*>& monitors, bool);

}  // namespace halvexd
