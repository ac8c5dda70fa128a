#include "metrics/SysHealthMetricLogger.h"

#include <unordered_map>

#include "metrics/RecordVocabulary.h"

namespace halvexd {
namespace {

// Percentile metric names end in one of these; the upper-case form is what
// goes into the key list.
const std::string kPercentileSuffixes[] = {".P50", ".P90", ".P99"};

std::string asciiLower(const std::string& text) {
  std::string lower = text;
  for (char& c : lower) {
    if (c >= 'A' && c <= 'Z') {
      c = static_cast<char>(c - 'A' + 'a');
    }
  }
  return lower;
}

}  // namespace

void SysHealthMetricLogger::appendUint64ToVec(const std::string& key, unsigned long value) {
  vecFields[key] = std::to_string(value);
}

void SysHealthMetricLogger::appendStringToVec(const std::string& key, const std::string& value,
                                              const std::string& separator) {
  auto found = vecFields.find(key);
  if (found == vecFields.end()) {
    vecFields[key] = value;
  } else {
    found->second += separator + value;
  }
}

void SysHealthMetricLogger::appendPercentileToVec(const std::string& keysKey,
                                                  const std::string& prefix,
                                                  const std::string& percentileName,
                                                  const std::string& valuesKey,
                                                  const std::string& value) {
  if (percentileName.empty()) {
    return;
  }
  const std::string lower = asciiLower(percentileName);
  for (const std::string& suffix : kPercentileSuffixes) {
    const std::string lowerSuffix = asciiLower(suffix);
    if (lower.size() < lowerSuffix.size() ||
        lower.find(lowerSuffix) != lower.size() - lowerSuffix.size()) {
      continue;
    }
    appendStringToVec(keysKey, prefix + suffix, records::kFieldSeparator);
    appendStringToVec(valuesKey, value, records::kFieldSeparator);
    return;
  }
}

MetricLogger::FieldVector SysHealthMetricLogger::buildVector() {
  return FieldVector(vecFields.begin(), vecFields.end());
}

void SysHealthMetricLogger::emitVedrixMetricPairVec(const std::string& name) {
  FieldVector fields = buildVector();
  MetricLogger::emitVedrixMetricPairVec(name, fields);
  vecFields.clear();
}

std::string SysHealthMetricLogger::buildVedrixMetricVecBodyString(FieldVector& fields,
                                                                  const std::string& monitorName) {
  const HalvexConfig::VedrixMetricInterface* vedrix =
      HalvexConfig::instance().activeVedrixInterface(monitorName);
  if (vedrix == nullptr) {
    return std::string();
  }
  std::unordered_map<std::string, HalvexConfig::VedrixMetric> descriptors;
  for (const HalvexConfig::VedrixMetric& metric : vedrix->metrics) {
    descriptors[metric.name] = metric;
  }
  if (fields.empty()) {
    return std::string();
  }
  std::string body;
  for (size_t i = 0; i < fields.size(); ++i) {
    auto descriptor = descriptors.find(fields[i].first);
    if (descriptor == descriptors.end()) {
      continue;
    }
    body += descriptor->second.dimensionTag + "=" + fields[i].second +
            vedrixTypeTag(descriptor->second.type);
    // As in the positional form, a left-out last field leaves a trailing comma.
    if (i + 1 != fields.size()) {
      body += ",";
    }
  }
  return body;
}

}  // namespace halvexd
