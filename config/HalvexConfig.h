// The process-wide configuration: which metric records each publish name
// writes and how structured records are labelled. Filled once at start-up
// from one JSON file, read afterwards without locks from the engine thread.
#pragma once

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "config/ExtensionConfig.h"

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

  // Logs "Load JSON config", parses (see parseConfig), logs a summary of
  // what was loaded (the Vedrix settings, then one block per map entry) and
  // "Load JSON config done". False on any failure, after logging
  // "Could not parse config file"; the model then holds what parseJsonData
  // had stored before it stopped.
  bool loadConfig(const char* path);

  // Reads the device path `path`, or "/data/halvex/halvex_config.json" when
  // the property "halvex.config.override" is true (then `path` is not opened
  // at all), and fills the model. 0 on success; -1 when the file is missing,
  // unreadable, too large or not valid JSON (the model is then untouched) or
  // when a required top-level key is missing. Logs one error line naming the
  // device path on failure.
  int parseConfig(const char* path);

  // Fills the model from a parsed tree, starting from an empty model. 0 on
  // success, -1 when "MonitorConfig" or "VedrixConfig" is missing (the model
  // then holds what was read before the missing key). Wrong JSON types are
  // not rejected: see HalvexConfig.cpp for how each is read.
  // "HalvexExtensions" is read last, so a file that fails leaves every
  // extension off.
  int parseJsonData(cJSON* root);

  // Empties the model: no monitor records, structured service off, empty
  // region and default group id, no extensions section.
  void resetConfig();

  // The record whose "MetricName" is exactly `metricName`, or null.
  const MonitorConfig* findMonitorConfig(const std::string& metricName) const;

  // The structured interface of the record whose "MetricName" is exactly
  // `metricName`, or null when there is no such record or its interface is
  // not active.
  const VedrixMetricInterface* activeVedrixInterface(const std::string& metricName) const;

  std::unordered_map<std::string, MonitorConfig> monitorConfigs;
  VedrixConfig vedrixConfig;
  ExtensionConfig extensions;

  HalvexConfig() = default;
  HalvexConfig(const HalvexConfig&) = delete;
  HalvexConfig& operator=(const HalvexConfig&) = delete;
};

}  // namespace halvexd
