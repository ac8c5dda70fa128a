#include "tools/MetricRecordParser.h"

#include <cctype>
#include <vector>

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

bool MetricRecordParser::isRecordNumber(const std::string& text) {
  size_t i = 0;
  if (i < text.size() && text[i] == '-') ++i;
  std::string rest = text.substr(i);
  if (rest == "nan" || rest == "inf") return true;
  size_t mantissaEnd = text.find('e', i);
  if (mantissaEnd == std::string::npos) mantissaEnd = text.size();
  size_t dot = text.find('.', i);
  if (dot != std::string::npos && dot < mantissaEnd) {
    if (!allDigits(text, i, dot) || !allDigits(text, dot + 1, mantissaEnd)) return false;
  } else if (!allDigits(text, i, mantissaEnd)) {
    return false;
  }
  if (mantissaEnd == text.size()) return true;
  // Exponent: a sign and at least two digits, as the stream writes it.
  size_t e = mantissaEnd + 1;
  if (e >= text.size() || (text[e] != '+' && text[e] != '-')) return false;
  return text.size() - (e + 1) >= 2 && allDigits(text, e + 1, text.size());
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
  const std::string head = message.substr(0, tailAt);
  size_t groupEnd = head.find(':');
  size_t headerEnd =
      groupEnd == std::string::npos ? std::string::npos : head.find(kHeaderEnding, groupEnd);
  if (headerEnd == std::string::npos) {
    error = "structured record without the header \"<group>:<schema>:100:\"";
    return false;
  }
  record.group = head.substr(0, groupEnd);
  record.schema = head.substr(groupEnd + 1, headerEnd - groupEnd - 1);
  const std::string body = head.substr(headerEnd + kHeaderEnding.size());
  if (body.empty()) {
    error = "structured record with an empty body";
    return false;
  }

  const HalvexConfig::MonitorConfig* configured =
      attributor == nullptr ? nullptr : attributor->recordFor(record.group, record.schema);
  if (configured != nullptr) record.publishName = configured->metricName;

  // One value: "<key tag>=<name>;SY,<value tag>=<number><type tag>". A metric
  // name holds no ';', so the first ";SY," ends it.
  size_t keyEnd = body.find('=');
  size_t nameEnd = keyEnd == std::string::npos ? std::string::npos : body.find(";SY,", keyEnd);
  if (nameEnd != std::string::npos) {
    DecodedValue single;
    single.keyTag = body.substr(0, keyEnd);
    single.metric = body.substr(keyEnd + 1, nameEnd - keyEnd - 1);
    std::string rest = body.substr(nameEnd + 4);
    size_t valueTagEnd = rest.find('=');
    single.typeTag = typeTagAtEnd(rest);
    if (valueTagEnd != std::string::npos) {
      single.valueTag = rest.substr(0, valueTagEnd);
      size_t valueEnd = rest.size() - (single.typeTag.empty() ? 0 : 3);
      single.value = valueEnd > valueTagEnd ? rest.substr(valueTagEnd + 1, valueEnd - valueTagEnd - 1)
                                            : std::string();
    }
    bool shaped = valueTagEnd != std::string::npos && !single.keyTag.empty() &&
                  !single.metric.empty() && !single.valueTag.empty() &&
                  single.metric.find(';') == std::string::npos &&
                  single.valueTag.find(',') == std::string::npos &&
                  isRecordNumber(single.value);
    bool configuredSingle =
        configured != nullptr &&
        !configured->vedrixMetricInterface.metricKey.dimensionTag.empty() &&
        configured->vedrixMetricInterface.metricKey.dimensionTag == single.keyTag &&
        configured->vedrixMetricInterface.metricValue.dimensionTag == single.valueTag;
    if (shaped && (configured == nullptr || configuredSingle)) {
      record.form = StructuredForm::SingleValue;
      record.values.push_back(single);
      return true;
    }
  }
  record.form = StructuredForm::Fields;
  return parseFields(body, record, error);
}

bool MetricRecordParser::parseFields(const std::string& body, DecodedRecord& record,
                                     std::string& error) const {
  // A FIELD ends at its type tag; a value may hold ',' of its own (process
  // names do), so only a ',' right after a type tag separates two FIELDs.
  // FIELDs of a type without a tag can only be told apart by ','.
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
  const HalvexConfig::MonitorConfig* configured =
      attributor == nullptr ? nullptr : attributor->recordFor(record.group, record.schema);
  for (size_t index = 0; index < fields.size(); ++index) {
    const std::string& field = fields[index];
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
    if (configured != nullptr) {
      value.metric = StructuredRecordAttributor::descriptorNameFor(*configured, value.valueTag);
    }
    if (value.metric.empty()) value.metric = value.valueTag;
    record.values.push_back(value);
  }
  return true;
}

}  // namespace halvexd::tools
