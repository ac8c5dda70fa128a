// What the decoder makes of one metric record: its kind and the values it
// carries, each with the labels a reader needs to place it.
#pragma once

#include <string>
#include <vector>

namespace halvexd::tools {

enum class RecordKind { Plain, Structured };

// How a structured record's body is laid out: one named value
// ("<key tag>=<name>;SY,<value tag>=<value><type tag>") or a list of FIELDs
// ("<tag>=<value><type tag>", ...), as multi-field and system-health records
// are written.
enum class StructuredForm { None, SingleValue, Fields };

struct DecodedValue {
  std::string metric;    // metric name; for a FIELD its descriptor name, or its tag when unknown
  std::string value;     // the value exactly as written
  std::string typeTag;   // "CT" for plain entries; "IN", "FL", "SY", "BO", "TI" or "" otherwise
  std::string keyTag;    // single-value records: the key's dimension tag
  std::string valueTag;  // single-value records: the value's tag; FIELDs: the field's tag
};

struct DecodedRecord {
  RecordKind kind = RecordKind::Plain;
  StructuredForm form = StructuredForm::None;
  std::string prefix;       // plain records only: the owner's name and device suffix
  std::string publishName;  // plain records: as written; structured: attributed, or empty
  std::string group;        // structured records only
  std::string schema;
  std::string region;       // empty when the record carries none
  bool trailingComma = false;  // a multi-field body whose last field was left out
  std::vector<DecodedValue> values;
};

}  // namespace halvexd::tools
