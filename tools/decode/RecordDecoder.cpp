#include "tools/decode/RecordDecoder.h"

#include "tools/decode/LogLineExtractor.h"

namespace halvexd::tools {

int RecordDecoder::run(std::istream& in, std::ostream& out, std::ostream& err) {
  tally = Counts();
  LogLineReader reader(in, maxLineBytes);
  DecodedValueWriter writer(out, mode == Mode::Csv ? DecodedValueWriter::Format::Csv
                                                   : DecodedValueWriter::Format::JsonLines);
  std::ostream& problems = mode == Mode::Check ? out : err;
  LogLineReader::Line line;
  std::string message;
  DecodedRecord record;
  std::string error;
  while (reader.next(line)) {
    ++tally.lines;
    if (line.tooLong) {
      ++tally.tooLong;
      problems << "line " << line.number << ": longer than " << maxLineBytes
               << " bytes, not read\n";
      continue;
    }
    if (!LogLineExtractor::extract(line.text, message)) continue;
    ++tally.records;
    if (!parser.parse(message, record, error)) {
      ++tally.malformed;
      problems << "line " << line.number << ": " << error << "\n";
      continue;
    }
    if (mode != Mode::Check) {
      writer.write(line.number, record);
      tally.values += record.values.size();
    }
  }
  if (mode == Mode::Check) {
    out << tally.records << " metric records checked, " << tally.malformed << " malformed";
    if (tally.tooLong > 0) {
      out << ", " << tally.tooLong << (tally.tooLong == 1 ? " line" : " lines")
          << " too long to read";
    }
    out << "\n";
  }
  return tally.malformed > 0 || tally.tooLong > 0 ? 1 : 0;
}

}  // namespace halvexd::tools
