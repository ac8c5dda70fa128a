// Writes decoded metric values, one per line: JSON objects, or a CSV table
// with a header row. Every column is text; values keep the exact digits the
// record carried.
#pragma once

#include <cstddef>
#include <ostream>
#include <string>

#include "tools/decode/DecodedRecord.h"

namespace halvexd::tools {

class DecodedValueWriter {
 public:
  enum class Format { JsonLines, Csv };

  DecodedValueWriter(std::ostream& out, Format format) : out(out), format(format) {}

  // One line per value of `record`, read from input line `lineNumber`.
  void write(size_t lineNumber, const DecodedRecord& record);

  // The column names, in order, as the CSV header and the JSON keys give them.
  static const char* const kColumns[];
  static const size_t kColumnCount;

  // `text` as a JSON string with its quotes. Valid UTF-8 is written as it
  // is; each byte of an invalid sequence (0x80 to 0xff) as the escaped lone
  // surrogate U+DC00 + byte ("\udcff" for 0xff), which no character can be,
  // so every byte comes back (Python: encode("utf-8", "surrogateescape")).
  static std::string jsonString(const std::string& text);
  // `text` as a CSV field: quoted when it holds a quote, ',', CR or LF. Its
  // bytes are written as they are, invalid UTF-8 included.
  static std::string csvField(const std::string& text);

 private:
  std::ostream& out;
  Format format;
  bool headerWritten = false;
};

}  // namespace halvexd::tools
