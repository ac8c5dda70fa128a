// Every name the daemon's monitors publish metric records under, with what
// each monitor hands to its publishes, written once: the monitors publish
// under these, the monitor factory names each monitor after its entry, and
// the tools read the table to know the records a configuration can switch
// on, so a renamed metric is renamed for all of them at once.
#pragma once

#include <cstddef>

namespace halvexd {

// The system-health sample a monitor publishes: its publish name, its four
// fields (the type, keys and values lists and the period) and what the
// monitor writes into the type and keys lists itself.
struct SystemHealthNames {
  const char* publishName;  // "SysHealthCpuUsage"
  const char* typeField;    // "cpu_metric_type"
  const char* keysField;    // "cpu_metric_keys": also names the structured sample
  const char* valuesField;  // "cpu_metric_values"
  const char* periodField;  // "cpu_sys_aggregation_period"
  const char* type;         // "System" or "Process"
  // The keys list's header ("AppName|percentage"), or null when the keys are
  // the percentile names the report appends.
  const char* keysHeader;
};

// Every name one monitor publishes under.
struct MonitorPublishNames {
  // The monitor's own name, which starts its plain records' prefix.
  const char* monitor;
  // Null when the monitor sends no system-health sample.
  const SystemHealthNames* systemHealth;
  // The plain record's publish name, which also names the structured values.
  const char* plainName;
  // The fields of each structured multi-field sample sent under the plain
  // name, by position; none when the structured records hold single values.
  const char* const* positionalFields;
  size_t positionalFieldCount;
};

// An extension that publishes records: the name of its object in
// "HalvexExtensions", which switches it, and the names it publishes under
// (its `monitor` starts its plain records' prefix, as a monitor's does).
struct ExtensionPublishNames {
  const char* extension;
  const MonitorPublishNames* names;
};

namespace publishnames {

// The busiest processes in the system-health sample and as plain values.
inline constexpr SystemHealthNames kProcessCpuHealth = {
    "SysHealthCpuUsage", "cpu_metric_type", "cpu_metric_keys", "cpu_metric_values",
    "cpu_app_snapshot_period", "Process", "AppName|percentage"};
inline constexpr MonitorPublishNames kProcessCpuMonitor = {"ProcessCpuMonitor",
                                                           &kProcessCpuHealth, "CpuUsage",
                                                           nullptr, 0};

// The largest processes in the system-health sample and as plain values.
inline constexpr SystemHealthNames kProcessMemHealth = {
    "SysHealthMemoryUsage", "mem_metric_type", "mem_metric_keys", "mem_metric_values",
    "mem_app_snapshot_period", "Process", "AppName|percentage|usageKb"};
inline constexpr MonitorPublishNames kProcessMemMonitor = {"ProcessMemMonitor",
                                                           &kProcessMemHealth, "PssKB",
                                                           nullptr, 0};

// Memory figures and kill counts as plain values, no system-health sample.
inline constexpr MonitorPublishNames kSystemMemMonitor = {"SystemMemMonitor", nullptr,
                                                          "SystemMemMonitor", nullptr, 0};

// The percentiles in the system-health sample, the distribution as plain
// values.
inline constexpr SystemHealthNames kCpuUsageHealth = {
    "SysHealthCpuUsage", "cpu_metric_type", "cpu_metric_keys", "cpu_metric_values",
    "cpu_sys_aggregation_period", "System", nullptr};
inline constexpr MonitorPublishNames kCpuUsageMonitor = {"CpuUsageMonitor", &kCpuUsageHealth,
                                                         "CpuUsageMonitor", nullptr, 0};

// The percentiles in the system-health sample, the distribution as plain
// values.
inline constexpr SystemHealthNames kMemoryUsageHealth = {
    "SysHealthMemoryUsage", "mem_metric_type", "mem_metric_keys", "mem_metric_values",
    "mem_sys_aggregation_period", "System", nullptr};
inline constexpr MonitorPublishNames kMemoryUsageMonitor = {
    "MemoryUsageMonitor", &kMemoryUsageHealth, "MemoryUsageMonitor", nullptr, 0};

// The partitions in the system-health sample; the percentages as plain
// values, each also as a structured sample of two fields, the metric name and
// the percentage.
inline constexpr SystemHealthNames kDiskUsageHealth = {
    "SysHealthStorageUsage", "storage_metric_type", "storage_metric_keys",
    "storage_metric_values", "storage_snapshot_period", "System",
    "PartitionPath|percentage|totalSize"};
inline constexpr const char* kDiskPercentageFields[] = {"partition_path", "percent_used"};
inline constexpr MonitorPublishNames kDiskUsageMonitor = {
    "DiskUsageMonitor", &kDiskUsageHealth, "PercentageUsed", kDiskPercentageFields, 2};

// Every monitor, in the order the factory builds them (which it checks).
inline constexpr const MonitorPublishNames* kEveryMonitor[] = {
    &kProcessCpuMonitor, &kProcessMemMonitor, &kSystemMemMonitor,
    &kCpuUsageMonitor,   &kMemoryUsageMonitor, &kDiskUsageMonitor,
};

// The crossing snapshot: the processes behind each usage crossing as plain
// values, each also as a structured sample of six fields: the metric that
// crossed, the rank, the process name and pid, the figure it is ranked by
// (percent of all CPUs, or resident kB) and its PSS (0 where none answered).
inline constexpr const char* kCrossingSnapshotFields[] = {"crossing", "rank",  "process_name",
                                                          "pid",      "value", "pss_kb"};
inline constexpr MonitorPublishNames kCrossingSnapshot = {
    "CrossingSnapshot", nullptr, "CrossingSnapshot", kCrossingSnapshotFields, 6};

// The daemon's own cost per interval as plain values, and as one structured
// sample of eleven fields.
inline constexpr const char* kDaemonCostFields[] = {
    "interval_ticks",   "cpu_ms", "voluntary_switches", "tick_mean_us",     "tick_max_us",
    "longest_check",    "longest_check_us", "rss_kb",   "pss_kb", "private_dirty_kb", "open_fds"};
inline constexpr MonitorPublishNames kDaemonCost = {"DaemonCost", nullptr, "DaemonCost",
                                                    kDaemonCostFields, 11};

// Pressure stall statistics as plain values, no system-health sample.
inline constexpr MonitorPublishNames kPressureMonitor = {"PressureMonitor", nullptr,
                                                         "PressureStall", nullptr, 0};

// Every extension that publishes, with the extension of "HalvexExtensions"
// that switches it.
inline constexpr ExtensionPublishNames kEveryExtension[] = {
    {"CrossingSnapshot", &kCrossingSnapshot},
    {"DaemonCost", &kDaemonCost},
    {"Pressure", &kPressureMonitor},
};

}  // namespace publishnames
}  // namespace halvexd
