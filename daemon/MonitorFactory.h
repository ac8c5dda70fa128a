// Builds the daemon's fixed set of monitors.
#pragma once

#include <vector>

#include "config/ExtensionConfig.h"
#include "daemon/MonitorInterface.h"

namespace halvexd {

// A monitor of the factory's table with the names it publishes under.
struct MonitorPublishing {
  const char* monitor;
  const MonitorPublishNames* names;
};

// Every monitor the daemon builds, in the order of the factory's table.
const std::vector<MonitorPublishing>& monitorPublishNames();

// The monitors built only when an extension of the configuration is on: the
// extension's key, the names the monitor publishes under, and whether the
// given section switches it on.
struct ExtensionPublishing {
  const char* extension;
  MonitorPublishing publishing;
  bool (*active)(const ExtensionConfig& extensions);
};
const std::vector<ExtensionPublishing>& extensionPublishNames();

// Appends the daemon's monitors, in the order the engine is to call them, to
// `monitors`, then those of the extensions the configuration switches on.
// When `optionsGiven`, `sampleInterval` replaces every table monitor's own
// sample interval (extensions keep theirs). False after an allocation
// failure (monitors appended before it stay in the vector). The last
// argument is not read.
bool configureMonitors(unsigned long sampleInterval, bool optionsGiven,
                       std::vector<MonitorInterface*>& monitors, bool);

}  // namespace halvexd
