#include "tests/support/MetricRecords.h"

#include "config/HalvexConfig.h"

namespace halvexd::testing {
namespace {

std::string tail(const std::string& region) {
  return region.empty() ? kDeviceTail : kDeviceTail + ":" + region;
}

std::string header(const std::string& publishName) {
  return "grpA:schema." + publishName + ":100:";
}

}  // namespace

void configureMetricRecord(const std::string& publishName, bool plain, bool vedrix) {
  HalvexConfig::MonitorConfig record;
  record.name = publishName;
  record.metricName = publishName;
  record.active = true;
  record.trazMetricInterface = {"halvexd", plain};
  record.vedrixMetricInterface.schemaId = "schema." + publishName;
  record.vedrixMetricInterface.groupId = "grpA";
  record.vedrixMetricInterface.active = vedrix;
  record.vedrixMetricInterface.metricKey = {"key", "metric", ""};
  record.vedrixMetricInterface.metricValue = {"value", "value", ""};
  HalvexConfig::instance().monitorConfigs[publishName] = record;
}

void configureSystemHealthRecord(const std::string& publishName,
                                 const std::vector<std::string>& fields, bool plain) {
  HalvexConfig::MonitorConfig record;
  record.name = publishName;
  record.metricName = publishName;
  record.trazMetricInterface = {"halvexd", plain};
  record.vedrixMetricInterface.schemaId = "schema." + publishName;
  record.vedrixMetricInterface.groupId = "grpA";
  record.vedrixMetricInterface.active = true;
  for (const auto& field : fields) {
    record.vedrixMetricInterface.metrics.push_back({field, field, "str"});
  }
  HalvexConfig::instance().monitorConfigs[publishName] = record;
}

std::string plainRecord(const std::string& prefix, const std::string& publishName,
                        const std::map<std::string, std::string>& values) {
  std::string record = prefix + ":" + publishName + ":";
  bool first = true;
  for (const auto& [name, value] : values) {
    if (!first) record += ",";
    first = false;
    record += name + "=" + value + ";CT;1";
  }
  return record + ":NR";
}

std::string structuredRecord(const std::string& publishName, const std::string& metricName,
                             const std::string& value, const std::string& region) {
  return header(publishName) + "metric=" + metricName + ";SY,value=" + value + ";IN" +
         tail(region);
}

std::string pairRecord(const std::string& publishName,
                       const std::vector<std::pair<std::string, std::string>>& fields,
                       const std::string& region) {
  std::string body;
  for (const auto& [tag, value] : fields) {
    if (!body.empty()) body += ",";
    body += tag + "=" + value + ";SY";
  }
  return header(publishName) + body + tail(region);
}

std::string systemHealthRecord(const std::string& publishName,
                               const std::vector<std::pair<std::string, std::string>>& fields,
                               const std::string& region) {
  return pairRecord(publishName, fields, region);
}

std::vector<std::string> messagesOf(const std::vector<LogRecord>& records) {
  std::vector<std::string> messages;
  for (const auto& record : records) messages.push_back(record.message);
  return messages;
}

}  // namespace halvexd::testing
