#include "tools/MetricRecordParser.h"

#include "metrics/MetricLogger.h"

#include <cctype>
#include <locale>
#include <map>
#include <set>
#include <sstream>
#include <utility>
#include <vector>

#include "tools/DaemonPublishNames.h"

namespace halvexd::tools {

const char* const kStructuredRecordDeviceFields =
    ",_softwareVersion=;SY,_deviceType=;SY,_platform=;SY,_model=;SY,_buildType=;SY,"
    "_marketPlaceId=;SY,_countryOfResidence=;SY,_deviceLanguage=;SY,_otaGroupName=;SY,"
    "_timeZone=;SY,_deviceId=;SY,_customerId=;SY,_hardware=;SY";

namespace {

const std::string kPlainEnding = ":NR";
const std::string kPlainEntryEnding = ";CT;1";
const std::string kHeaderEnding = ":100:";
const std::string kDeviceSuffix = "Tablet";

// Type tags a structured value may end with; the letters are what the
// decoder reports.
const char* const kTypeTags[] = {";SY", ";IN", ";FL", ";BO", ";TI"};

bool endsWith(const std::string& text, const std::string& ending) {
  return text.size() >= ending.size() &&
         text.compare(text.size() - ending.size(), ending.size(), ending) == 0;
}

// The tag letters when `text` ends in a type tag, else empty.
std::string typeTagAtEnd(const std::string& text) {
  for (const char* tag : kTypeTags) {
    if (endsWith(text, tag)) return std::string(tag + 1);
  }
  return std::string();
}

bool isTypeTagAt(const std::string& text, size_t at) {
  for (const char* tag : kTypeTags) {
    if (text.compare(at, 3, tag) == 0) return true;
  }
  return false;
}

// Long texts are cut in messages: a reader wants to see where, not all.
std::string quoted(const std::string& text) {
  const size_t kShown = 60;
  if (text.size() <= kShown) return "\"" + text + "\"";
  return "\"" + text.substr(0, kShown) + "...\"";
}

bool allDigits(const std::string& text, size_t from, size_t to) {
  if (from >= to) return false;
  for (size_t i = from; i < to; ++i) {
    if (!std::isdigit(static_cast<unsigned char>(text[i]))) return false;
  }
  return true;
}

}  // namespace

bool MetricRecordParser::isUnsignedDecimal(const std::string& text) {
  if (!allDigits(text, 0, text.size())) return false;
  if (text.size() > 1 && text[0] == '0') return false;
  // At most what a uint64 holds.
  const std::string kMax = "18446744073709551615";
  return text.size() < kMax.size() || (text.size() == kMax.size() && text <= kMax);
}

bool MetricRecordParser::isStreamDouble(const std::string& text) {
  if (text == "nan" || text == "-nan" || text == "inf" || text == "-inf") return true;
  // Only digits, one sign, '.', 'e' and '+' can appear; anything else (hex,
  // "infinity", blanks) is refused before the round trip.
  if (text.empty() || text.size() > 32) return false;
  for (char c : text) {
    if (!std::isdigit(static_cast<unsigned char>(c)) && c != '-' && c != '+' && c != '.' &&
        c != 'e') {
      return false;
    }
  }
  std::istringstream in(text);
  in.imbue(std::locale::classic());
  double value = 0;
  in >> value;
  if (in.fail() || in.peek() != std::char_traits<char>::eof()) return false;
  // What the daemon's stream writes for that double must be the text itself.
  std::ostringstream out;
  out.imbue(std::locale::classic());
  out << value;
  return out.str() == text;
}

bool MetricRecordParser::isRecordNumber(const std::string& text) {
  return isUnsignedDecimal(text) || isStreamDouble(text);
}

bool MetricRecordParser::parse(const std::string& message, DecodedRecord& record,
                               std::string& error) const {
  record = DecodedRecord();
  // The device fields come last in every structured record; a process name
  // inside the body could hold anything, so the last occurrence counts.
  size_t tailAt = message.rfind(kStructuredRecordDeviceFields);
  if (tailAt != std::string::npos) {
    return parseStructured(message, tailAt, record, error);
  }
  if (endsWith(message, kPlainEnding)) {
    return parsePlain(message, record, error);
  }
  if (message.find(",_softwareVersion=") != std::string::npos) {
    error = "structured record whose device fields are incomplete or out of order";
  } else {
    error = "neither a plain record (ending in \":NR\") nor a structured record (ending in the "
            "device fields)";
  }
  return false;
}

bool MetricRecordParser::parsePlain(const std::string& message, DecodedRecord& record,
                                    std::string& error) const {
  record.kind = RecordKind::Plain;
  const size_t entriesEnd = message.size() - kPlainEnding.size();
  size_t firstColon = message.find(':');
  size_t secondColon =
      firstColon == std::string::npos ? std::string::npos : message.find(':', firstColon + 1);
  if (secondColon == std::string::npos || secondColon > entriesEnd) {
    error = "plain record without \"<prefix>:<publish name>:\" before its entries";
    return false;
  }
  record.prefix = message.substr(0, firstColon);
  record.publishName = message.substr(firstColon + 1, secondColon - firstColon - 1);
  if (!endsWith(record.prefix, kDeviceSuffix)) {
    error = "record prefix " + quoted(record.prefix) + " does not end in the device suffix \"" +
            kDeviceSuffix + "\"";
    return false;
  }
  if (record.publishName.empty()) {
    error = "empty publish name";
    return false;
  }
  const std::string entries = message.substr(secondColon + 1, entriesEnd - secondColon - 1);
  if (entries.empty()) {
    error = "plain record without entries";
    return false;
  }
  if (entries.find(':') != std::string::npos) {
    error = "':' inside the entries (metric names are written without it)";
    return false;
  }
  size_t at = 0;
  for (int index = 1;; ++index) {
    size_t end = entries.find(kPlainEntryEnding, at);
    if (end == std::string::npos) {
      error = "entry " + std::to_string(index) + " " + quoted(entries.substr(at)) +
              " does not end in \";CT;1\"";
      return false;
    }
    const std::string entry = entries.substr(at, end - at);
    size_t equals = entry.rfind('=');
    if (equals == std::string::npos) {
      error = "entry " + std::to_string(index) + " " + quoted(entry) + " has no '='";
      return false;
    }
    DecodedValue value;
    value.metric = entry.substr(0, equals);
    value.value = entry.substr(equals + 1);
    value.typeTag = "CT";
    if (value.metric.empty()) {
      error = "entry " + std::to_string(index) + " has an empty metric name";
      return false;
    }
    if (value.metric.find(';') != std::string::npos) {
      error = "entry " + std::to_string(index) + ": metric name " + quoted(value.metric) +
              " holds ';'";
      return false;
    }
    if (!isRecordNumber(value.value)) {
      error = "entry " + std::to_string(index) + " (" + value.metric + "): value " +
              quoted(value.value) + " is not a number";
      return false;
    }
    record.values.push_back(value);
    at = end + kPlainEntryEnding.size();
    if (at == entries.size()) return true;
    if (entries[at] != ',') {
      error = "entry " + std::to_string(index) + " (" + value.metric + ") is followed by " +
              quoted(entries.substr(at)) + " instead of ','";
      return false;
    }
    ++at;
    if (at == entries.size()) {
      error = "',' after the last entry";
      return false;
    }
  }
}

bool MetricRecordParser::parseStructured(const std::string& message, size_t tailAt,
                                         DecodedRecord& record, std::string& error) const {
  record.kind = RecordKind::Structured;
  const std::string afterTail =
      message.substr(tailAt + std::string(kStructuredRecordDeviceFields).size());
  if (!afterTail.empty()) {
    if (afterTail[0] != ':') {
      error = "text " + quoted(afterTail) + " after the device fields (only \":<region>\" may follow)";
      return false;
    }
    if (afterTail.size() == 1) {
      error = "':' after the device fields without a region";
      return false;
    }
    record.region = afterTail.substr(1);
  }
  // The header, read in order: the group up to the first ':', the schema up
  // to the next, then "100:".
  const std::string head = message.substr(0, tailAt);
  size_t groupEnd = head.find(':');
  size_t schemaEnd = groupEnd == std::string::npos ? std::string::npos : head.find(':', groupEnd + 1);
  if (schemaEnd == std::string::npos || head.compare(schemaEnd + 1, kHeaderEnding.size() - 1,
                                                     kHeaderEnding, 1, std::string::npos) != 0) {
    error = "structured record without the header \"<group>:<schema>:100:\"";
    return false;
  }
  record.group = head.substr(0, groupEnd);
  record.schema = head.substr(groupEnd + 1, schemaEnd - groupEnd - 1);
  const std::string body = head.substr(schemaEnd + kHeaderEnding.size());
  if (body.empty()) {
    error = "structured record with an empty body";
    return false;
  }

  const HalvexConfig::MonitorConfig* configured =
      attributor == nullptr ? nullptr : attributor->recordFor(record.group, record.schema);
  if (configured == nullptr) return parseUnconfigured(body, record, error);
  record.publishName = configured->metricName;
  return parseConfigured(body, *configured, record, error);
}

bool MetricRecordParser::readSingleValue(const std::string& body, const std::string& keyTag,
                                         const std::string& valueTag, DecodedValue& single,
                                         std::string& error) {
  // "<key tag>=<name>;SY,<value tag>=<value><type tag>": the name holds no
  // ';' (the emit step replaced it), so the first ';' ends it.
  if (body.compare(0, keyTag.size() + 1, keyTag + "=") != 0) return false;
  size_t nameEnd = body.find(';', keyTag.size() + 1);
  const std::string between = ";SY," + valueTag + "=";
  if (nameEnd == std::string::npos || body.compare(nameEnd, between.size(), between) != 0) {
    return false;
  }
  single = DecodedValue();
  single.keyTag = keyTag;
  single.valueTag = valueTag;
  single.metric = body.substr(keyTag.size() + 1, nameEnd - keyTag.size() - 1);
  std::string rest = body.substr(nameEnd + between.size());
  single.typeTag = typeTagAtEnd(rest);
  single.value = rest.substr(0, rest.size() - (single.typeTag.empty() ? 0 : 3));
  const std::string what = "single value " + quoted(single.metric);
  if (single.metric.empty()) {
    error = "single value with an empty metric name";
  } else if (single.typeTag.empty()) {
    error = what + " has no type tag (the daemon writes \";IN\" or \";FL\")";
  } else if (single.typeTag != "IN" && single.typeTag != "FL") {
    error = what + " has the type tag \";" + single.typeTag +
            "\" (the daemon writes \";IN\" or \";FL\")";
  } else if (single.typeTag == "IN" && !isUnsignedDecimal(single.value)) {
    error = what + ": \";IN\" value " + quoted(single.value) +
            " is not an unsigned decimal as the daemon writes it";
  } else if (single.typeTag == "FL" && !isStreamDouble(single.value)) {
    error = what + ": \";FL\" value " + quoted(single.value) +
            " is not a double as the daemon writes it (six significant digits, shortest form)";
  } else {
    error.clear();
  }
  return true;
}

bool MetricRecordParser::parseUnconfigured(const std::string& body, DecodedRecord& record,
                                           std::string& error) const {
  // One value when the body has its shape with a value the daemon could
  // have written; FIELDs otherwise, as they may hold the same pieces.
  size_t keyEnd = body.find('=');
  size_t nameEnd = keyEnd == std::string::npos ? std::string::npos : body.find(";SY,", keyEnd);
  if (nameEnd != std::string::npos && keyEnd > 0) {
    size_t valueTagEnd = body.find('=', nameEnd + 4);
    if (valueTagEnd != std::string::npos && valueTagEnd > nameEnd + 4) {
      const std::string valueTag = body.substr(nameEnd + 4, valueTagEnd - nameEnd - 4);
      DecodedValue single;
      std::string singleError;
      if (valueTag.find(',') == std::string::npos &&
          readSingleValue(body, body.substr(0, keyEnd), valueTag, single, singleError) &&
          singleError.empty()) {
        record.form = StructuredForm::SingleValue;
        record.values.push_back(single);
        return true;
      }
    }
  }
  record.form = StructuredForm::Fields;
  return parseFieldsBestEffort(body, record, error);
}

bool MetricRecordParser::parseConfigured(const std::string& body,
                                         const HalvexConfig::MonitorConfig& configured,
                                         DecodedRecord& record, std::string& error) const {
  const HalvexConfig::VedrixMetricInterface& vedrix = configured.vedrixMetricInterface;
  DecodedValue single;
  std::string singleError;
  bool singleShaped = !vedrix.metricKey.dimensionTag.empty() &&
                      !vedrix.metricValue.dimensionTag.empty() &&
                      readSingleValue(body, vedrix.metricKey.dimensionTag,
                                      vedrix.metricValue.dimensionTag, single, singleError);
  if (singleShaped && singleError.empty()) {
    record.form = StructuredForm::SingleValue;
    record.values.push_back(single);
    return true;
  }
  record.form = StructuredForm::Fields;
  std::string fieldsError;
  if (parseFieldsByDescriptors(body, configured, record, fieldsError)) return true;
  error = singleShaped ? singleError : fieldsError;
  return false;
}

namespace {

// One FIELD the daemon may write for a record: its descriptor and what may
// follow it.
struct FieldSlot {
  const HalvexConfig::VedrixMetric* descriptor;
  std::string tagText;  // "<tag>="
  std::string typeTag;  // ";IN" ... or empty for a type without one
  bool commaAfter;      // the FIELD may be followed by ','
  bool mayEnd;          // the body may end right after the FIELD
};

// Splits a body into FIELDs that fit `slots` in order, any of them left out.
// Values are read shortest first; a reading that cannot finish the body is
// undone, so a value holding a separator is read whole when only that reading
// fits. The step bound keeps bodies built to defeat it from taking long.
class FieldSplitter {
 public:
  struct Chosen {
    size_t slot;
    size_t valueAt;
    size_t valueEnd;
  };

