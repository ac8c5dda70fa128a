// The configuration loader given any bytes as its file: it takes exactly the
// files that are one JSON value of at most 1 MiB, without NUL bytes, holding
// both top-level keys; it always ends with its closing line; and each record
// is stored under its own name. The tree reader agrees on any parsed tree.
#include <cjson/cJSON.h>

#include <algorithm>
#include <cstring>

#include "config/HalvexConfig.h"
#include "config/cJSONExtras.h"
#include "tests/fuzz/FuzzSupport.h"

using halvexd::HalvexConfig;
using namespace halvexd::fuzz;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const char* text = reinterpret_cast<const char*>(data);
  const char* path = "/system/system_ext/etc/halvex_config.json";
  scratchDevice().write(path + 1, std::string(text, size));
  const char* end = nullptr;
  cJSON* root = cJSON_ParseWithLengthOpts(text, size, &end, 0);
  bool complete = root != nullptr && cJSON_GetObjectItemCaseSensitive(root, "MonitorConfig") &&
                  cJSON_GetObjectItemCaseSensitive(root, "VedrixConfig");
  // cJSON counts every byte up to ' ' as white space after the value.
  bool clean = root != nullptr && std::all_of(end, text + size, [](char c) {
                 return static_cast<unsigned char>(c) <= ' ';
               });
  bool acceptable = size <= HALVEXD_CJSON_MAX_FILE_BYTES && std::memchr(data, 0, size) == nullptr &&
                    complete && clean;
  HalvexConfig& config = HalvexConfig::instance();
  config.resetConfig();
  {
    halvexd::testing::LogCapture log;
    check(config.loadConfig(path) == acceptable, acceptable ? "refused a good file" : "took a bad file");
    check(log.records().back().message == "Load JSON config done\n", "load without its closing line");
  }
  for (const auto& [key, record] : config.monitorConfigs) {
    check(key == record.metricName, "record under another name");
  }
  config.resetConfig();
  if (root != nullptr) {
    halvexd::testing::LogCapture log;
    check((config.parseJsonData(root) == 0) == complete, "tree result against the top-level keys");
    cJSON_Delete(root);
    config.resetConfig();
  }
  return 0;
}
