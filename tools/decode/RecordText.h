// Small text helpers the record parser's files share.
#pragma once

#include <string>

#include "metrics/RecordVocabulary.h"

namespace halvexd::tools {

inline bool endsWith(const std::string& text, const std::string& ending) {
  return text.size() >= ending.size() &&
         text.compare(text.size() - ending.size(), ending.size(), ending) == 0;
}

// The tag letters when `text` ends in a type tag, else empty.
inline std::string typeTagAtEnd(const std::string& text) {
  for (const char* tag : records::kTypeTags) {
    if (endsWith(text, tag)) return std::string(tag + 1);
  }
  return std::string();
}

inline bool isTypeTagAt(const std::string& text, size_t at) {
  for (const char* tag : records::kTypeTags) {
    if (text.compare(at, 3, tag) == 0) return true;
  }
  return false;
}

// Long texts are cut in messages: a reader wants to see where, not all.
inline std::string quoted(const std::string& text) {
  const size_t kShown = 60;
  if (text.size() <= kShown) return "\"" + text + "\"";
  return "\"" + text.substr(0, kShown) + "...\"";
}

}  // namespace halvexd::tools