  FieldSplitter(const std::string& body, const std::vector<FieldSlot>& slots)
      : body(body), slots(slots) {}

  // True with `chosen` filled, one entry per FIELD in body order.
  bool split() {
    chosen.clear();
    return from(0, 0);
  }

  bool exhausted() const { return steps > kMaxSteps; }

  std::vector<Chosen> chosen;

 private:
  static constexpr size_t kMaxSteps = 200000;

  bool from(size_t slot, size_t at) {
    if (at == body.size()) return !chosen.empty();
    if (slot == slots.size() || ++steps > kMaxSteps) return false;
    if (failed.count({slot, at}) != 0) return false;
    const FieldSlot& field = slots[slot];
    if (body.compare(at, field.tagText.size(), field.tagText) == 0) {
      const size_t valueAt = at + field.tagText.size();
      if (field.commaAfter) {
        const std::string ending = field.typeTag + ",";
        for (size_t end = body.find(ending, valueAt); end != std::string::npos;
             end = body.find(ending, end + 1)) {
          chosen.push_back({slot, valueAt, end});
          if (from(slot + 1, end + ending.size())) return true;
          chosen.pop_back();
          if (exhausted()) return false;
        }
      }
      if (field.mayEnd && body.size() >= valueAt + field.typeTag.size() &&
          body.compare(body.size() - field.typeTag.size(), field.typeTag.size(), field.typeTag) ==
              0) {
        chosen.push_back({slot, valueAt, body.size() - field.typeTag.size()});
        return true;
      }
    }
    // Left out: a field without its descriptor writes nothing.
    if (from(slot + 1, at)) return true;
    failed.insert({slot, at});
    return false;
  }

