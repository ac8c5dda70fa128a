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

  // `text` as a JSON string with its quotes. Bytes that are not UTF-8 are
  // written as the code point of the same number, so nothing is dropped.
  static std::string jsonString(const std::string& text);
  // `text` as a CSV field: quoted when it holds a quote, ',', CR or LF.
  static std::string csvField(const std::string& text);

 private:
  std::ostream& out;
  Format format;
  bool headerWritten = false;
};

}  // namespace halvexd::tools
