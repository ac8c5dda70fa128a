// Host side of the Android property store: `key=value` lines in the file
// named by HALVEXD_PROPERTIES, read on every call. A later line for the same
// key wins, as in a property file loaded in order.
#include <cutils/properties.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>

namespace {

bool lookUpProperty(const char* key, std::string& value) {
  const char* file = std::getenv("HALVEXD_PROPERTIES");
  if (file == nullptr || file[0] == '\0' || key == nullptr) {
    return false;
  }
  std::ifstream in(file);
  std::string line;
  bool found = false;
  while (std::getline(in, line)) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    size_t equals = line.find('=');
    if (line.empty() || line[0] == '#' || equals == std::string::npos) continue;
    if (line.compare(0, equals, key) == 0 && equals == std::strlen(key)) {
      value = line.substr(equals + 1);
      found = true;
    }
  }
  return found;
}

}  // namespace

extern "C" int8_t property_get_bool(const char* key, int8_t default_value) {
  std::string value;
  if (!lookUpProperty(key, value)) {
    return default_value;
  }
  for (const char* word : {"1", "y", "yes", "on", "true"}) {
    if (value == word) return 1;
  }
  for (const char* word : {"0", "n", "no", "off", "false"}) {
    if (value == word) return 0;
  }
  return default_value;
}
