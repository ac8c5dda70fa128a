// One report of every monitor over a copy of the sample tablet, under a
// configuration that switches every record on: what the metric readers'
// tools are tested against.
#pragma once

#include <string>
#include <vector>

#include "tests/support/TestSupport.h"

namespace halvexd::testing {

// The tablet's own configuration, which has a record for every publish name
// with every interface a name can use switched on.
std::string tabletConfigPath();

// Loads `configPath` with the daemon's loader, builds the factory's monitors,
// moves the tablet's CPU counters on and forces every monitor once on the
// tick of its own report (the per-process CPU monitor twice, as it reports
// from its second run), with /proc/perfinfo answering 187432 kB for
// system_server (pid 1024) and 40960 kB for surfaceflinger (pid 612).
// Returns the records of the metrics buffer, in order. The configuration is
// left empty afterwards.
std::vector<LogRecord> reportEveryMonitorOverTheTablet(const std::string& configPath);

}  // namespace halvexd::testing
