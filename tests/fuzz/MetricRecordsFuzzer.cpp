// The record builders given arbitrary metric names, values and configuration
// strings: a monitor's two loggers fed a sequence of emits, appends and
// publishes chosen by the input, against a configuration whose identifiers,
// tags, types and region come from the input too. Every record written must
// be whole (plain records end with ":NR", structured ones with the device
// fields and the region), no plain entry may carry a field separator, and the
// number of records must follow the publish rules.
#include <algorithm>
#include <map>
#include <set>
#include <string>

#include "config/HalvexConfig.h"
#include "metrics/MetricLogger.h"
#include "metrics/SysHealthMetricLogger.h"
#include "tests/fuzz/FuzzSupport.h"

using halvexd::HalvexConfig;
using namespace halvexd::fuzz;

namespace {

// Metric and process names reach the loggers as C strings (process names
// from fixed character arrays, configuration strings from cJSON), so they
// never hold a zero byte.
std::string cString(std::string text) {
  text.erase(std::remove(text.begin(), text.end(), '\0'), text.end());
  return text;
}

std::string sanitised(std::string name) {
  for (char& c : name) {
    if (c == ':' || c == ';') c = '_';
  }
  return name;
}

std::string typeName(ByteReader& in) {
  static const char* const kTypes[] = {"str", "int", "float", "bool", "ts", "", "double"};
  uint8_t choice = in.byte();
  if (choice < 7 * 32) return kTypes[choice % 7];
  return cString(in.text(6));
}

// What the loggers hold, as far as the record count depends on it.
struct Expected {
  std::set<std::string> plainUint64, plainDouble, vedrixUint64, vedrixDouble;
  std::map<std::string, std::set<std::string>> samples;  // field keys of each stored sample
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  ByteReader in(data, size);
  HalvexConfig& config = HalvexConfig::instance();
  config.resetConfig();
  config.vedrixConfig.enabled = in.flag();
  config.vedrixConfig.region = cString(in.text(12));
  config.vedrixConfig.defaultGroupId = cString(in.text(12));

  const std::string publishName = cString(in.text(16));
  HalvexConfig::MonitorConfig& record = config.monitorConfigs[publishName];
  record.metricName = publishName;
  record.trazMetricInterface.active = in.flag();
  auto& vedrix = record.vedrixMetricInterface;
  vedrix.active = in.flag();
  vedrix.groupId = cString(in.text(12));
  vedrix.schemaId = cString(in.text(12));
  vedrix.metricKey.dimensionTag = cString(in.text(8));
  vedrix.metricValue.dimensionTag = cString(in.text(8));
  std::set<std::string> descriptorNames;
  for (int n = in.byte() % 5; n > 0; --n) {
    HalvexConfig::VedrixMetric metric;
    metric.name = cString(in.text(10));
    metric.dimensionTag = cString(in.text(8));
    metric.type = typeName(in);
    descriptorNames.insert(metric.name);
    vedrix.metrics.push_back(metric);
  }
  // The configuration lookup folds every name holding this into one record.
  if (publishName.find("VMPRESSURE") != std::string::npos) {
    config.resetConfig();
    return 0;
  }
  const std::string ownerName = cString(in.text(16));
  const std::string& group = vedrix.groupId.empty() ? config.vedrixConfig.defaultGroupId
                                                    : vedrix.groupId;
  const std::string header = group + ":" + vedrix.schemaId + ":100:";
  const bool structuredOn = config.vedrixConfig.enabled && vedrix.active;
  const bool tagsSet = !vedrix.metricKey.dimensionTag.empty() &&
                       !vedrix.metricValue.dimensionTag.empty();

  halvexd::MetricLogger plain;
  halvexd::SysHealthMetricLogger health;
  plain.init(ownerName);
  health.init(ownerName);
  Expected model;
  LogSink log;

  while (!in.empty()) {
    switch (in.byte() % 8) {
      case 0: {
        std::string name = cString(in.text(24));
        plain.emitMetricUint64(name, in.number());
        model.plainUint64.insert(sanitised(name));
        break;
      }
      case 1: {
        std::string name = cString(in.text(24));
        plain.emitMetricDouble(name, in.real());
        model.plainDouble.insert(sanitised(name));
        break;
      }
      case 2: {
        std::string name = cString(in.text(24));
        plain.emitVedrixMetricUint64(name, in.number());
        model.vedrixUint64.insert(sanitised(name));
        break;
      }
      case 3: {
        std::string name = cString(in.text(24));
        plain.emitVedrixMetricDouble(name, in.real());
        model.vedrixDouble.insert(sanitised(name));
        break;
      }
      case 4: {
        std::string key = in.flag() && !vedrix.metrics.empty()
                              ? vedrix.metrics[in.byte() % vedrix.metrics.size()].name
                              : cString(in.text(10));
        std::string value = cString(in.text(16));
        health.appendStringToVec(key, value, cString(in.text(2)));
        break;
      }
      case 5: {
        std::string keysKey = cString(in.text(10));
        std::string prefix = cString(in.text(8));
        std::string percentile = cString(in.text(24));
        std::string valuesKey = cString(in.text(10));
        std::string value = cString(in.text(8));
        health.appendPercentileToVec(keysKey, prefix, percentile, valuesKey, value);
        break;
      }
      case 6: {
        std::string sample = cString(in.text(10));
        std::set<std::string> keys;
        for (const auto& field : health.buildVector()) keys.insert(field.first);
        health.emitVedrixMetricPairVec(sample);
        model.samples[sample] = keys;
        break;
      }
      default: {
        log.clear();
        plain.publish(publishName);
        std::vector<std::string> messages = log.metricMessages();
        size_t next = 0;
        size_t plainEntries = model.plainUint64.size() + model.plainDouble.size();
        bool plainOn = record.trazMetricInterface.active;
        if (plainOn) {
          if (plainEntries > 0) {
            check(!messages.empty(), "plain record missing");
            checkPlainRecord(messages[next++], ownerName + "Tablet", publishName, plainEntries);
          }
          model.plainUint64.clear();
          model.plainDouble.clear();
        }
        size_t structured = 0;
        if (config.vedrixConfig.enabled && (!plainOn || plainEntries > 0)) {
          if (vedrix.active) {
            if (tagsSet) structured = model.vedrixUint64.size() + model.vedrixDouble.size();
            model.vedrixUint64.clear();
            model.vedrixDouble.clear();
          }
        }
        check(messages.size() - next == structured, "wrong number of structured value records");
        for (; next < messages.size(); ++next) {
          checkStructuredRecord(messages[next], header, config.vedrixConfig.region);
        }

        // The system-health logger never holds plain values.
        log.clear();
        health.publish(publishName);
        messages = log.metricMessages();
        size_t samples = 0;
        if (!plainOn && structuredOn) {
          for (const auto& [name, keys] : model.samples) {
            for (const auto& key : keys) {
              if (descriptorNames.count(key) != 0) {
                ++samples;
                break;
              }
            }
          }
        }
        if (!plainOn && config.vedrixConfig.enabled && vedrix.active) model.samples.clear();
        check(messages.size() == samples, "wrong number of multi-field records");
        for (const auto& message : messages) {
          checkStructuredRecord(message, header, config.vedrixConfig.region);
        }
        break;
      }
    }
  }
  config.resetConfig();
  return 0;
}
