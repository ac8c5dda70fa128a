#include "metrics/MetricLogger.h"

#include <locale>
#include <sstream>

#include "metrics/RecordVocabulary.h"
#include "platform/LogBuffers.h"

namespace halvexd {
namespace {

// Every configuration record whose publish name contains this shares the one
// record of this name.
const std::string kVmpressureName = "VMPRESSURE";

// ':' and ';' separate the fields of a record, so a name must not carry them.
std::string sanitiseMetricName(const std::string& name) {
  std::string copy = name;
  for (char& c : copy) {
    if (c == ':') c = '_';
  }
  for (char& c : copy) {
    if (c == ';') c = '_';
  }
  return copy;
}

// Default stream formatting (six significant digits, fixed or exponent form
// as %g chooses) in the classic locale, whatever the process locale is: the
// collecting service parses these bytes.
//
// One stream per thread, emptied for each use: making a stream and giving it
// the classic locale costs more than formatting a whole record. Nothing
// changes its flags or precision, and each use takes its text out before the
// next one begins.
std::ostringstream& recordStream() {
  thread_local std::ostringstream out = [] {
    std::ostringstream stream;
    stream.imbue(std::locale::classic());
    return stream;
  }();
  out.str(std::string());
  out.clear();
  return out;
}

}  // namespace

std::string addDeviceTypeIdentifierSuffix(std::string name) { return name + records::kDeviceSuffix; }

bool MetricLogger::init(std::string name) {
  recordPrefix = addDeviceTypeIdentifierSuffix(std::move(name));
  return true;
}

void MetricLogger::emitMetricDouble(const std::string& name, double value) {
  metricsDouble[sanitiseMetricName(name)] = value;
}

void MetricLogger::emitMetricUint64(const std::string& name, unsigned long value) {
  metricsUint64[sanitiseMetricName(name)] = value;
}

void MetricLogger::emitVedrixMetricDouble(const std::string& name, double value) {
  vedrixMetricsDouble[sanitiseMetricName(name)] = value;
}

void MetricLogger::emitVedrixMetricUint64(const std::string& name, unsigned long value) {
  vedrixMetricsUint64[sanitiseMetricName(name)] = value;
}

void MetricLogger::emitVedrixMetricPairVec(const std::string& name, FieldVector& fields) {
  FieldVector& stored = vedrixMetricsPairVec[name];
  if (&stored != &fields) {
    stored = fields;
  }
}

const HalvexConfig::MonitorConfig* MetricLogger::getMonitorConfig(const std::string& name) {
  const bool vmpressure = name.find(kVmpressureName) != std::string::npos;
  return HalvexConfig::instance().findMonitorConfig(vmpressure ? kVmpressureName : name);
}

void MetricLogger::publish(const std::string& name) { uploadZelMetric(name); }

std::string MetricLogger::vedrixTypeTag(const std::string& type) {
  if (type == "str") return records::kStringTag;
  if (type == "int") return records::kIntegerTag;
  if (type == "float") return records::kFloatTag;
  if (type == "bool") return records::kBooleanTag;
  if (type == "ts") return records::kTimeTag;
  return std::string();
}

std::string MetricLogger::buildVedrixMetricHeaderString(const std::string& monitorName) {
  const HalvexConfig& config = HalvexConfig::instance();
  const HalvexConfig::VedrixMetricInterface* vedrix = config.activeVedrixInterface(monitorName);
  if (vedrix == nullptr) {
    return std::string();
  }
  const std::string& groupId =
      vedrix->groupId.empty() ? config.vedrixConfig.defaultGroupId : vedrix->groupId;
  std::string header = groupId + ":" + vedrix->schemaId + records::kStructuredHeaderEnding;
  vedrixKeyTag = vedrix->metricKey.dimensionTag;
  vedrixValueTag = vedrix->metricValue.dimensionTag;
  return header;
}

template <typename T>
std::string MetricLogger::buildVedrixMetricBodyString(const std::string& name, T value,
                                                      const std::string& type) {
  if (vedrixKeyTag.empty() || vedrixValueTag.empty()) {
    return std::string();
  }
  std::ostringstream& body = recordStream();
  body << vedrixKeyTag << "=" << name << records::kStringTag
       << "," << vedrixValueTag << "=" << value << vedrixTypeTag(type);
  return body.str();
}

template std::string MetricLogger::buildVedrixMetricBodyString<uint64_t>(const std::string&,
                                                                         uint64_t,
                                                                         const std::string&);
template std::string MetricLogger::buildVedrixMetricBodyString<double>(const std::string&, double,
                                                                       const std::string&);

std::string MetricLogger::buildVedrixMetricVecBodyString(FieldVector& fields,
                                                         const std::string& monitorName) {
  const HalvexConfig::VedrixMetricInterface* vedrix =
      HalvexConfig::instance().activeVedrixInterface(monitorName);
  if (vedrix == nullptr) {
    return std::string();
  }
  const std::vector<HalvexConfig::VedrixMetric>& metrics = vedrix->metrics;
  if (fields.empty() || fields.size() != metrics.size()) {
    return std::string();
  }
  std::string body;
  for (size_t i = 0; i < fields.size(); ++i) {
    if (fields[i].first != metrics[i].name) {
      continue;
    }
    body += metrics[i].dimensionTag + "=" + fields[i].second + vedrixTypeTag(metrics[i].type);
    // The comma follows the position, not what was written: a left-out last
    // field leaves the comma after the one before it.
    if (i + 1 != fields.size()) {
      body += ",";
    }
  }
  return body;
}

std::string MetricLogger::buildVedrixMetricTailString() {
  if (!vedrixTailString.empty()) {
    return vedrixTailString;
  }
  std::string tail = records::deviceFieldsText();
  const std::string& region = HalvexConfig::instance().vedrixConfig.region;
  if (!region.empty()) {
    tail += records::kRegionSeparator + region;
  }
  vedrixTailString = tail;
  return tail;
}

void MetricLogger::uploadZelMetric(const std::string& name) {
  const HalvexConfig::MonitorConfig* config = getMonitorConfig(name);
  if (config != nullptr && config->trazMetricInterface.active) {
    bool first = true;
    std::string body = formatTrazMetricMap(metricsInt, first);
    body += formatTrazMetricMap(metricsDouble, first);
    body += formatTrazMetricMap(metricsUint64, first);
    // A report without plain values writes nothing at all, not even the
    // structured records that are waiting: they go out with the next report
    // that has plain values.
    if (body.empty()) {
      return;
    }
    writeRecord(recordPrefix + ":" + name + ":" + body + records::kPlainEnding);
  }
  if (HalvexConfig::instance().vedrixConfig.enabled) {
    uploadZelVedrixMetric(name);
  }
}

void MetricLogger::uploadZelVedrixMetric(const std::string& name) {
  uploadVedrixMetricMap(vedrixMetricsUint64, name, "int");
  uploadVedrixMetricMap(vedrixMetricsDouble, name, "float");
  buildVedrixMetricVec(vedrixMetricsPairVec, name);
}

template <typename Store, typename BodyOf>
void MetricLogger::writeStructuredStore(Store& store, const std::string& monitorName,
                                        BodyOf bodyOf) {
  if (store.empty()) {
    return;
  }
  std::string header = buildVedrixMetricHeaderString(monitorName);
  std::string tail = buildVedrixMetricTailString();
  if (header.empty() || tail.empty()) {
    forgetVedrixRecordPieces();
    return;
  }
  for (auto& entry : store) {
    std::string body = bodyOf(entry);
    if (!body.empty()) {
      writeRecord(header + body + tail);
    }
  }
  store.clear();
}

void MetricLogger::buildVedrixMetricVec(std::map<std::string, FieldVector>& store,
                                        const std::string& monitorName) {
  // The body comes from the logger's own kind: the system-health logger
  // matches fields by name.
  writeStructuredStore(store, monitorName, [&](std::pair<const std::string, FieldVector>& entry) {
    return this->buildVedrixMetricVecBodyString(entry.second, monitorName);
  });
}

template <typename T>
std::string MetricLogger::formatTrazMetricMap(std::map<std::string, T>& store, bool& first) {
  std::ostringstream& entries = recordStream();
  for (const auto& entry : store) {
    if (!first) {
      entries << ",";
    }
    first = false;
    entries << entry.first << "=" << entry.second << records::kPlainEntryEnding;
  }
  store.clear();
  return entries.str();
}

template <typename T>
void MetricLogger::uploadVedrixMetricMap(std::map<std::string, T>& store,
                                         const std::string& monitorName, const std::string& type) {
  writeStructuredStore(store, monitorName, [&](const std::pair<const std::string, T>& entry) {
    return buildVedrixMetricBodyString<T>(entry.first, entry.second, type);
  });
}

void MetricLogger::forgetVedrixRecordPieces() {
  vedrixTailString.clear();
  vedrixKeyTag.clear();
  vedrixValueTag.clear();
}

void MetricLogger::writeRecord(const std::string& record) {
  __android_log_buf_print(kMetricsLogBuffer, ANDROID_LOG_INFO, records::kMetricsTag, "%s", record.c_str());
}

}  // namespace halvexd
