// HalvexConfig::parseJsonData given any parsed JSON tree, then every loaded
// record used the way the monitors use it: values stored and published under
// its name, through both loggers. Whatever the tree and its strings, the
// model stays consistent and every record written is whole.
#include <cjson/cJSON.h>

#include <algorithm>

#include "config/HalvexConfig.h"
#include "metrics/MetricLogger.h"
#include "metrics/SysHealthMetricLogger.h"
#include "tests/fuzz/FuzzSupport.h"

using halvexd::HalvexConfig;
using namespace halvexd::fuzz;

namespace {

// Publishes under `name` the way a monitor's report does and checks what
// comes out against the record's switches.
void publishUnder(const std::string& name, const HalvexConfig::MonitorConfig& record) {
  const HalvexConfig& config = HalvexConfig::instance();
  const auto& vedrix = record.vedrixMetricInterface;
  const std::string& group = vedrix.groupId.empty() ? config.vedrixConfig.defaultGroupId
                                                    : vedrix.groupId;
  const std::string header = group + ":" + vedrix.schemaId + ":100:";
  const bool structuredOn = config.vedrixConfig.enabled && vedrix.active;

  {
    LogSink log;
    halvexd::MetricLogger plain;
    plain.init(name);
    plain.emitMetricUint64(name + ".count", 7);
    plain.emitMetricDouble(name + ".share", 0.125);
    plain.emitVedrixMetricUint64(name + ".count", 7);
    plain.emitVedrixMetricDouble(name + ".share", 0.125);
    plain.publish(name);

    std::vector<std::string> messages = log.metricMessages();
    size_t next = 0;
    if (record.trazMetricInterface.active) {
      check(!messages.empty(), "no plain record for an active plain interface");
      checkPlainRecord(messages[next++], name + "Tablet", name, 2);
    }
    // One structured record per value, when both dimension tags are set.
    size_t expected = structuredOn && !vedrix.metricKey.dimensionTag.empty() &&
                              !vedrix.metricValue.dimensionTag.empty()
                          ? 2
                          : 0;
    check(messages.size() - next == expected, "wrong number of structured value records");
    for (; next < messages.size(); ++next) {
      checkStructuredRecord(messages[next], header, config.vedrixConfig.region);
    }
  }
  {
    LogSink log;
    halvexd::SysHealthMetricLogger health;
    health.init(name);
    for (const auto& descriptor : vedrix.metrics) {
      health.appendStringToVec(descriptor.name, "v", "|");
    }
    health.emitVedrixMetricPairVec(name);
    health.publish(name);

    // The sample holds no plain value: with the plain interface active the
    // publish writes nothing at all.
    std::vector<std::string> messages = log.metricMessages();
    size_t expected =
        !record.trazMetricInterface.active && structuredOn && !vedrix.metrics.empty() ? 1 : 0;
    check(messages.size() == expected, "wrong number of multi-field records");
    for (const std::string& message : messages) {
      checkStructuredRecord(message, header, config.vedrixConfig.region);
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  cJSON* root = cJSON_ParseWithLength(reinterpret_cast<const char*>(data), size);
  if (root == nullptr) {
    return 0;
  }
  HalvexConfig& config = HalvexConfig::instance();
  int result = config.parseJsonData(root);
  bool complete = cJSON_GetObjectItemCaseSensitive(root, "MonitorConfig") != nullptr &&
                  cJSON_GetObjectItemCaseSensitive(root, "VedrixConfig") != nullptr;
  cJSON_Delete(root);

  check((result == 0) == complete, "result does not follow the top-level keys");
  check(result == 0 || result == -1, "result outside 0 and -1");
  if (result != 0) {
    check(!config.vedrixConfig.enabled && config.vedrixConfig.region.empty(),
          "failed load left structured settings");
  }
  // A name holding "VMPRESSURE" borrows another record; the others are used
  // under their own names. A handful is enough per input.
  size_t used = 0;
  for (const auto& [name, record] : config.monitorConfigs) {
    check(name == record.metricName, "record stored under another name");
    if (name.find("VMPRESSURE") != std::string::npos) {
      continue;
    }
    if (++used > 8) break;
    publishUnder(name, record);
  }
  config.resetConfig();
  return 0;
}
