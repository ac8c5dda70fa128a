// Picks the metric records out of log lines: lines of the tag
// "metrics.halvexd" in the formats halvexd's records are read in.
//
//   jsonl (host build):  {"buf":8,"prio":4,"tag":"metrics.halvexd","msg":"..."}
//   host text:           [metrics] 11-23 03:27:03.123  4711  4711 I metrics.halvexd: ...
//   logcat threadtime:   11-23 03:27:03.123  4711  4711 I metrics.halvexd: ...
//   logcat brief:        I/metrics.halvexd( 4711): ...
//
// "--------- beginning of ..." separators (logcat -b all) and every other
// line are not records.
#pragma once

#include <string>

namespace halvexd::tools {

class LogLineExtractor {
 public:
  // The tag every metric record is written with.
  static const char* const kMetricsTag;

  // True and `message` set to the record's text when `line` is a log line of
  // the metrics tag in one of the formats above; false for anything else.
  static bool extract(const std::string& line, std::string& message);

 private:
  static bool fromJson(const std::string& line, std::string& message);
  static bool fromThreadtime(const std::string& line, std::string& message);
  static bool fromBrief(const std::string& line, std::string& message);
  // `rest` starts with the tag: "metrics.halvexd: text" (logcat may pad the
  // tag with blanks before the colon).
  static bool afterTag(const std::string& rest, std::string& message);
};

}  // namespace halvexd::tools
