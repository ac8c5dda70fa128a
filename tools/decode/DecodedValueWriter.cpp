#include "tools/decode/DecodedValueWriter.h"

#include <cstdio>

namespace halvexd::tools {

const char* const DecodedValueWriter::kColumns[] = {
    "line",  "kind",  "form",   "prefix", "publish", "metric",    "value",
    "type",  "group", "schema", "key_tag", "value_tag", "region"};
const size_t DecodedValueWriter::kColumnCount = sizeof(kColumns) / sizeof(kColumns[0]);

namespace {

const char* formName(StructuredForm form) {
  switch (form) {
    case StructuredForm::SingleValue: return "single";
    case StructuredForm::Fields: return "fields";
    case StructuredForm::None: break;
  }
  return "";
}

// Length of the valid UTF-8 sequence starting at `at`, or 0.
size_t utf8SequenceAt(const std::string& text, size_t at) {
  unsigned char lead = static_cast<unsigned char>(text[at]);
  size_t length = 0;
  unsigned int minimum = 0;
  unsigned int codePoint = 0;
  if (lead >= 0xc2 && lead <= 0xdf) {
    length = 2, minimum = 0x80, codePoint = lead & 0x1f;
  } else if (lead >= 0xe0 && lead <= 0xef) {
    length = 3, minimum = 0x800, codePoint = lead & 0x0f;
  } else if (lead >= 0xf0 && lead <= 0xf4) {
    length = 4, minimum = 0x10000, codePoint = lead & 0x07;
  } else {
    return 0;
  }
  if (at + length > text.size()) return 0;
  for (size_t i = 1; i < length; ++i) {
    unsigned char next = static_cast<unsigned char>(text[at + i]);
    if ((next & 0xc0) != 0x80) return 0;
    codePoint = (codePoint << 6) | (next & 0x3f);
  }
  if (codePoint < minimum || codePoint > 0x10ffff || (codePoint >= 0xd800 && codePoint <= 0xdfff)) {
    return 0;
  }
  return length;
}

}  // namespace

std::string DecodedValueWriter::jsonString(const std::string& text) {
  std::string out = "\"";
  for (size_t i = 0; i < text.size();) {
    unsigned char c = static_cast<unsigned char>(text[i]);
    char escaped[8];
    if (c == '"' || c == '\\') {
      out += '\\';
      out += static_cast<char>(c);
    } else if (c < 0x20 || c == 0x7f) {
      std::snprintf(escaped, sizeof(escaped), "\\u%04x", c);
      out += escaped;
    } else if (c >= 0x80) {
      size_t length = utf8SequenceAt(text, i);
      if (length == 0) {
        // A byte that is no part of a UTF-8 character becomes the lone low
        // surrogate U+DC00 + byte, which no character is: "\u00ff" is the
        // character U+00FF, "\udcff" the byte 0xff.
        std::snprintf(escaped, sizeof(escaped), "\\u%04x", static_cast<unsigned>(0xdc00 + c));
        out += escaped;
        ++i;
      } else {
        out.append(text, i, length);
        i += length;
      }
      continue;
    } else {
      out += static_cast<char>(c);
    }
    ++i;
  }
  return out + "\"";
}

std::string DecodedValueWriter::csvField(const std::string& text) {
  if (text.find_first_of("\",\r\n") == std::string::npos) return text;
  std::string out = "\"";
  for (char c : text) {
    if (c == '"') out += '"';
    out += c;
  }
  return out + "\"";
}

void DecodedValueWriter::write(size_t lineNumber, const DecodedRecord& record) {
  if (format == Format::Csv && !headerWritten) {
    for (size_t i = 0; i < kColumnCount; ++i) out << (i == 0 ? "" : ",") << kColumns[i];
    out << "\n";
    headerWritten = true;
  }
  const bool plain = record.kind == RecordKind::Plain;
  for (const DecodedValue& value : record.values) {
    const std::string cells[] = {std::to_string(lineNumber),
                                 plain ? "plain" : "structured",
                                 formName(record.form),
                                 record.prefix,
                                 record.publishName,
                                 value.metric,
                                 value.value,
                                 value.typeTag,
                                 record.group,
                                 record.schema,
                                 value.keyTag,
                                 value.valueTag,
                                 record.region};
    if (format == Format::Csv) {
      for (size_t i = 0; i < kColumnCount; ++i) out << (i == 0 ? "" : ",") << csvField(cells[i]);
      out << "\n";
      continue;
    }
    out << "{\"line\":" << lineNumber;
    for (size_t i = 1; i < kColumnCount; ++i) {
      out << ",\"" << kColumns[i] << "\":" << jsonString(cells[i]);
    }
    out << "}\n";
  }
}

}  // namespace halvexd::tools
