// Builds the daemon's fixed set of monitors.
#pragma once

#include <vector>

#include "daemon/MonitorInterface.h"

namespace halvexd {

// Appends the daemon's monitors, in the order the engine is to call them, to
// `monitors`. When `optionsGiven`, `sampleInterval` replaces every monitor's
// own sample interval. False after an allocation failure (monitors appended
// before it stay in the vector). The last argument is not read.
// A monitor of the factory's table with the names it publishes under.
struct MonitorPublishing {
  const char* monitor;
  const MonitorPublishNames* names;
};

// Every monitor the daemon builds, in the order of the factory's table.
const std::vector<MonitorPublishing>& monitorPublishNames();

// The extensions that publish records, each named after its extension of
// "HalvexExtensions" (which switches it) and publishing as a monitor of that
// name would.
const std::vector<MonitorPublishing>& extensionPublishNames();

bool configureMonitors(unsigned long sampleInterval, bool optionsGiven,
                       std::vector<MonitorInterface*>& monitors, bool);

}  // namespace halvexd
