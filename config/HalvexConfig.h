// The process-wide configuration: which metric records each publish name
// writes and how structured records are labelled. Filled once at start-up
// from one JSON file, read afterwards without locks from the engine thread.
#pragma once

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

struct cJSON;

namespace halvexd {

class HalvexConfig {
 public:
  struct VedrixMetric {
    std::string name;
    std::string dimensionTag;
    std::string type;
  };

  struct VedrixMetricInterface {
    std::string schemaId;
    std::string groupId;
    bool active = false;
    VedrixMetric metricKey;
    VedrixMetric metricValue;
    std::vector<VedrixMetric> metrics;
  };

  struct TrazMetricInterface {
    std::string programName;
    bool active = false;
  };

  struct MonitorConfig {
    std::string name;
    std::string metricName;
    bool active = false;
    uint64_t sampleIntervalTicks = 0;
    uint64_t metricLogcatIntervalTicks = 0;
    uint64_t metricReportIntervalTicks = 0;
    TrazMetricInterface trazMetricInterface;
    VedrixMetricInterface vedrixMetricInterface;
  };

  struct VedrixConfig {
    bool enabled = false;
    std::string region;
    std::string defaultGroupId;
  };

  static HalvexConfig& instance();

  virtual ~HalvexConfig() = default;

  // Reads the configuration (see parseConfig for the path), logs the summary
  // of what was loaded; false on any failure.
  bool loadConfig(const char* path);

  // Reads `path`, or the override file when the override property is set,
  // and fills the model. 0 on success, non-zero otherwise.
  int parseConfig(const char* path);

  // Fills the model from a parsed tree. 0 on success, -1 when a required
  // top-level key is missing (the model then holds what was read before it).
  int parseJsonData(cJSON* root);

  // Empties the model: no monitor records, structured service off.
  void resetConfig();

  std::unordered_map<std::string, MonitorConfig> monitorConfigs;
  VedrixConfig vedrixConfig;

  HalvexConfig() = default;
  HalvexConfig(const HalvexConfig&) = delete;
  HalvexConfig& operator=(const HalvexConfig&) = delete;
};

}  // namespace halvexd
