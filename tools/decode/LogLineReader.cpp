#include "tools/decode/LogLineReader.h"

namespace halvexd::tools {

bool LogLineReader::next(Line& line) {
  std::streambuf* buffer = in.rdbuf();
  line.text.clear();
  line.tooLong = false;
  bool any = false;
  while (true) {
    int c = buffer == nullptr ? std::char_traits<char>::eof() : buffer->sbumpc();
    if (c == std::char_traits<char>::eof()) {
      if (!any) return false;
      break;
    }
    any = true;
    if (c == '\n') break;
    if (line.tooLong) continue;
    if (line.text.size() == maxLineBytes) {
      line.tooLong = true;
      line.text.clear();
      line.text.shrink_to_fit();
      continue;
    }
    line.text.push_back(static_cast<char>(c));
  }
  if (!line.text.empty() && line.text.back() == '\r') line.text.pop_back();
  line.number = ++lineNumber;
  return true;
}

}  // namespace halvexd::tools
