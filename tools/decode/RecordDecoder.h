// Runs a log stream through the decoder: reads it line by line, picks out the
// metric records, parses each and either writes its values or, in check mode,
// only says which records do not fit the record grammar.
#pragma once

#include <cstddef>
#include <istream>
#include <ostream>

#include "tools/decode/DecodedValueWriter.h"
#include "tools/decode/LogLineReader.h"
#include "tools/decode/MetricRecordParser.h"

namespace halvexd::tools {

class RecordDecoder {
 public:
  enum class Mode { JsonLines, Csv, Check };

  struct Counts {
    size_t lines = 0;
    size_t records = 0;    // lines that carried a metric record
    size_t malformed = 0;  // records that do not fit the grammar
    size_t tooLong = 0;    // lines passed over for their length
    size_t values = 0;     // values written
  };

  RecordDecoder(Mode mode, const MetricRecordParser& parser,
                size_t maxLineBytes = LogLineReader::kDefaultMaxLineBytes)
      : mode(mode), parser(parser), maxLineBytes(maxLineBytes) {}

  // Decodes `in`. Values go to `out` (check mode writes there one
  // "line N: <what is wrong>" per malformed record and a closing count); in
  // the other modes each record that cannot be decoded and each line too
  // long to read gets one such line on `err`, and decoding goes on. Returns
  // 0 when every record was read, 1 when any was malformed or a line was too
  // long.
  int run(std::istream& in, std::ostream& out, std::ostream& err);

  const Counts& counts() const { return tally; }

 private:
  Mode mode;
  const MetricRecordParser& parser;
  size_t maxLineBytes;
  Counts tally;
};

}  // namespace halvexd::tools
