#include "config/cJSONExtras.h"

#include <cstdio>
#include <cstring>
#include <string>

namespace {

// Reads at most `limit` + 1 bytes of `file` into `text`, so a file above the
// limit is seen as such without reading it all. False on a read error.
bool readBounded(FILE* file, size_t limit, std::string& text) {
  char chunk[4096];
  while (text.size() <= limit) {
    size_t wanted = sizeof(chunk);
    if (limit + 1 - text.size() < wanted) {
      wanted = limit + 1 - text.size();
    }
    size_t got = std::fread(chunk, 1, wanted, file);
    text.append(chunk, got);
    if (got < wanted) {
      return std::ferror(file) == 0;
    }
  }
  return true;
}

}  // namespace

extern "C" cJSON* cJSON_Parse_File(const char* path, int /*options*/) {
  if (path == nullptr) {
    return nullptr;
  }
  FILE* file = std::fopen(path, "rb");
  if (file == nullptr) {
    return nullptr;
  }
  std::string text;
  const size_t limit = HALVEXD_CJSON_MAX_FILE_BYTES;
  bool readOk = readBounded(file, limit, text);
  std::fclose(file);
  if (!readOk || text.size() > limit) {
    return nullptr;
  }
  if (std::memchr(text.data(), '\0', text.size()) != nullptr) {
    return nullptr;
  }
  // Requiring the terminator right after the value (white space aside)
  // rejects trailing garbage instead of ignoring it.
  return cJSON_ParseWithOpts(text.c_str(), nullptr, 1);
}

extern "C" int cJSON_get_bool_val(const cJSON* item) {
  return cJSON_IsTrue(item) ? 1 : 0;
}
