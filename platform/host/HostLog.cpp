#include "platform/host/HostLog.h"

#include <android/log.h>
#include <fcntl.h>
#include <sys/time.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <mutex>
#include <vector>

#include "platform/LogBuffers.h"

namespace halvexd::hostlog {
namespace {

struct Sink {
  int fd = STDERR_FILENO;
  bool jsonl = false;
};

std::mutex& sinkMutex() {
  static std::mutex mutex;
  return mutex;
}

RecordHook& hookSlot() {
  static RecordHook hook;
  return hook;
}

const Sink& sink() {
  static const Sink configured = [] {
    Sink s;
    const char* format = std::getenv("HALVEXD_LOG_FORMAT");
    s.jsonl = format != nullptr && std::strcmp(format, "jsonl") == 0;
    const char* file = std::getenv("HALVEXD_LOG_FILE");
    if (file != nullptr && file[0] != '\0') {
      int fd = open(file, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
      if (fd >= 0) {
        s.fd = fd;
      }
    }
    return s;
  }();
  return configured;
}

char priorityLetter(int priority) {
  static const char kLetters[] = "??VDIWEFS";
  return priority >= 0 && priority <= ANDROID_LOG_SILENT ? kLetters[priority] : '?';
}

// One write per record, so records from concurrent writers never interleave
// and a record is never cut in half by another.
void writeAll(int fd, const std::string& text) {
  size_t done = 0;
  while (done < text.size()) {
    ssize_t n = write(fd, text.data() + done, text.size() - done);
    if (n < 0) {
      if (errno == EINTR) continue;
      return;
    }
    done += static_cast<size_t>(n);
  }
}

std::string vformat(const char* fmt, va_list args) {
  va_list probe;
  va_copy(probe, args);
  int length = std::vsnprintf(nullptr, 0, fmt, probe);
  va_end(probe);
  if (length <= 0) {
    return std::string();
  }
  std::vector<char> buffer(static_cast<size_t>(length) + 1);
  std::vsnprintf(buffer.data(), buffer.size(), fmt, args);
  return std::string(buffer.data(), static_cast<size_t>(length));
}

long long nowEpochMillis() {
  struct timeval tv;
  gettimeofday(&tv, nullptr);
  return static_cast<long long>(tv.tv_sec) * 1000 + tv.tv_usec / 1000;
}

}  // namespace

std::string formatJsonLine(const LogRecord& record) {
  std::string out = "{\"buf\":" + std::to_string(record.buffer) +
                    ",\"prio\":" + std::to_string(record.priority) + ",\"tag\":\"";
  auto appendEscaped = [&out](const std::string& text) {
    for (unsigned char c : text) {
      switch (c) {
        case '"': out += "\\\""; break;
        case '\\': out += "\\\\"; break;
        case '\n': out += "\\n"; break;
        case '\r': out += "\\r"; break;
        case '\t': out += "\\t"; break;
        case '\b': out += "\\b"; break;
        case '\f': out += "\\f"; break;
        default:
          if (c < 0x20) {
            char escaped[8];
            std::snprintf(escaped, sizeof(escaped), "\\u%04x", c);
            out += escaped;
          } else {
            out += static_cast<char>(c);
          }
      }
    }
  };
  appendEscaped(record.tag);
  out += "\",\"msg\":\"";
  appendEscaped(record.message);
  out += "\"}\n";
  return out;
}

std::string formatTextLines(const LogRecord& record, long long epochMillis, int pid) {
  time_t seconds = static_cast<time_t>(epochMillis / 1000);
  struct tm local;
  localtime_r(&seconds, &local);
  char header[64];
  std::snprintf(header, sizeof(header), "%02d-%02d %02d:%02d:%02d.%03lld %5d %5d %c ",
                local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec,
                epochMillis % 1000, pid, pid, priorityLetter(record.priority));
  std::string prefix = record.buffer == kMetricsLogBuffer ? kMetricsMark : "";
  prefix += header;
  prefix += record.tag;
  prefix += ": ";

  // logcat drops trailing newlines and prints each remaining line with a header.
  std::string text = record.message;
  while (!text.empty() && text.back() == '\n') {
    text.pop_back();
  }
  std::string out;
  size_t start = 0;
  while (true) {
    size_t end = text.find('\n', start);
    out += prefix;
    out.append(text, start, end == std::string::npos ? std::string::npos : end - start);
    out += '\n';
    if (end == std::string::npos) break;
    start = end + 1;
  }
  return out;
}

void setRecordHookForTesting(RecordHook hook) {
  std::lock_guard<std::mutex> lock(sinkMutex());
  hookSlot() = std::move(hook);
}

}  // namespace halvexd::hostlog

using halvexd::hostlog::LogRecord;

extern "C" int __android_log_buf_print(int bufID, int prio, const char* tag, const char* fmt,
                                       ...) {
  va_list args;
  va_start(args, fmt);
  LogRecord record{bufID, prio, tag != nullptr ? tag : "", halvexd::hostlog::vformat(fmt, args)};
  va_end(args);

  std::lock_guard<std::mutex> lock(halvexd::hostlog::sinkMutex());
  if (halvexd::hostlog::hookSlot()) {
    halvexd::hostlog::hookSlot()(record);
    return static_cast<int>(record.message.size());
  }
  const auto& sink = halvexd::hostlog::sink();
  std::string line = sink.jsonl ? halvexd::hostlog::formatJsonLine(record)
                                : halvexd::hostlog::formatTextLines(
                                      record, halvexd::hostlog::nowEpochMillis(), getpid());
  halvexd::hostlog::writeAll(sink.fd, line);
  return static_cast<int>(record.message.size());
}
