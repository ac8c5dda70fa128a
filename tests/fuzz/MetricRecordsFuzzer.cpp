// The two metric loggers fed emits, appends and publishes chosen by the
// input, under a configuration whose switches, identifiers, tags and types
// come from the input too. Every record written must read back through the
// decoder's parser, and a plain record's entries must be exactly the names
// stored, with ':' and ';' made '_' (they separate a record's fields).
#include <algorithm>
#include <cstring>
#include <set>

#include "config/HalvexConfig.h"
#include "metrics/SysHealthMetricLogger.h"
#include "tests/fuzz/FuzzSupport.h"
#include "tools/decode/MetricRecordParser.h"

using halvexd::HalvexConfig;
using namespace halvexd::fuzz;

namespace {

// Names and configuration strings reach the loggers as C strings. The
// configuration's own strings hold no separator: the parser cannot split a
// record whose labels carry them.
std::string cString(std::string text, const char* drop = "") {
  text.erase(std::remove_if(text.begin(), text.end(),
                            [&](char c) { return c == '\0' || std::strchr(drop, c) != nullptr; }),
             text.end());
  return text;
}
std::string label(ByteReader& in, size_t length) { return cString(in.text(length), ":;,=|\n"); }

void checkWritten(const halvexd::testing::LogCapture& log, std::set<std::string>& plainNames) {
  halvexd::tools::MetricRecordParser parser;
  for (const auto& written : log.metricRecords()) {
    const std::string& message = written.message;
    halvexd::tools::DecodedRecord record;
    std::string error;
    bool parsed = parser.parse(message, record, error);
    check(parsed, error + ": " + message);
    if (record.form != halvexd::tools::StructuredForm::None) continue;
    std::set<std::string> names;
    for (const auto& value : record.values) names.insert(value.metric);
    check(names == plainNames, "plain entries are not the names stored: " + message);
    plainNames.clear();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  ByteReader in(data, size);
  HalvexConfig& config = HalvexConfig::instance();
  config.resetConfig();
  config.vedrixConfig = {in.flag(), label(in, 12), label(in, 12)};  // in this order
  const std::string publishName = label(in, 16);
  if (publishName.empty()) return 0;  // the daemon publishes under no empty name
  auto& record = config.monitorConfigs[publishName];
  record.metricName = publishName;
  record.trazMetricInterface.active = in.flag();
  auto& vedrix = record.vedrixMetricInterface;
  vedrix.active = in.flag();
  vedrix.groupId = label(in, 12);
  vedrix.schemaId = label(in, 12);
  vedrix.metricKey.dimensionTag = label(in, 8);
  vedrix.metricValue.dimensionTag = label(in, 8);
  const char* const types[] = {"str", "int", "float", "bool", "ts", "", "double"};
  for (int n = in.byte() % 5; n > 0; --n) {
    std::string name = label(in, 10), tag = label(in, 8);
    uint8_t type = in.byte();
    std::string typeName = type < 224 ? types[type % 7] : label(in, 6);
    if (!tag.empty()) vedrix.metrics.push_back({name, tag, typeName});  // a field needs its tag
  }
  halvexd::MetricLogger plain;
  halvexd::SysHealthMetricLogger health;
  plain.init(label(in, 16));
  health.init("Health");
  std::set<std::string> plainNames;  // as they must come out
  while (!in.empty()) {
    uint8_t op = in.byte() % 8;
    // Names holding ',' or '=' cannot be told from the values around them.
    std::string name = op < 4 ? cString(in.text(24), ",=") : "";
    std::string sanitised = name;
    for (char& c : sanitised) c = c == ':' || c == ';' ? '_' : c;
    if (op < 4 && name.empty()) continue;
    switch (op) {
      case 0: plain.emitMetricUint64(name, in.number()); plainNames.insert(sanitised); break;
      case 1: plain.emitMetricDouble(name, in.real()); plainNames.insert(sanitised); break;
      case 2: plain.emitVedrixMetricUint64(name, in.number()); break;
      case 3: plain.emitVedrixMetricDouble(name, in.real()); break;
      case 4: {
        bool named = in.flag() && !vedrix.metrics.empty();
        std::string key = named ? vedrix.metrics[in.byte() % vedrix.metrics.size()].name : label(in, 10);
        std::string value = label(in, 16);
        health.appendStringToVec(key, value, label(in, 2));
        break;
      }
      case 5: {
        std::string keys = label(in, 10), prefix = label(in, 8), percentile = label(in, 24);
        std::string values = label(in, 10);
        health.appendPercentileToVec(keys, prefix, percentile, values, label(in, 8));
        break;
      }
      case 6: health.emitVedrixMetricPairVec(label(in, 10)); break;
      default: {
        halvexd::testing::LogCapture log;
        plain.publish(publishName);
        health.publish(publishName);
        checkWritten(log, plainNames);
      }
    }
  }
  config.resetConfig();
  return 0;
}
