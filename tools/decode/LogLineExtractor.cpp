#include "tools/decode/LogLineExtractor.h"

#include <cjson/cJSON.h>

#include <cctype>
#include <cstring>

#include "metrics/RecordVocabulary.h"
#include "platform/host/HostLog.h"

namespace halvexd::tools {

const char* const LogLineExtractor::kMetricsTag = records::kMetricsTag;

namespace {

const char* const kMetricsBufferMark = hostlog::kMetricsMark;
const char* const kPriorityLetters = "VDIWEFSA";

bool isDigitAt(const std::string& text, size_t at) {
  return at < text.size() && std::isdigit(static_cast<unsigned char>(text[at]));
}

// "MM-DD hh:mm:ss.mmm": digits where the pattern has '9', the rest literal.
bool timestampAt(const std::string& text, size_t at) {
  static const char kPattern[] = "99-99 99:99:99.999";
  for (size_t i = 0; kPattern[i] != '\0'; ++i) {
    if (kPattern[i] == '9') {
      if (!isDigitAt(text, at + i)) return false;
    } else if (at + i >= text.size() || text[at + i] != kPattern[i]) {
      return false;
    }
  }
  return true;
}

size_t skipBlanks(const std::string& text, size_t at) {
  while (at < text.size() && text[at] == ' ') ++at;
  return at;
}

size_t skipDigits(const std::string& text, size_t at) {
  while (isDigitAt(text, at)) ++at;
  return at;
}

}  // namespace

bool LogLineExtractor::extract(const std::string& line, std::string& message) {
  if (line.empty()) return false;
  if (line[0] == '{') return fromJson(line, message);
  if (fromThreadtime(line, message)) return true;
  return fromBrief(line, message);
}

bool LogLineExtractor::fromJson(const std::string& line, std::string& message) {
  // cJSON reads up to a NUL: a line with one inside would be judged by its
  // first part only.
  if (line.find('\0') != std::string::npos) return false;
  cJSON* root = cJSON_ParseWithOpts(line.c_str(), nullptr, 1);
  if (root == nullptr) return false;
  bool found = false;
  const cJSON* tag = cJSON_GetObjectItemCaseSensitive(root, "tag");
  const cJSON* msg = cJSON_GetObjectItemCaseSensitive(root, "msg");
  if (cJSON_IsObject(root) && cJSON_IsString(tag) && cJSON_IsString(msg) &&
      std::strcmp(tag->valuestring, kMetricsTag) == 0) {
    message = msg->valuestring;
    found = true;
  }
  cJSON_Delete(root);
  return found;
}

bool LogLineExtractor::fromThreadtime(const std::string& line, std::string& message) {
  size_t at = 0;
  if (line.compare(0, std::strlen(kMetricsBufferMark), kMetricsBufferMark) == 0) {
    at = std::strlen(kMetricsBufferMark);
  }
  if (!timestampAt(line, at)) return false;
  at += std::strlen("MM-DD hh:mm:ss.mmm");
  // pid, then tid
  for (int number = 0; number < 2; ++number) {
    size_t digits = skipBlanks(line, at);
    if (digits == at) return false;
    at = skipDigits(line, digits);
    if (at == digits) return false;
  }
  if (at + 3 > line.size() || line[at] != ' ' || std::strchr(kPriorityLetters, line[at + 1]) == nullptr ||
      line[at + 1] == '\0' || line[at + 2] != ' ') {
    return false;
  }
  return afterTag(line.substr(at + 3), message);
}

bool LogLineExtractor::fromBrief(const std::string& line, std::string& message) {
  if (line.size() < 2 || std::strchr(kPriorityLetters, line[0]) == nullptr || line[0] == '\0' ||
      line[1] != '/') {
    return false;
  }
  size_t open = line.find('(', 2);
  if (open == std::string::npos) return false;
  std::string tag = line.substr(2, open - 2);
  while (!tag.empty() && tag.back() == ' ') tag.pop_back();
  if (tag != kMetricsTag) return false;
  size_t digits = skipBlanks(line, open + 1);
  size_t end = skipDigits(line, digits);
  if (end == digits || line.compare(end, 2, "):") != 0) return false;
  end += 2;
  if (end < line.size() && line[end] == ' ') ++end;
  message = line.substr(end);
  return true;
}

bool LogLineExtractor::afterTag(const std::string& rest, std::string& message) {
  const size_t tagLength = std::strlen(kMetricsTag);
  if (rest.compare(0, tagLength, kMetricsTag) != 0) return false;
  size_t at = skipBlanks(rest, tagLength);
  if (at >= rest.size() || rest[at] != ':') return false;
  ++at;
  if (at < rest.size() && rest[at] == ' ') ++at;
  message = rest.substr(at);
  return true;
}

}  // namespace halvexd::tools
