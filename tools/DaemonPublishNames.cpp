#include "tools/DaemonPublishNames.h"

namespace halvexd::tools {

const std::vector<PublishNameUse>& daemonPublishNames() {
  using Kind = PublishNameUse::Kind;
  static const std::vector<PublishNameUse> kUses = {
      {"SysHealthCpuUsage", "ProcessCpuMonitor", Kind::SystemHealth,
       {"cpu_app_snapshot_period", "cpu_metric_keys", "cpu_metric_type", "cpu_metric_values"}},
      {"CpuUsage", "ProcessCpuMonitor", Kind::Values, {}},
      {"SysHealthMemoryUsage", "ProcessMemMonitor", Kind::SystemHealth,
       {"mem_app_snapshot_period", "mem_metric_keys", "mem_metric_type", "mem_metric_values"}},
      {"PssKB", "ProcessMemMonitor", Kind::Values, {}},
      {"SystemMemMonitor", "SystemMemMonitor", Kind::Values, {}},
      {"SysHealthCpuUsage", "CpuUsageMonitor", Kind::SystemHealth,
       {"cpu_metric_keys", "cpu_metric_type", "cpu_metric_values", "cpu_sys_aggregation_period"}},
      {"CpuUsageMonitor", "CpuUsageMonitor", Kind::Values, {}},
      {"SysHealthMemoryUsage", "MemoryUsageMonitor", Kind::SystemHealth,
       {"mem_metric_keys", "mem_metric_type", "mem_metric_values", "mem_sys_aggregation_period"}},
      {"MemoryUsageMonitor", "MemoryUsageMonitor", Kind::Values, {}},
      {"SysHealthStorageUsage", "DiskUsageMonitor", Kind::SystemHealth,
       {"storage_metric_keys", "storage_metric_type", "storage_metric_values",
        "storage_snapshot_period"}},
      {"PercentageUsed", "DiskUsageMonitor", Kind::ValuesWithPositionalFields,
       {"partition_path", "percent_used"}},
  };
  return kUses;
}

}  // namespace halvexd::tools
