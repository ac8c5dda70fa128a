#include "config/HalvexConfig.h"

#include <cutils/properties.h>

#include "config/cJSONExtras.h"
#include "platform/LogBuffers.h"
#include "platform/Sysroot.h"

namespace halvexd {
namespace {

constexpr const char* kTag = "halvexd";
constexpr const char* kOverrideProperty = "halvex.config.override";
constexpr const char* kOverridePath = "/data/halvex/halvex_config.json";

// Keys are case-sensitive: "metricname" is not "MetricName".
const cJSON* findKey(const cJSON* object, const char* key) {
  return cJSON_GetObjectItemCaseSensitive(object, key);
}

// Values are read through the accessor of the type each key should have,
// whatever the item's JSON type; nothing is rejected for a wrong type.

// A key whose value is not a JSON string (a number, true, an object...) has no
// string payload and reads as the empty string. Refusing the whole file for it
// would take every monitor's metrics down for one mistyped label.
void readString(const cJSON* object, const char* key, std::string& field) {
  const cJSON* item = findKey(object, key);
  if (item == nullptr) {
    return;
  }
  const char* text = cJSON_GetStringValue(item);
  field = text != nullptr ? text : "";
}

// Only the lowest bit of the truth value counts.
void readBool(const cJSON* object, const char* key, bool& field) {
  const cJSON* item = findKey(object, key);
  if (item == nullptr) {
    return;
  }
  field = (cJSON_get_bool_val(item) & 1) != 0;
}

// The 32-bit integer payload, sign-extended: -1 becomes 18446744073709551615.
// Tick counts are taken as written, without a range check. A non-number reads
// as its integer payload (0 for a string, 1 for true).
void readUint64(const cJSON* object, const char* key, uint64_t& field) {
  const cJSON* item = findKey(object, key);
  if (item == nullptr) {
    return;
  }
  field = static_cast<uint64_t>(static_cast<int64_t>(item->valueint));
}

// "Name" then "DimensionTag"; the type of a key or value metric stays empty.
void readKeyOrValueMetric(const cJSON* object, const char* key, HalvexConfig::VedrixMetric& metric) {
  const cJSON* item = findKey(object, key);
  if (item == nullptr) {
    return;
  }
  readString(item, "Name", metric.name);
  readString(item, "DimensionTag", metric.dimensionTag);
}

// A JSON null in an array is a placeholder, not an empty record: it is
// skipped like a missing element.
//
// Arrays are walked element by element along cJSON's list. Asking for the
// size and then for each element by index walks the list from its start
// every time: a 1 MiB file of half a million array elements would keep the
// daemon's start-up busy for minutes.
bool isAbsent(const cJSON* element) {
  return element == nullptr || cJSON_IsNull(element);
}

void readMetricDescriptors(const cJSON* array, std::vector<HalvexConfig::VedrixMetric>& metrics) {
  const cJSON* element = nullptr;
  cJSON_ArrayForEach(element, array) {
    if (isAbsent(element)) {
      continue;
    }
    HalvexConfig::VedrixMetric metric;
    readString(element, "Name", metric.name);
    readString(element, "Type", metric.type);
    readString(element, "DimensionTag", metric.dimensionTag);
    metrics.push_back(metric);
  }
}

void readVedrixInterface(const cJSON* object, HalvexConfig::VedrixMetricInterface& interface) {
  readString(object, "Schema_Id", interface.schemaId);
  readString(object, "Group_Id", interface.groupId);
  readBool(object, "Active", interface.active);
  readKeyOrValueMetric(object, "Metric_Key", interface.metricKey);
  readKeyOrValueMetric(object, "Metric_Value", interface.metricValue);
  const cJSON* metrics = findKey(object, "Metrics");
  if (metrics != nullptr) {
    readMetricDescriptors(metrics, interface.metrics);
  }
}

HalvexConfig::MonitorConfig readMonitorRecord(const cJSON* object) {
  HalvexConfig::MonitorConfig config;
  readString(object, "Monitor Name", config.name);
  readString(object, "MetricName", config.metricName);
  readBool(object, "Active", config.active);
  readUint64(object, "Sample_interval_ticks", config.sampleIntervalTicks);
  readUint64(object, "Metric_logcat_interval_ticks", config.metricLogcatIntervalTicks);
  readUint64(object, "Metric_report_interval_ticks", config.metricReportIntervalTicks);
  const cJSON* traz = findKey(object, "TRAZ_Metric_Interface");
  if (traz != nullptr) {
    readString(traz, "ProgramName", config.trazMetricInterface.programName);
    readBool(traz, "Active", config.trazMetricInterface.active);
  }
  const cJSON* vedrix = findKey(object, "Vedrix_Metric_Interface");
  if (vedrix != nullptr) {
    readVedrixInterface(vedrix, config.vedrixMetricInterface);
  }
  return config;
}

void logInfo(const char* fmt, const char* text) {
  __android_log_buf_print(kSystemLogBuffer, ANDROID_LOG_INFO, kTag, fmt, text);
}

void logInfo(const char* fmt, int value) {
  __android_log_buf_print(kSystemLogBuffer, ANDROID_LOG_INFO, kTag, fmt, value);
}

void logInfo(const char* fmt, uint64_t value) {
  __android_log_buf_print(kSystemLogBuffer, ANDROID_LOG_INFO, kTag, fmt,
                          static_cast<unsigned long long>(value));
}

void logMonitorConfig(const HalvexConfig::MonitorConfig& config) {
  __android_log_buf_print(kSystemLogBuffer, ANDROID_LOG_INFO, kTag,
                          "==============================\n");
  logInfo("config.name %s\n", config.name.c_str());
  logInfo("config.metricName %s\n", config.metricName.c_str());
  logInfo("config.active %d\n", static_cast<int>(config.active));
  logInfo("sampleIntervalTicks %llu\n", config.sampleIntervalTicks);
  logInfo("metricLogcatIntervalTicks %llu\n", config.metricLogcatIntervalTicks);
  logInfo("metricReportIntervalTicks %llu\n", config.metricReportIntervalTicks);
  logInfo("trazMetricInterface.active %d\n", static_cast<int>(config.trazMetricInterface.active));
  logInfo("programName %s\n", config.trazMetricInterface.programName.c_str());
  const HalvexConfig::VedrixMetricInterface& vedrix = config.vedrixMetricInterface;
  logInfo("vedrixMetricInterface.active %d\n", static_cast<int>(vedrix.active));
  logInfo("schema id %s\n", vedrix.schemaId.c_str());
  logInfo("group id %s\n", vedrix.groupId.c_str());
  logInfo("name %s\n", vedrix.metricKey.name.c_str());
  logInfo("dimensionTag %s\n", vedrix.metricKey.dimensionTag.c_str());
  logInfo("name %s\n", vedrix.metricValue.name.c_str());
  logInfo("dimensionTag %s\n", vedrix.metricValue.dimensionTag.c_str());
}

// Only a file holding the section says anything about it: the mistakes as
// warnings, then one summary line per extension.
void logExtensions(const ExtensionConfig& extensions) {
  if (!extensions.present) {
    return;
  }
  for (const std::string& mistake : extensions.mistakes) {
    __android_log_buf_print(kSystemLogBuffer, ANDROID_LOG_WARN, kTag, "%s\n", mistake.c_str());
  }
  for (const std::string& line : extensions.summaryLines()) {
    logInfo("%s\n", line.c_str());
  }
}

}  // namespace

HalvexConfig& HalvexConfig::instance() {
  static HalvexConfig config;
  return config;
}

bool HalvexConfig::loadConfig(const char* path) {
  __android_log_buf_print(kSystemLogBuffer, ANDROID_LOG_INFO, kTag, "Load JSON config\n\n");
  bool loaded = parseConfig(path) == 0;
  if (!loaded) {
    __android_log_buf_print(kSystemLogBuffer, ANDROID_LOG_ERROR, kTag,
                            "Could not parse config file\n");
  } else {
    logInfo("vedrixConfig.enabled: %d\n", static_cast<int>(vedrixConfig.enabled));
    logInfo("default group id: %s\n", vedrixConfig.defaultGroupId.c_str());
    logInfo("region: %s\n", vedrixConfig.region.c_str());
    for (const auto& entry : monitorConfigs) {
      MonitorConfig config = entry.second;
      logMonitorConfig(config);
    }
    logExtensions(extensions);
  }
  __android_log_buf_print(kSystemLogBuffer, ANDROID_LOG_INFO, kTag, "Load JSON config done\n");
  return loaded;
}

int HalvexConfig::parseConfig(const char* path) {
  // The override replaces the system file outright: with the property set the
  // system file is never read, and a broken override is not papered over by it.
  const char* devicePath = property_get_bool(kOverrideProperty, 0) != 0 ? kOverridePath : path;
  if (devicePath == nullptr) {
    devicePath = "";
  }
  cJSON* root = cJSON_Parse_File(sysrootPath(devicePath).c_str(), 0);
  if (root == nullptr) {
    __android_log_buf_print(kSystemLogBuffer, ANDROID_LOG_ERROR, kTag,
                            "root_json is null %s, malformed json file?\n", devicePath);
    return -1;
  }
  int result = parseJsonData(root);
  cJSON_Delete(root);
  if (result != 0) {
    __android_log_buf_print(kSystemLogBuffer, ANDROID_LOG_ERROR, kTag,
                            "Opening of %s failed, could not parse json\n", devicePath);
  }
  return result;
}

int HalvexConfig::parseJsonData(cJSON* root) {
  resetConfig();

  const cJSON* monitors = findKey(root, "MonitorConfig");
  if (monitors == nullptr) {
    return -1;
  }
  // Not type-checked: an object here is walked member by member like an
  // array, and a string or number has no elements.
  const cJSON* element = nullptr;
  cJSON_ArrayForEach(element, monitors) {
    if (isAbsent(element)) {
      continue;
    }
    MonitorConfig config = readMonitorRecord(element);
    // A later record with the same metric name replaces the earlier one
    // whole; fields are never merged across records.
    monitorConfigs[config.metricName] = config;
  }

  const cJSON* vedrix = findKey(root, "VedrixConfig");
  if (vedrix == nullptr) {
    return -1;
  }
  readBool(vedrix, "Enabled", vedrixConfig.enabled);
  readString(vedrix, "Region", vedrixConfig.region);
  readString(vedrix, "GroupId", vedrixConfig.defaultGroupId);
  extensions = ExtensionConfig::parse(findKey(root, "HalvexExtensions"));
  return 0;
}

const HalvexConfig::MonitorConfig* HalvexConfig::findMonitorConfig(
    const std::string& metricName) const {
  auto found = monitorConfigs.find(metricName);
  return found == monitorConfigs.end() ? nullptr : &found->second;
}

const HalvexConfig::VedrixMetricInterface* HalvexConfig::activeVedrixInterface(
    const std::string& metricName) const {
  const MonitorConfig* record = findMonitorConfig(metricName);
  if (record == nullptr || !record->vedrixMetricInterface.active) {
    return nullptr;
  }
  return &record->vedrixMetricInterface;
}

void HalvexConfig::resetConfig() {
  monitorConfigs.clear();
  vedrixConfig.enabled = false;
  vedrixConfig.defaultGroupId.clear();
  vedrixConfig.region.clear();
  extensions = ExtensionConfig();
}

}  // namespace halvexd
