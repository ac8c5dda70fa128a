// Host side of the Android log: one record per __android_log_buf_print call.
//
// Records go to stderr as logcat-like text lines, or to the file named by
// HALVEXD_LOG_FILE (appended). HALVEXD_LOG_FORMAT=jsonl writes one JSON object
// per call instead. Both variables are read at the first log call.
#pragma once

#include <functional>
#include <string>

namespace halvexd::hostlog {

struct LogRecord {
  int buffer;
  int priority;
  std::string tag;
  std::string message;
};

// {"buf":3,"prio":4,"tag":"halvexd","msg":"..."} with a trailing newline;
// the message is the exact formatted text, JSON-escaped.
std::string formatJsonLine(const LogRecord& record);

// The text log starts every line of the metrics buffer with this, so that a
// reader (halvex-decode) tells the two buffers apart.
inline constexpr char kMetricsMark[] = "[metrics] ";

// logcat-style "MM-DD hh:mm:ss.mmm  pid  pid P tag: text" lines, one per line
// of the message (as logcat prints a message with embedded newlines). Records
// of the metrics buffer start with kMetricsMark.
std::string formatTextLines(const LogRecord& record, long long epochMillis, int pid);

// While a hook is set, records go to it and nowhere else; an empty hook
// restores normal output. Used by in-process tests to assert exact records.
using RecordHook = std::function<void(const LogRecord&)>;
void setRecordHookForTesting(RecordHook hook);

}  // namespace halvexd::hostlog
