// Reads a log stream line by line, holding at most one line, and never more
// than a fixed number of bytes of it: a longer line is passed over to its end
// and reported as too long.
#pragma once

#include <cstddef>
#include <istream>
#include <string>

namespace halvexd::tools {

class LogLineReader {
 public:
  // Far more than any log line holds: the device's log layer caps a message
  // at a few kilobytes.
  static constexpr size_t kDefaultMaxLineBytes = 1024 * 1024;

  struct Line {
    size_t number = 0;     // from 1
    std::string text;      // without its '\n' (and a '\r' before it); empty when too long
    bool tooLong = false;  // the line held more than the bound; its text was not kept
  };

  explicit LogLineReader(std::istream& in, size_t maxLineBytes = kDefaultMaxLineBytes)
      : in(in), maxLineBytes(maxLineBytes) {}

  // The next line; false at the end of the stream. A last line without '\n'
  // counts as a line.
  bool next(Line& line);

 private:
  std::istream& in;
  size_t maxLineBytes;
  size_t lineNumber = 0;
};

}  // namespace halvexd::tools
