// Parses the text of one metric record, as the daemon writes it to the
// metrics log buffer, into its values; or says what keeps it from fitting the
// record grammar.
//
// Plain record:      <prefix>:<publish name>:<name>=<value>;CT;1,...:NR
// Structured record: <group>:<schema>:100:<body><device fields>[:<region>]
//   body, one value:  <key tag>=<metric name>;SY,<value tag>=<value><type tag>
//   body, FIELDs:     <tag>=<value><type tag>,<tag>=<value><type tag>,...
//
// Where the pieces cannot be told apart for certain, the parser reads them
// one fixed way: the group id ends at the first ':' and the schema id at the
// next ":100:"; the device fields are found by their last occurrence; a
// plain metric name ends at its last '=' (names keep '=' and ',', the values
// are numbers); a FIELD ends at a type tag followed by ',' or the end, so
// FIELD values may hold ',' unless their type has no tag.
#pragma once

#include <string>

#include "tools/DecodedRecord.h"
#include "tools/StructuredRecordAttributor.h"

namespace halvexd::tools {

// The device fields every structured record ends with, written empty.
extern const char* const kStructuredRecordDeviceFields;

class MetricRecordParser {
 public:
  // Without an attributor a structured record keeps an empty publish name,
  // and its body reads as one value when it has that shape (two pieces, the
  // first a string), as FIELDs otherwise. With one, the configuration record
  // of the record's group and schema names the publish name, decides the form
  // (one value exactly when its key and value tags lead the body) and names
  // each FIELD after its descriptor.
  explicit MetricRecordParser(const StructuredRecordAttributor* attributor = nullptr)
      : attributor(attributor) {}

  // True and `record` filled when `message` fits the grammar; false with
  // `error` saying what is wrong (and `record` unspecified) otherwise.
  bool parse(const std::string& message, DecodedRecord& record, std::string& error) const;

  // A number as the records write one: an unsigned or signed decimal, or a
  // double in the shortest-of-fixed-and-exponent form with six significant
  // digits ("12.5", "1.23457e+06"), including "nan", "-nan", "inf", "-inf".
  static bool isRecordNumber(const std::string& text);

 private:
  bool parsePlain(const std::string& message, DecodedRecord& record, std::string& error) const;
  bool parseStructured(const std::string& message, size_t tailAt, DecodedRecord& record,
                       std::string& error) const;
  bool parseFields(const std::string& body, DecodedRecord& record, std::string& error) const;

  const StructuredRecordAttributor* attributor;
};

}  // namespace halvexd::tools