  const std::string& body;
  const std::vector<FieldSlot>& slots;
  std::set<std::pair<size_t, size_t>> failed;
  size_t steps = 0;
};

bool isSystemHealthName(const std::string& name) {
  for (const PublishNameUse& use : daemonPublishNames()) {
    if (use.publishName == name && use.kind == PublishNameUse::Kind::SystemHealth) return true;
  }
  return false;
}

}  // namespace

bool MetricRecordParser::parseFieldsByDescriptors(const std::string& body,
                                                  const HalvexConfig::MonitorConfig& configured,
                                                  DecodedRecord& record, std::string& error) {
  const std::vector<HalvexConfig::VedrixMetric>& metrics = configured.vedrixMetricInterface.metrics;
  const bool health = isSystemHealthName(configured.metricName);
  std::vector<FieldSlot> slots;
  if (health) {
    // The system-health logger writes its fields in field-name order, each
    // with the last descriptor of that name, ',' after every one but the
    // last field sent (which may have had no descriptor).
    std::map<std::string, const HalvexConfig::VedrixMetric*> byName;
    for (const HalvexConfig::VedrixMetric& metric : metrics) byName[metric.name] = &metric;
    for (const auto& [name, metric] : byName) {
      slots.push_back({metric, metric->dimensionTag + "=", MetricLogger::vedrixTypeTag(metric->type), true, true});
    }
  } else {
    // The multi-field body: descriptors by position, ',' after every one but
    // the last position, whether its field was written or not.
    for (size_t i = 0; i < metrics.size(); ++i) {
      const bool last = i + 1 == metrics.size();
      slots.push_back({&metrics[i], metrics[i].dimensionTag + "=", MetricLogger::vedrixTypeTag(metrics[i].type),
                       !last, last});
    }
  }
  const std::string order = health ? "in field-name order" : "in descriptor order";
  if (slots.empty()) {
    error = "configuration record " + quoted(configured.metricName) +
            " has no descriptors, so no multi-field body fits it";
    return false;
  }
  FieldSplitter splitter(body, slots);
  if (!splitter.split()) {
    error = splitter.exhausted()
                ? "body " + quoted(body) + " has too many readings to split by the descriptors of " +
                      quoted(configured.metricName)
                : "body " + quoted(body) + " does not fit the descriptors of " +
                      quoted(configured.metricName) + " (FIELDs \"<tag>=<value><type tag>\" " +
                      order + ")";
    return false;
  }
  for (const FieldSplitter::Chosen& chosen : splitter.chosen) {
    const FieldSlot& slot = slots[chosen.slot];
    DecodedValue value;
    value.metric = slot.descriptor->name;
    value.valueTag = slot.descriptor->dimensionTag;
    value.typeTag = slot.typeTag.empty() ? std::string() : slot.typeTag.substr(1);
    value.value = body.substr(chosen.valueAt, chosen.valueEnd - chosen.valueAt);
    record.values.push_back(value);
  }
  // A left-out last field leaves the ',' after the one before it.
  const FieldSplitter::Chosen& last = splitter.chosen.back();
  record.trailingComma = last.valueEnd + slots[last.slot].typeTag.size() != body.size();
  return true;
}

bool MetricRecordParser::parseFieldsBestEffort(const std::string& body, DecodedRecord& record,
                                               std::string& error) const {
  // Without the descriptors a FIELD ends at its type tag followed by ','; a
  // value may hold ',' of its own (process names do). FIELDs of a type
  // without a tag can only be told apart by ','.
  std::vector<std::string> fields;
  size_t start = 0;
  size_t i = 0;
  while (i + 3 <= body.size()) {
    if (isTypeTagAt(body, i) && (i + 3 == body.size() || body[i + 3] == ',')) {
      fields.push_back(body.substr(start, i + 3 - start));
      start = i + 4;
      i = start;
    } else {
      ++i;
    }
  }
  if (start < body.size()) {
    std::string rest = body.substr(start);
    size_t from = 0;
    while (true) {
      size_t comma = rest.find(',', from);
      fields.push_back(rest.substr(from, comma == std::string::npos ? std::string::npos : comma - from));
      if (comma == std::string::npos) break;
      from = comma + 1;
    }
  } else if (start == body.size()) {
    // The body ended in a ',' after a tagged FIELD.
    fields.push_back(std::string());
  }
  // A left-out last FIELD leaves the comma after the one before it: the
  // daemon writes that on purpose, so it is read, and reported, not refused.
  if (fields.size() > 1 && fields.back().empty()) {
    record.trailingComma = true;
    fields.pop_back();
  }
  // A string value may hold ",", even ";IN," (process names are written as
  // they are): a piece without '=' that ends a string value continues the
  // FIELD before it.
  std::vector<std::string> merged;
  for (const std::string& field : fields) {
    if (!merged.empty() && !field.empty() && field.find('=') == std::string::npos &&
        typeTagAtEnd(field) == "SY") {
      merged.back() += "," + field;
    } else {
      merged.push_back(field);
    }
  }
  for (size_t index = 0; index < merged.size(); ++index) {
    const std::string& field = merged[index];
    const std::string position = "field " + std::to_string(index + 1);
    // Two commas in a row: the piece between them is an empty FIELD.
    if (field.empty() || field[0] == ',') {
      error = position + " is empty";
      return false;
    }
    size_t equals = field.find('=');
    if (equals == std::string::npos) {
      error = position + " " + quoted(field) + " has no '='";
      return false;
    }
    DecodedValue value;
    value.valueTag = field.substr(0, equals);
    if (value.valueTag.empty()) {
      error = position + " " + quoted(field) + " has an empty tag";
      return false;
    }
    value.typeTag = typeTagAtEnd(field);
    value.value = field.substr(equals + 1, field.size() - equals - 1 -
                                              (value.typeTag.empty() ? 0 : 3));
    value.metric = value.valueTag;
    record.values.push_back(value);
  }
  return true;
}

}  // namespace halvexd::tools
