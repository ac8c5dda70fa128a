// The benchmark groups of the suite; main registers them in this order.
#pragma once

#include <vector>

namespace halvexd::bench {

// Per-process scans, once for each number of idle children in `sizes`.
void registerProcessScanBenchmarks(const std::vector<long>& sizes);
// One check of each system monitor over the sample tablet.
void registerSystemMonitorBenchmarks();
// Plain and structured records of a report of typical size.
void registerRecordBenchmarks();
// The own-cost extension: a tick timed and untimed, and its report.
void registerDaemonCostBenchmarks();

}  // namespace halvexd::bench
