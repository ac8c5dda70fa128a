#include "tools/decode/StructuredRecordAttributor.h"

namespace halvexd::tools {

StructuredRecordAttributor::StructuredRecordAttributor(const HalvexConfig& config) {
  for (const auto& [name, record] : config.monitorConfigs) {
    const HalvexConfig::VedrixMetricInterface& vedrix = record.vedrixMetricInterface;
    // The header takes the default group id when the record has none.
    const std::string& group =
        vedrix.groupId.empty() ? config.vedrixConfig.defaultGroupId : vedrix.groupId;
    byLabels[{group, vedrix.schemaId}].push_back(&record);
  }
}

const HalvexConfig::MonitorConfig* StructuredRecordAttributor::recordFor(
    const std::string& group, const std::string& schema) const {
  auto found = byLabels.find({group, schema});
  if (found == byLabels.end() || found->second.size() != 1) {
    return nullptr;
  }
  return found->second.front();
}

std::string StructuredRecordAttributor::descriptorNameFor(const HalvexConfig::MonitorConfig& record,
                                                          const std::string& tag) {
  for (const HalvexConfig::VedrixMetric& metric : record.vedrixMetricInterface.metrics) {
    if (metric.dimensionTag == tag) {
      return metric.name;
    }
  }
  return std::string();
}

}  // namespace halvexd::tools
