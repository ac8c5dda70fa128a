// Parses the text of one metric record, as the daemon writes it to the
// metrics log buffer, into its values; or says what keeps it from fitting the
// record grammar.
//
// Plain record:      <prefix>:<publish name>:<name>=<value>;CT;1,...:NR
// Structured record: <group>:<schema>:100:<body><device fields>[:<region>]
//   body, one value:  <key tag>=<metric name>;SY,<value tag>=<value><type tag>
//   body, FIELDs:     <tag>=<value><type tag>,<tag>=<value><type tag>,...
//
// The header is read in order: the group id ends at the first ':', the
// schema id at the next, and "100:" follows. The device fields are found by
// their last occurrence; a plain metric name ends at its last '=' (names keep
// '=' and ',', the values are numbers).
//
// A single value is written only from integer stores (";IN", an unsigned
// decimal) and double stores (";FL", six significant digits in the shorter of
// fixed and exponent form), so only those are accepted for it.
//
// FIELD values are written as they are, so they may hold ',', ';IN,' or
// '='. With the record's configuration the body is split by its descriptors:
// each FIELD is "<tag>=<value><type tag of that descriptor>", in descriptor
// order (multi-field records) or field-name order (system-health records), and
// a value is read whole when only that reading fits the rest. Without it the
// split is a best effort: a FIELD ends at a type tag followed by ',' (so
// FIELDs of a type without a tag run together with the next one unless only
// ',' follows), pieces without a tag split at ',', and a piece without '='
// that ends in ";SY" continues the string value before it.
#pragma once

#include <string>

#include "tools/decode/DecodedRecord.h"
#include "tools/decode/StructuredRecordAttributor.h"

namespace halvexd::tools {

class MetricRecordParser {
 public:
  // Without an attributor (or when it knows no single record for the group
  // and schema) a structured record keeps an empty publish name, and its body
  // reads as one value when it has that shape with a value the daemon can
  // write, as FIELDs otherwise (split as best it can). With one, the
  // configuration record names the publish name, its key and value tags
  // decide the single-value form, and its descriptors split and name the
  // FIELDs; a body that fits neither is refused.
  explicit MetricRecordParser(const StructuredRecordAttributor* attributor = nullptr)
      : attributor(attributor) {}

  // True and `record` filled when `message` fits the grammar; false with
  // `error` saying what is wrong (and `record` unspecified) otherwise.
  bool parse(const std::string& message, DecodedRecord& record, std::string& error) const;

  // An unsigned decimal as the daemon prints a uint64: no sign, no leading
  // zeros except "0" itself.
  static bool isUnsignedDecimal(const std::string& text);

  // A double as the daemon's stream prints it with the default precision of
  // six: "0.123457", "12.5", "3", "1.23457e+06", "1e-05", "nan", "-nan",
  // "inf", "-inf"; never "1.0", "12.50000" or "1.23e+006".
  static bool isStreamDouble(const std::string& text);

  // What a plain entry may hold: either of the two.
  static bool isRecordNumber(const std::string& text);

 private:
  bool parsePlain(const std::string& message, DecodedRecord& record, std::string& error) const;
  bool parseStructured(const std::string& message, size_t tailAt, DecodedRecord& record,
                       std::string& error) const;
  bool parseUnconfigured(const std::string& body, DecodedRecord& record,
                         std::string& error) const;
  bool parseConfigured(const std::string& body, const HalvexConfig::MonitorConfig& configured,
                       DecodedRecord& record, std::string& error) const;
  bool parseFieldsBestEffort(const std::string& body, DecodedRecord& record,
                             std::string& error) const;
  static bool parseFieldsByDescriptors(const std::string& body,
                                       const HalvexConfig::MonitorConfig& configured,
                                       DecodedRecord& record, std::string& error);
  // False when `body` does not have the single-value shape for these tags;
  // true with `single` filled and `error` empty, or saying why the daemon
  // cannot have written that value, when it has.
  static bool readSingleValue(const std::string& body, const std::string& keyTag,
                              const std::string& valueTag, DecodedValue& single,
                              std::string& error);

  const StructuredRecordAttributor* attributor;
};

}  // namespace halvexd::tools
