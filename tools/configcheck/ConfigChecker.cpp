#include "tools/configcheck/ConfigChecker.h"

#include <algorithm>
#include <map>
#include <set>

#include "config/HalvexConfig.h"
#include "metrics/MetricLogger.h"
#include "metrics/RecordVocabulary.h"
#include "metrics/SysHealthMetricLogger.h"

namespace halvexd::tools {
namespace {

const HalvexConfig::MonitorConfig* recordOf(const std::string& name) {
  return HalvexConfig::instance().findMonitorConfig(name);
}

std::string labelsOf(const HalvexConfig::MonitorConfig& record) {
  const HalvexConfig& config = HalvexConfig::instance();
  const std::string& group = record.vedrixMetricInterface.groupId.empty()
                                 ? config.vedrixConfig.defaultGroupId
                                 : record.vedrixMetricInterface.groupId;
  return "group \"" + group + "\", schema \"" + record.vedrixMetricInterface.schemaId + "\"";
}

// Sample values for the fields of a multi-field record; only whether each
// field finds its descriptor matters here.
MetricLogger::FieldVector sampleFields(const std::vector<std::string>& names) {
  MetricLogger::FieldVector fields;
  for (const std::string& name : names) fields.emplace_back(name, "x");
  return fields;
}

// True when an extension switches the publish and is off; its findings then
// say so. A file without the extensions section hears nothing of them.
bool extensionOff(const PublishNameUse& use, std::vector<ConfigChecker::Finding>& findings) {
  if (use.extension.empty()) return false;
  const ExtensionConfig& extensions = HalvexConfig::instance().extensions;
  if (extensions.isActive(use.extension)) return false;
  if (extensions.present) {
    findings.push_back(
        {use.publishName,
         use.monitor,
         "records",
         false,
         "extension off (\"HalvexExtensions\" \"" + use.extension + "\" \"Active\" is not true)",
         {}});
  }
  return true;
}

}  // namespace

ConfigChecker::Finding ConfigChecker::plainRecord(const PublishNameUse& use) {
  Finding finding{use.publishName, use.monitor, "plain record", false, "", {}};
  MetricLogger logger;
  const HalvexConfig::MonitorConfig* record = logger.getMonitorConfig(use.publishName);
  if (record == nullptr) {
    finding.detail = "no configuration record \"" + use.publishName + "\"";
  } else if (!record->trazMetricInterface.active) {
    finding.detail = "plain interface inactive (\"TRAZ_Metric_Interface\" \"Active\" is not true)";
  } else {
    finding.written = true;
    finding.detail = "as \"" + use.monitor + records::kDeviceSuffix + ":" + use.publishName +
                     ":..." + records::kPlainEnding + "\"";
  }
  return finding;
}

bool ConfigChecker::structuredGatesOpen(const PublishNameUse& use, Finding& finding) {
  const HalvexConfig::MonitorConfig* record = recordOf(use.publishName);
  if (record == nullptr) {
    finding.detail = "no configuration record \"" + use.publishName + "\"";
    return false;
  }
  if (!HalvexConfig::instance().vedrixConfig.enabled) {
    finding.detail = "structured service disabled (\"VedrixConfig\" \"Enabled\" is not true)";
    return false;
  }
  if (!record->vedrixMetricInterface.active) {
    finding.detail =
        "Vedrix interface inactive (\"Vedrix_Metric_Interface\" \"Active\" is not true)";
    return false;
  }
  return true;
}

void ConfigChecker::judgeBody(const std::string& body, Finding& finding) {
  if (body.empty()) {
    finding.detail = "no descriptor matches a field the monitor sends, so the body is empty";
    return;
  }
  finding.written = true;
  finding.detail = labelsOf(*recordOf(finding.publishName));
  if (body.back() == ',') {
    finding.warnings.push_back(
        "the last field is left out, so the body ends in a comma before the device fields");
  }
}

ConfigChecker::Finding ConfigChecker::singleValueRecords(const PublishNameUse& use) {
  Finding finding{use.publishName, use.monitor, "structured single-value records", false, "", {}};
  if (!structuredGatesOpen(use, finding)) return finding;
  MetricLogger logger;
  logger.buildVedrixMetricHeaderString(use.publishName);
  // The body needs both tags the header loads; a value of 1 stands for any.
  if (logger.buildVedrixMetricBodyString<uint64_t>("m", 1, "int").empty()) {
    const HalvexConfig::VedrixMetricInterface& vedrix =
        recordOf(use.publishName)->vedrixMetricInterface;
    finding.detail = vedrix.metricKey.dimensionTag.empty()
                         ? "\"Metric_Key\" has no \"DimensionTag\", so every body is empty"
                         : "\"Metric_Value\" has no \"DimensionTag\", so every body is empty";
    return finding;
  }
  finding.written = true;
  finding.detail = labelsOf(*recordOf(use.publishName));
  return finding;
}

ConfigChecker::Finding ConfigChecker::positionalFieldRecords(const PublishNameUse& use) {
  Finding finding{use.publishName, use.monitor, "structured multi-field records", false, "", {}};
  if (!structuredGatesOpen(use, finding)) return finding;
  const std::vector<HalvexConfig::VedrixMetric>& descriptors =
      recordOf(use.publishName)->vedrixMetricInterface.metrics;
  if (descriptors.size() != use.fields.size()) {
    finding.detail = std::to_string(use.fields.size()) + " fields sent, " +
                     std::to_string(descriptors.size()) +
                     " descriptors configured: fields are matched by position, so the counts "
                     "must be equal";
    return finding;
  }
  for (size_t i = 0; i < use.fields.size(); ++i) {
    if (descriptors[i].name != use.fields[i]) {
      finding.warnings.push_back("descriptor missing for field \"" + use.fields[i] +
                                 "\": position " + std::to_string(i + 1) + " is described as \"" +
                                 descriptors[i].name + "\", so the field is left out");
    }
  }
  MetricLogger logger;
  MetricLogger::FieldVector fields = sampleFields(use.fields);
  judgeBody(logger.buildVedrixMetricVecBodyString(fields, use.publishName), finding);
  return finding;
}

ConfigChecker::Finding ConfigChecker::systemHealthRecord(const PublishNameUse& use) {
  Finding finding{use.publishName, use.monitor, "structured system-health record", false, "", {}};
  MetricLogger logger;
  const HalvexConfig::MonitorConfig* record = logger.getMonitorConfig(use.publishName);
  if (record != nullptr && record->trazMetricInterface.active) {
    // The publish writes the plain record first and stops when the logger
    // holds no plain values, which a system-health logger never does.
    finding.detail = "plain interface active (\"TRAZ_Metric_Interface\" \"Active\" is true): a "
                     "system-health record is written only while it is inactive";
    return finding;
  }
  if (!structuredGatesOpen(use, finding)) return finding;
  std::set<std::string> described;
  for (const auto& descriptor : record->vedrixMetricInterface.metrics) {
    described.insert(descriptor.name);
  }
  for (const std::string& field : use.fields) {
    if (described.count(field) == 0) {
      finding.warnings.push_back("descriptor missing for field \"" + field +
                                 "\", so the field is left out");
    }
  }
  SysHealthMetricLogger healthLogger;
  MetricLogger::FieldVector fields = sampleFields(use.fields);
  judgeBody(healthLogger.buildVedrixMetricVecBodyString(fields, use.publishName), finding);
  return finding;
}

ConfigChecker::Report ConfigChecker::check() {
  Report report;
  std::set<std::string> published;
  std::map<std::string, std::string> switchedOff;
  for (const PublishNameUse& use : daemonPublishNames()) {
    if (extensionOff(use, report.findings)) {
      switchedOff[use.publishName] = use.extension;
      continue;
    }
    published.insert(use.publishName);
    switch (use.kind) {
      case PublishNameUse::Kind::Values:
        report.findings.push_back(plainRecord(use));
        report.findings.push_back(singleValueRecords(use));
        break;
      case PublishNameUse::Kind::ValuesWithPositionalFields:
        report.findings.push_back(plainRecord(use));
        report.findings.push_back(positionalFieldRecords(use));
        break;
      case PublishNameUse::Kind::SystemHealth:
        report.findings.push_back(systemHealthRecord(use));
        break;
    }
  }

  std::vector<std::string> configured;
  for (const auto& entry : HalvexConfig::instance().monitorConfigs) {
    configured.push_back(entry.first);
  }
  std::sort(configured.begin(), configured.end());
  for (const std::string& name : configured) {
    auto off = switchedOff.find(name);
    if (off != switchedOff.end()) {
      report.silentNames.push_back(
          {name, "its extension \"" + off->second + "\" of \"HalvexExtensions\" is not active"});
      continue;
    }
    if (published.count(name) == 0) {
      std::string reason = name.empty() ? "a record without \"MetricName\": the daemon publishes "
                                          "under no empty name"
                                        : "the daemon publishes under no such name";
      if (name.find("VMPRESSURE") != std::string::npos) {
        reason += " (every name containing \"VMPRESSURE\" would share the one \"VMPRESSURE\" "
                  "record for its plain record, but the daemon publishes none)";
      }
      report.silentNames.push_back({name, reason});
      continue;
    }
    bool any = std::any_of(report.findings.begin(), report.findings.end(),
                           [&](const Finding& f) { return f.publishName == name && f.written; });
    if (!any) {
      report.silentNames.push_back({name, "no record of any kind is written under it"});
    }
  }
  return report;
}

std::string ConfigChecker::loadFailureWarning(const std::string& error) {
  return "warning: " + error;
}

int ConfigChecker::print(const Report& report, std::ostream& out) {
  const HalvexConfig::VedrixConfig& vedrix = HalvexConfig::instance().vedrixConfig;
  out << "structured service: " << (vedrix.enabled ? "enabled" : "disabled") << ", region \""
      << vedrix.region << "\", default group \"" << vedrix.defaultGroupId << "\"\n";
  std::string heading;
  for (const Finding& finding : report.findings) {
    std::string next = finding.publishName + " (" + finding.monitor + ")";
    if (next != heading) {
      out << next << "\n";
      heading = next;
    }
    out << "  " << finding.recordKind << ": " << (finding.written ? "written, " : "not written: ")
        << finding.detail << "\n";
    for (const std::string& warning : finding.warnings) {
      out << "  " << finding.recordKind << ": warning: " << warning << "\n";
    }
  }
  const bool extensionsClean = printExtensions(out);
  if (report.silentNames.empty()) {
    out << "every configured name writes records\n";
    return extensionsClean ? 0 : 1;
  }
  for (const SilentName& silent : report.silentNames) {
    out << "configured name \"" << silent.name << "\" writes nothing: " << silent.reason << "\n";
  }
  return 1;
}

bool ConfigChecker::printExtensions(std::ostream& out) {
  const ExtensionConfig& extensions = HalvexConfig::instance().extensions;
  if (!extensions.present) return true;
  out << "HalvexExtensions\n";
  for (const std::string& line : extensions.summaryLines()) out << "  " << line << "\n";
  for (const std::string& mistake : extensions.mistakes) out << "  warning: " << mistake << "\n";
  return extensions.mistakes.empty();
}

}  // namespace halvexd::tools
