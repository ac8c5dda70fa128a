#include "tools/decode/MetricRecordParser.h"

#include <cctype>
#include <locale>
#include <sstream>

#include "metrics/RecordVocabulary.h"
#include "tools/decode/RecordText.h"

namespace halvexd::tools {

namespace {

const std::string kPlainEnding = records::kPlainEnding;
const std::string kPlainEntryEnding = records::kPlainEntryEnding;
const std::string kHeaderEnding = records::kStructuredHeaderEnding;
const std::string kDeviceSuffix = records::kDeviceSuffix;
const std::string kStringTag = records::kStringTag;
const std::string kIntegerTag = records::kIntegerTag;
const std::string kFloatTag = records::kFloatTag;
// The letters of a type tag, as the decoder reports them.
const std::string kIntegerLetters = kIntegerTag.substr(1);
const std::string kFloatLetters = kFloatTag.substr(1);

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
  size_t tailAt = message.rfind(records::deviceFieldsText());
  if (tailAt != std::string::npos) {
    return parseStructured(message, tailAt, record, error);
  }
  if (endsWith(message, kPlainEnding)) {
    return parsePlain(message, record, error);
  }
  if (message.find(std::string(",") + records::kDeviceFields[0] + "=") != std::string::npos) {
    error = "structured record whose device fields are incomplete or out of order";
  } else {
    error = "neither a plain record (ending in \"" + kPlainEnding +
            "\") nor a structured record (ending in the device fields)";
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
              " does not end in \"" + kPlainEntryEnding + "\"";
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
    value.typeTag = records::kPlainTypeLetters;
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
      message.substr(tailAt + records::deviceFieldsText().size());
  if (!afterTail.empty()) {
    if (afterTail[0] != records::kRegionSeparator) {
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
    error = "structured record without the header \"<group>:<schema>" + kHeaderEnding + "\"";
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
  const std::string between = kStringTag + "," + valueTag + "=";
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
  const std::string kDaemonWrites =
      " (the daemon writes \"" + kIntegerTag + "\" or \"" + kFloatTag + "\")";
  if (single.metric.empty()) {
    error = "single value with an empty metric name";
  } else if (single.typeTag.empty()) {
    error = what + " has no type tag" + kDaemonWrites;
  } else if (single.typeTag != kIntegerLetters && single.typeTag != kFloatLetters) {
    error = what + " has the type tag \";" + single.typeTag + "\"" + kDaemonWrites;
  } else if (single.typeTag == kIntegerLetters && !isUnsignedDecimal(single.value)) {
    error = what + ": \"" + kIntegerTag + "\" value " + quoted(single.value) +
            " is not an unsigned decimal as the daemon writes it";
  } else if (single.typeTag == kFloatLetters && !isStreamDouble(single.value)) {
    error = what + ": \"" + kFloatTag + "\" value " + quoted(single.value) +
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
  size_t nameEnd = keyEnd == std::string::npos ? std::string::npos : body.find(kStringTag + ",", keyEnd);
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

}  // namespace halvexd::tools
